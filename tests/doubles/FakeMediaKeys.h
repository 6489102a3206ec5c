#pragma once
// The media keys' ports in memory: players that record what they receive, a key source whose
// access the test grants, and an idle-play panel that remembers what it shows.

#include "core/mediakeys/IdlePlay.h"
#include "core/mediakeys/MediaKeySource.h"
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

class FakeKeySource final : public MediaKeySource {
 public:
  bool granted = false;
  bool capturing = false;
  Handler handler;

  bool accessGranted() const override { return granted; }
  std::unique_ptr<KeyCapture> start(Handler events) override {
    struct Capture final : KeyCapture {
      explicit Capture(FakeKeySource& owner) : owner_(owner) { owner_.capturing = true; }
      ~Capture() override { owner_.capturing = false; }
      bool isEnabled() const override { return true; }
      void enable() override {}
      FakeKeySource& owner_;
    };
    handler = std::move(events);
    return std::make_unique<Capture>(*this);
  }
};

class FakeIdlePanel final : public IdlePlayPanel {
 public:
  std::optional<IdlePlayView> shown;
  int shows = 0;
  void show(const IdlePlayView& view) override {
    shown = view;
    ++shows;
  }
  void close() override { shown.reset(); }
};

}  // namespace wh
