#pragma once
// A settings store held in memory, for tests and for programs that keep nothing on disk. Safe to
// use from any thread. It counts the calls that write, so a test can tell that nothing was written.

#include <map>
#include <mutex>

#include "core/settings/StoreValue.h"

namespace wh {

class MemoryStore final : public SettingsStore {
 public:
  std::optional<StoreValue> object(const std::string& key) const override {
    std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }
  void set(const std::string& key, std::optional<StoreValue> value) override { setMany({{key, std::move(value)}}); }
  void setMany(std::vector<std::pair<std::string, std::optional<StoreValue>>> changes) override {
    std::lock_guard lock(mutex_);
    ++writes_;
    for (auto& [key, value] : changes) {
      if (value) values_.insert_or_assign(key, std::move(*value));
      if (!value) values_.erase(key);
    }
  }
  // How many times set or setMany was called.
  std::size_t writes() const {
    std::lock_guard lock(mutex_);
    return writes_;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, StoreValue> values_;
  std::size_t writes_ = 0;
};

}  // namespace wh
