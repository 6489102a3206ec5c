#pragma once
// A private X display (Xvfb) for tests; xdotool presses keys on it. The display number is drawn
// at random far above the ones desktops use. Left to itself (-displayfd alone) Xvfb takes the
// lowest free number, and a server that is just ending gives up its lock before its socket: a
// test starting its display at that moment could be given the number while the ending server
// still answers on it.

#include <memory>
#include <random>
#include <string>

#include "support/ChildProcess.h"

namespace wh::test {

struct XvfbDisplay {
  XvfbDisplay() {
    const std::string xvfb = findExecutable("Xvfb");
    if (xvfb.empty() || findExecutable("xdotool").empty()) return;
    std::random_device random;
    // A number another server holds ends this one at once: the next draw is another number.
    for (int draw = 0; draw < 4 && !available; ++draw) {
      const std::string number = std::to_string(1000 + random() % 30000);
      server = std::make_unique<ChildProcess>(
          std::vector<std::string>{xvfb, ":" + number, "-displayfd", "1", "-nolisten", "tcp"});
      // Xvfb writes the number once it listens.
      available = server->waitForOutput("\n", std::chrono::seconds(10));
      if (available) name = ":" + number;
    }
  }

  std::unique_ptr<ChildProcess> server;
  bool available = false;
  std::string name;  // for DISPLAY

  // xdotool on this display, e.g. ("keydown", "XF86AudioNext").
  void xdotool(const std::string& command, const std::string& key) const { runCommand({"xdotool", command, key}, {{"DISPLAY", name}}); }
};

}  // namespace wh::test
