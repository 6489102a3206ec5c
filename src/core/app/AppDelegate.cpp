#include "core/app/AppDelegate.h"

#include "core/log/Log.h"

namespace wh {

AppDelegate::AppDelegate(Runtime& runtime, Settings& settings, NotificationCenter& notifications, AppHost& host,
                         BuildInfo build)
    : runtime_(runtime), settings_(settings), notifications_(notifications), host_(host), build_(std::move(build)) {
  refreshAction_ = [this, alive = lifetime_.weak()] {
    if (!alive.alive() || refreshPending_) return;
    refreshPending_ = true;
    runtime_.main().post([this, alive] {
      if (alive.alive()) refresh();
    });
  };
}

void AppDelegate::refresh() {
  refreshPending_ = false;
  for (const auto& step : refreshSteps_) step();
}

void AppDelegate::applicationDidFinishLaunching() {
  if (host_.environmentHas(testRunnerVariable)) return;

  if (!host_.claimSingleInstance(lifetime_.guard([this] { applicationShouldHandleReopen(); }))) {
    host_.terminate();
    return;
  }
  started_ = true;

  settingsObservation_ = notifications_.observe(
      Settings::changedName, lifetime_.guard([this](const std::string& object) { settingsChanged(object); }));

  Log::info(startLine());
}

std::string AppDelegate::startLine() const {
  const auto orQuestionMark = [](const std::string& text) { return text.empty() ? std::string("?") : text; };
  return "Wrenhaven " + orQuestionMark(build_.shortVersion) + " (" + orQuestionMark(build_.buildNumber) +
         ") started on " + host_.systemVersion() + ", accessibility " +
         (host_.accessibilityTrusted() ? "true" : "false") + ", " + std::to_string(settings_.devices().size()) +
         " saved devices";
}

void AppDelegate::settingsChanged(const std::string& object) {
  // The volume controller follows its own changes.
  if (object == "appVolumes") return;
  refreshAction_();
}

bool AppDelegate::applicationShouldHandleReopen() {
  if (settings_.boolValue(Keys::hideMenuIcon, false)) {
    settings_.store().set(Keys::hideMenuIcon, StoreValue::boolean(false));
    settings_.changed("");
  }
  return true;
}

}  // namespace wh
