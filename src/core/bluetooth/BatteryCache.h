#pragma once
// The headphones' battery levels, combined from the live source and the slow one, refreshed on
// the "wrenhaven.battery" queue one refresh at a time.

#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/bluetooth/BatteryLevels.h"
#include "core/bluetooth/BluetoothPorts.h"
#include "core/runtime/Runtime.h"

namespace wh {

class BatteryCache {
 public:
  // (address, name) of each headphones to look for.
  using Devices = std::vector<std::pair<std::string, std::string>>;
  using Levels = std::map<std::string, BatteryLevels>;

  static constexpr const char* queueLabel = "wrenhaven.battery";
  // The slow source runs at most this often.
  static constexpr double slowSourceInterval = 60.0;

  BatteryCache(Runtime& runtime, BatterySources& sources);
  BatteryCache(const BatteryCache&) = delete;
  BatteryCache& operator=(const BatteryCache&) = delete;

  std::function<void()> onChange;

  // Reads the levels of these headphones; returns at once. A refresh in progress absorbs the call.
  void refresh(Devices devices);
  // Current levels by address (normal form).
  const Levels& levels() const { return levels_; }
  bool refreshing() const { return refreshing_; }

 private:
  void store(Levels next);

  Runtime& runtime_;
  BatterySources& sources_;
  std::shared_ptr<SerialQueue> queue_;
  Levels levels_;
  // What the last run of the slow source found, kept for headphones the live source lacks.
  Levels lastSlow_;
  double lastSlowRun_ = -std::numeric_limits<double>::infinity();
  bool refreshing_ = false;
  Lifetime lifetime_;
};

}  // namespace wh
