#pragma once
// The agent's side of the channel to the settings program: the status signal out, commands in.

#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "core/runtime/Registration.h"

namespace wh {

class AgentChannel {
 public:
  using CommandHandler = std::function<void(const std::string& command, const nlohmann::json& userInfo)>;

  virtual ~AgentChannel() = default;
  // Tells the settings program that the status keys changed.
  virtual void postStatus() = 0;
  // Calls `handler` on the main thread for every command, with its user info (an object, empty
  // when none), until the registration is dropped.
  virtual std::unique_ptr<Registration> listen(CommandHandler handler) = 0;
  // Whether the settings program is running now.
  virtual bool settingsAppRunning() = 0;
};

}  // namespace wh
