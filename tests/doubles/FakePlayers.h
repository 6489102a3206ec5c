#pragma once
// Players in memory: which run and are installed, and every verb and launch they received.

#include <mutex>

#include "core/mediakeys/Players.h"

namespace wh {

class FakePlayers final : public PlayerControl {
 public:
  std::set<ScriptablePlayer> running;
  std::set<std::string> installed;
  std::vector<std::pair<ScriptablePlayer, PlayerVerb>> performed;
  std::vector<std::string> launched;

  PlayerIdentities identities() const override { return {}; }
  bool isRunning(ScriptablePlayer player) const override { return running.count(player) > 0; }
  bool isInstalled(const std::string& appID) const override { return installed.count(appID) > 0; }
  std::optional<std::string> perform(ScriptablePlayer player, const PlayerVerb& verb) override {
    performed.emplace_back(player, verb);
    return std::nullopt;
  }
  std::optional<std::string> launch(const std::string& appID) override {
    launched.push_back(appID);
    return std::nullopt;
  }
};

}  // namespace wh
