#pragma once
// A private X display (Xvfb) for tests on a free display number; xdotool presses keys on it.

#include "support/ChildProcess.h"

namespace wh::test {

struct XvfbDisplay {
  ChildProcess server{{findExecutable("Xvfb").empty() ? "/bin/false" : findExecutable("Xvfb"), "-displayfd", "1", "-nolisten", "tcp"}};
  const bool available = !findExecutable("xdotool").empty() && server.waitForOutput("\n", std::chrono::seconds(10));
  const std::string name = available ? ":" + server.output().substr(0, server.output().find('\n')) : "";  // for DISPLAY

  // xdotool on this display, e.g. ("keydown", "XF86AudioNext").
  void xdotool(const std::string& command, const std::string& key) const { runCommand({"xdotool", command, key}, {{"DISPLAY", name}}); }
};

}  // namespace wh::test
