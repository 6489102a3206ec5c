#include "core/mediakeys/PlayerTracker.h"

#include <algorithm>

#include "core/audio/SystemProcesses.h"
#include "core/quality/CallDetector.h"

namespace wh {

namespace {

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

}  // namespace

void PlayerTracker::update(const std::set<std::string>& outputApps) {
  std::set<std::string> now;
  for (const auto& app : outputApps) {
    if (ignoredSystemApps().count(app) == 0 && !contains(CallDetector::defaultMeetingApps(), app)) now.insert(app);
  }
  // A set walks in ascending order, so among apps that start together the last one ends up first.
  for (const auto& app : now) {
    if (playing_.count(app)) continue;
    history_.erase(std::remove(history_.begin(), history_.end(), app), history_.end());
    history_.insert(history_.begin(), app);
  }
  if (history_.size() > historyLimit) history_.resize(historyLimit);
  playing_ = std::move(now);
}

std::optional<std::string> PlayerTracker::target(const std::function<std::set<std::string>()>& runningApps) const {
  for (const auto& app : history_) {
    if (playing_.count(app)) return app;
  }
  if (history_.empty()) return std::nullopt;
  const auto running = runningApps();
  for (const auto& app : history_) {
    if (running.count(app)) return app;
  }
  return std::nullopt;
}

}  // namespace wh
