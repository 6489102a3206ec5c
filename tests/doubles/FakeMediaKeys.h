#pragma once
// The media keys' ports in memory: players, a key source, an idle-play panel.

#include "core/mediakeys/IdlePlay.h"
#include "core/mediakeys/MediaKeySource.h"

namespace wh {

struct FakePlayers final : PlayerControl {
  std::set<std::string> installed;
  std::vector<std::string> launched;
  std::set<ScriptablePlayer> running;  // tell `changed` after a change
  std::function<void()> changed;

  PlayerIdentities identities() const override { return {}; }
  bool isRunning(ScriptablePlayer player) const override { return running.count(player) > 0; }
  bool isInstalled(const std::string& appID) const override { return installed.count(appID) > 0; }
  std::optional<std::string> perform(ScriptablePlayer, const PlayerVerb&) override { return std::nullopt; }
  std::optional<std::string> launch(const std::string& appID) override {
    launched.push_back(appID);
    return std::nullopt;
  }
  void setChangeHandler(std::function<void()> handler) override { changed = std::move(handler); }
};

struct FakeKeySource final : MediaKeySource {
  bool granted = false;
  bool enabled = true;  // the capture's own switch, which the system may turn off
  bool refuses = false;  // access is there, but no capture can be made (another program holds the keys)
  Handler handler;

  bool accessGranted() const override { return granted; }
  std::unique_ptr<KeyCapture> start(Handler events) override {
    if (refuses) return nullptr;
    handler = std::move(events);
    enabled = true;
    struct Capture final : KeyCapture {
      explicit Capture(bool& on) : on_(on) {}
      bool isEnabled() const override { return on_; }
      void enable() override { on_ = true; }
      bool& on_;
    };
    return std::make_unique<Capture>(enabled);
  }
};

struct FakeIdlePanel final : IdlePlayPanel {
  int shows = 0;
  void show(const IdlePlayView&) override { ++shows; }
  void close() override {}
};

}  // namespace wh
