#include "core/notify/NotificationCenter.h"

#include <algorithm>

namespace wh {

NotificationCenter::Observation NotificationCenter::observe(const std::string& name, Handler handler) {
  auto shared = std::make_shared<Handler>(std::move(handler));
  std::lock_guard lock(mutex_);
  auto& list = observers_[name];
  std::erase_if(list, [](const auto& weak) { return weak.expired(); });
  list.push_back(shared);
  return Observation(shared);
}

void NotificationCenter::post(const std::string& name, const std::string& object) {
  std::vector<std::shared_ptr<Handler>> handlers;
  {
    std::lock_guard lock(mutex_);
    auto found = observers_.find(name);
    if (found == observers_.end()) return;
    for (const auto& weak : found->second) {
      if (auto handler = weak.lock()) handlers.push_back(std::move(handler));
    }
  }
  // Outside the lock: a handler may observe, post or drop observations.
  for (const auto& handler : handlers) (*handler)(object);
}

}  // namespace wh
