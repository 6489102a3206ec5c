#pragma once
// The battery levels of one pair of headphones.

#include <chrono>
#include <optional>
#include <string>

namespace wh {

struct BatteryLevels {
  std::optional<int> left = {};       // left bud, percent
  std::optional<int> right = {};      // right bud, percent
  std::optional<int> caseLevel = {};  // charging case, percent
  std::optional<int> single = {};     // the one battery of single-battery headphones
  std::chrono::system_clock::time_point readAt = {};

  bool hasAnyLevel() const { return left || right || caseLevel || single; }

  // For menus and diagnostics: "L 80% · R 75% · Case 40%", or "90%" for one battery.
  std::string summary() const;
  // The one number shown on an icon: the single level, else the lower of the buds, else the case.
  std::optional<int> badge() const;

  friend bool operator==(const BatteryLevels&, const BatteryLevels&) = default;
};

}  // namespace wh
