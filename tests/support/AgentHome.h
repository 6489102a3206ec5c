#pragma once
// A temporary home for a real agent process: its settings file, its log, the environment that
// points it there (no display, not under a test runner), and starting it.

#include <filesystem>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace wh::test {

class AgentHome {
 public:
  AgentHome() = default;

  const std::filesystem::path& path() const { return folder_.path(); }
  std::filesystem::path settingsFile() const { return path() / "config" / "wrenhaven" / "settings.json"; }
  std::filesystem::path logFile() const { return path() / "state" / "Wrenhaven" / "Wrenhaven.log"; }

  // Writes the whole settings file.
  void writeSettings(const nlohmann::json& document) const;
  // The stored form of a "devices" value (data holding the JSON array).
  static nlohmann::json devicesValue(const nlohmann::json& devices);

  // `base` (bus and sound server addresses) plus this home, without a display or a test runner.
  ChildProcess::Environment environment(ChildProcess::Environment base = {}) const;
  // Starts the agent and waits for its start line; null (with the log in `failure`) when it did not start.
  std::unique_ptr<ChildProcess> launch(const ChildProcess::Environment& environment, std::string& failure) const;

  // Sends a command signal on the session bus as the settings program does (gdbus emit arguments).
  static CommandResult command(const std::string& busAddress, const std::vector<std::string>& arguments);

  std::string log() const { return readFile(logFile()); }
  // One key of the settings file as it is now; null when absent or unreadable.
  nlohmann::json status(const std::string& key) const;

 private:
  TempDir folder_{"wrenhaven-agent-home"};
};

}  // namespace wh::test
