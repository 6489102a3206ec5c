#include "support/PortalRig.h"

#include <sstream>

namespace wh::test {

using namespace std::chrono_literals;

namespace {

constexpr const char* kBackend = "org.freedesktop.impl.portal.desktop.wrenhaventest";
constexpr const char* kDesktopName = "wrenhaventest";
constexpr const char* kFrontend = "/usr/libexec/xdg-desktop-portal";

}  // namespace

PortalRig::PortalRig(const Options& options) : bus_(options.sessionBus) {
  if (!std::filesystem::exists(kFrontend)) {
    whyNot_ = "xdg-desktop-portal is missing (scripts/install-deps.sh installs it)";
    return;
  }
  writeFile(folder_.path() / "portals" / "wrenhaven-test.portal",
            std::string("[portal]\nDBusName=") + kBackend +
                "\nInterfaces=org.freedesktop.impl.portal.GlobalShortcuts;\nUseIn=" + kDesktopName + "\n");
  std::vector<std::string> argv{"/usr/bin/python3", WRENHAVEN_TEST_SUPPORT_DIR "/global_shortcuts.py", kBackend};
  for (const auto& trigger : options.taken) argv.insert(argv.end(), {"--taken", trigger});
  for (const auto& pair : options.rebind) argv.insert(argv.end(), {"--rebind", pair});
  backend_ = std::make_unique<ChildProcess>(argv, ChildProcess::Environment{{"DBUS_SESSION_BUS_ADDRESS", bus_}});
  if (!backend_->waitForOutput("ready", 10s)) {
    whyNot_ = "the GlobalShortcuts stand-in did not start: " + backend_->output();
    return;
  }
  frontend_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{kFrontend, "--replace"},
      ChildProcess::Environment{{"DBUS_SESSION_BUS_ADDRESS", bus_},
                                {"XDG_DESKTOP_PORTAL_DIR", (folder_.path() / "portals").string()},
                                {"XDG_CURRENT_DESKTOP", kDesktopName}});
  const bool up = eventually(
      [&] {
        return runCommand({"gdbus", "call", "--session", "--dest", "org.freedesktop.portal.Desktop", "--object-path",
                           "/org/freedesktop/portal/desktop", "--method", "org.freedesktop.DBus.Properties.Get",
                           "org.freedesktop.portal.GlobalShortcuts", "version"},
                          {{"DBUS_SESSION_BUS_ADDRESS", bus_}})
                   .status == 0;
      },
      15s);
  if (!up) whyNot_ = "xdg-desktop-portal offers no GlobalShortcuts: " + frontend_->output();
}

std::vector<nlohmann::json> PortalRig::bindings() {
  std::vector<nlohmann::json> found;
  std::istringstream lines(backend_->output());
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("{")) found.push_back(nlohmann::json::parse(line, nullptr, false));
  }
  return found;
}

bool PortalRig::press(const std::string& trigger) const {
  const auto answer =
      runCommand({"gdbus", "call", "--session", "--dest", kBackend, "--object-path", "/org/freedesktop/portal/desktop",
                  "--method", "com.quintelbarrows.wrenhaven.test.GlobalShortcuts.Press", trigger},
                 {{"DBUS_SESSION_BUS_ADDRESS", bus_}});
  return answer.output.find("true") != std::string::npos;
}

}  // namespace wh::test
