#pragma once
#include "core/app/AgentChannel.h"

namespace wh::test {

// Counts status signals and delivers commands as the settings program would.
class FakeAgentChannel : public AgentChannel {
 public:
  void postStatus() override { ++statusPosts; }
  std::unique_ptr<Registration> listen(CommandHandler commandHandler) override {
    handler = std::move(commandHandler);
    struct Listening : Registration {
      explicit Listening(CommandHandler& target) : handler(target) {}
      ~Listening() override { handler = nullptr; }
      CommandHandler& handler;
    };
    return std::make_unique<Listening>(handler);
  }
  bool settingsAppRunning() override { return settingsRunning; }
  void send(const std::string& command, const nlohmann::json& userInfo = nlohmann::json::object()) {
    if (handler) handler(command, userInfo);
  }

  int statusPosts = 0;
  bool settingsRunning = true;
  CommandHandler handler;
};

}  // namespace wh::test
