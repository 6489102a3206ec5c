#include "core/bluetooth/BatteryLevels.h"

#include <algorithm>
#include <vector>

namespace wh {

std::string BatteryLevels::summary() const {
  const auto percent = [](int value) { return std::to_string(value) + "%"; };
  std::vector<std::string> parts;
  if (single && !left && !right) parts.push_back(percent(*single));
  if (left) parts.push_back("L " + percent(*left));
  if (right) parts.push_back("R " + percent(*right));
  if (caseLevel) parts.push_back("Case " + percent(*caseLevel));
  std::string text;
  for (const auto& part : parts) {
    if (!text.empty()) text += " · ";
    text += part;
  }
  return text;
}

std::optional<int> BatteryLevels::badge() const {
  if (single) return single;
  if (left && right) return std::min(*left, *right);
  if (left) return left;
  if (right) return right;
  return caseLevel;
}

}  // namespace wh
