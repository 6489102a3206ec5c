#pragma once
#include <string>
#include <vector>

#include "core/app/AgentChannel.h"

namespace wh::test {

// Counts status signals and delivers commands as the settings program would.
class FakeAgentChannel : public AgentChannel {
 public:
  class Listening : public Registration {
   public:
    explicit Listening(FakeAgentChannel& channel) : channel_(channel) {}
    ~Listening() override { channel_.handler = nullptr; }

   private:
    FakeAgentChannel& channel_;
  };

  void postStatus() override { ++statusPosts; }
  std::unique_ptr<Registration> listen(CommandHandler commandHandler) override {
    handler = std::move(commandHandler);
    return std::make_unique<Listening>(*this);
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
