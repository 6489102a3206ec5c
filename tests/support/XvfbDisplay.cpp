#include "support/XvfbDisplay.h"

namespace wh::test {

XvfbDisplay::XvfbDisplay() {
  const std::string server = findExecutable("Xvfb");
  if (server.empty()) {
    whyNot_ = "Xvfb is not installed (scripts/install-deps.sh installs it)";
    return;
  }
  process_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{server, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "640x480x24"});
  if (!process_->waitForOutput("\n", std::chrono::seconds(10))) {
    whyNot_ = "Xvfb did not start";
    process_.reset();
    return;
  }
  const std::string& output = process_->output();
  name_ = ":" + output.substr(0, output.find('\n'));
}

}  // namespace wh::test
