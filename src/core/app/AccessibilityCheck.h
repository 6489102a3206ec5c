#pragma once
// Whether the agent may read the media keys, kept at hand for the main thread. Asking the host
// scans the system's input devices, so the question is put on a queue of its own: at start, on a
// slow timer and when someone asks again; a changed answer is reported through `onChange`.

#include <memory>
#include <optional>

#include "core/app/AppHost.h"
#include "core/runtime/Runtime.h"

namespace wh {

class AccessibilityCheck {
 public:
  static constexpr const char* queueLabel = "wrenhaven.accessibility";
  static constexpr double recheckInterval = 60.0;
  static constexpr double recheckTolerance = 15.0;

  AccessibilityCheck(Runtime& runtime, const AppHost& host);
  AccessibilityCheck(const AccessibilityCheck&) = delete;
  AccessibilityCheck& operator=(const AccessibilityCheck&) = delete;

  // Asks now and then every `recheckInterval`; `firstAnswer` runs once the first answer is in.
  void start(Work onChange, Work firstAnswer = {});
  // Asks again now; `then` runs on the main queue once the answer is in.
  void recheck(Work then = {});
  // The last answer; nothing before the first one.
  std::optional<bool> trusted() const { return trusted_; }

 private:
  Runtime& runtime_;
  const AppHost& host_;
  std::shared_ptr<SerialQueue> queue_;
  Work onChange_;
  std::optional<bool> trusted_;
  std::unique_ptr<RepeatingTimer> timer_;
  Lifetime lifetime_;
};

}  // namespace wh
