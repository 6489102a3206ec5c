#include "support/MprisStandIn.h"

#include <sstream>

namespace wh::test {

MprisStandIn::MprisStandIn(const std::string& busAddress, const std::string& name, const std::string& desktopEntry,
                           const std::string& mode)
    : process_(std::make_unique<ChildProcess>(
          std::vector<std::string>{"/usr/bin/python3", WRENHAVEN_TEST_SUPPORT_DIR "/mpris_player.py", name, desktopEntry, mode},
          ChildProcess::Environment{{"DBUS_SESSION_BUS_ADDRESS", busAddress}})) {
  ready_ = process_->waitForOutput("ready\n", std::chrono::seconds(10));
}

std::vector<std::string> MprisStandIn::calls() {
  std::istringstream lines(process_->output());
  std::vector<std::string> out;
  for (std::string line; std::getline(lines, line);) {
    if (line != "ready") out.push_back(line);
  }
  return out;
}

}  // namespace wh::test
