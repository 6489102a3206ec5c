#pragma once
// Which application played sound most recently, so that a media key goes to the player used last.

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace wh {

class PlayerTracker {
 public:
  static constexpr std::size_t historyLimit = 20;

  // The applications producing output now. System processes and meeting applications (the
  // built-in list) never count; newly started ones move to the front of the history.
  void update(const std::set<std::string>& outputApps);
  // The most recent application that still plays, else the most recent one still running; the
  // running applications are asked for only when nothing in the history plays.
  std::optional<std::string> target(const std::function<std::set<std::string>()>& runningApps) const;

  const std::set<std::string>& playing() const { return playing_; }
  const std::vector<std::string>& history() const { return history_; }

 private:
  std::set<std::string> playing_;
  std::vector<std::string> history_;
};

}  // namespace wh
