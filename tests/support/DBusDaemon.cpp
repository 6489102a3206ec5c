#include "support/DBusDaemon.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace wh::test {

DBusDaemon::DBusDaemon(Kind kind, const std::string& extraPolicy) {
  const std::string daemon = findExecutable("dbus-daemon");
  if (daemon.empty()) {
    whyNot_ = "dbus-daemon is not installed (scripts/install-deps.sh installs it)";
    return;
  }
  // Everyone may own and call anything: the bus exists only for this test process and its children.
  char pattern[] = "/tmp/wrenhaven-bus-XXXXXX.conf";
  const int fd = ::mkstemps(pattern, 5);
  if (fd < 0) {
    whyNot_ = "cannot write a bus configuration";
    return;
  }
  ::close(fd);
  configFile_ = pattern;
  std::ofstream(configFile_) << "<busconfig><type>" << (kind == Kind::session ? "session" : "system")
                             << "</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
                                "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                "<allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                             << extraPolicy << "</policy></busconfig>\n";
  process_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{daemon, "--config-file=" + configFile_, "--nofork", "--print-address=1"});
  if (!process_->waitForOutput("\n", std::chrono::seconds(10))) {
    whyNot_ = "dbus-daemon did not start";
    process_.reset();
    return;
  }
  const std::string& output = process_->output();
  address_ = output.substr(0, output.find('\n'));
}

DBusDaemon::~DBusDaemon() {
  process_.reset();
  if (!configFile_.empty()) std::remove(configFile_.c_str());
}

bool DBusDaemon::hasOwner(const std::string& name) const {
  if (!available()) return false;
  auto result = runCommand({"dbus-send", "--bus=" + address_, "--print-reply", "--dest=org.freedesktop.DBus",
                            "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner", "string:" + name},
                           {}, std::chrono::seconds(10));
  return result.status == 0 && result.output.find("boolean true") != std::string::npos;
}

}  // namespace wh::test
