#pragma once
// A stand-in MPRIS player (mpris_player.py): its output is "ready", then one line per call ("Next").

#include <memory>

#include "support/ChildProcess.h"

namespace wh::test {

// `mode`: "ok", "error" (answers with errors) or "silent" (never answers). Null if it did not start.
inline std::unique_ptr<ChildProcess> mprisStandIn(const std::string& bus, const std::string& name,
                                                  const std::string& desktopEntry, const std::string& mode = "ok") {
  auto player = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/usr/bin/python3", WRENHAVEN_TEST_SUPPORT_DIR "/mpris_player.py", name, desktopEntry, mode},
      ChildProcess::Environment{{"DBUS_SESSION_BUS_ADDRESS", bus}});
  return player->waitForOutput("ready\n", std::chrono::seconds(10)) ? std::move(player) : nullptr;
}

}  // namespace wh::test
