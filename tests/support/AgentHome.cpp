#include "support/AgentHome.h"

namespace wh::test {

void AgentHome::writeSettings(const nlohmann::json& document) const {
  writeFile(settingsFile(), document.dump());
}

nlohmann::json AgentHome::devicesValue(const nlohmann::json& devices) { return {{"$data", devices.dump()}}; }

ChildProcess::Environment AgentHome::environment(ChildProcess::Environment base) const {
  base["HOME"] = path().string();
  base["XDG_CONFIG_HOME"] = (path() / "config").string();
  base["XDG_STATE_HOME"] = (path() / "state").string();
  base["DISPLAY"] = std::nullopt;
  base["WAYLAND_DISPLAY"] = std::nullopt;
  base["XDG_SESSION_TYPE"] = std::nullopt;  // the session is whatever the test makes
  base["QT_QPA_PLATFORM"] = std::nullopt;
  base["XCTestConfigurationFilePath"] = std::nullopt;
  return base;
}

std::unique_ptr<ChildProcess> AgentHome::launch(const ChildProcess::Environment& environment,
                                                std::string& failure) const {
  auto agent = std::make_unique<ChildProcess>(std::vector<std::string>{WRENHAVEN_AGENT_PATH}, environment);
  if (!eventually([&] { return log().find("started on") != std::string::npos; }, std::chrono::seconds(30))) {
    failure = "the agent did not start; its log: " + log();
    return nullptr;
  }
  return agent;
}

CommandResult AgentHome::command(const std::string& busAddress, const std::vector<std::string>& arguments) {
  std::vector<std::string> argv{"gdbus", "emit", "--session", "--object-path", "/com/quintelbarrows/wrenhaven",
                                "--signal", "com.quintelbarrows.wrenhaven.command"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  return runCommand(argv, {{"DBUS_SESSION_BUS_ADDRESS", busAddress}});
}

nlohmann::json AgentHome::status(const std::string& key) const {
  auto document = nlohmann::json::parse(readFile(settingsFile()), nullptr, false);
  if (!document.is_object() || !document.contains(key)) return nlohmann::json();
  return document[key];
}

}  // namespace wh::test
