#include "core/bluetooth/BatteryCache.h"

#include <optional>

#include "core/settings/Address.h"

namespace wh {

BatteryCache::BatteryCache(Runtime& runtime, BatterySources& sources)
    : runtime_(runtime), sources_(sources), queue_(runtime.makeSerialQueue(queueLabel, QueuePriority::utility)) {}

namespace {

struct Result {
  BatteryCache::Levels live;
  std::optional<BatteryCache::Levels> slow;
};

}  // namespace

void BatteryCache::refresh(Devices devices) {
  if (refreshing_) return;
  refreshing_ = true;
  const double now = runtime_.clock().now();
  const bool slowMayRun = now - lastSlowRun_ > slowSourceInterval;
  // Taken before the run, so a slow or failing run is not repeated for another minute.
  if (slowMayRun) lastSlowRun_ = now;

  for (auto& [address, name] : devices) address = normalizeAddress(address);
  BatterySources& sources = sources_;
  const Clock& clock = runtime_.clock();
  runThenMain<Result>(
      *queue_, runtime_.main(), lifetime_,
      [&sources, &clock, devices, slowMayRun] {
        Result result;
        for (auto& entry : sources.readLive()) {
          if (!entry.levels.hasAnyLevel()) continue;
          entry.levels.readAt = clock.wallNow();
          // By address when the entry has one, else by the product name.
          for (const auto& [address, name] : devices) {
            const bool match = entry.address ? normalizeAddress(*entry.address) == address
                                             : entry.name && *entry.name == name;
            if (match) {
              result.live[address] = entry.levels;
              break;
            }
          }
        }
        bool covered = true;
        for (const auto& device : devices) covered = covered && result.live.count(device.first) > 0;
        if (slowMayRun && !covered) {
          BatteryCache::Levels slow;
          for (auto& [address, levels] : sources.readSlow()) {
            if (!levels.hasAnyLevel()) continue;
            levels.readAt = clock.wallNow();
            slow[normalizeAddress(address)] = levels;
          }
          result.slow = std::move(slow);
        }
        return result;
      },
      [this, devices](Result result) {
        if (result.slow) lastSlow_ = std::move(*result.slow);
        // Only the requested headphones are kept; the live source wins over the slow one.
        Levels next = std::move(result.live);
        for (const auto& [address, name] : devices) {
          auto slow = lastSlow_.find(address);
          if (next.count(address) == 0 && slow != lastSlow_.end()) next[address] = slow->second;
        }
        store(std::move(next));
      });
}

void BatteryCache::store(Levels next) {
  refreshing_ = false;
  if (next == levels_) return;
  levels_ = std::move(next);
  if (onChange) onChange();
}

}  // namespace wh
