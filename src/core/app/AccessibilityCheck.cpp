#include "core/app/AccessibilityCheck.h"

namespace wh {

AccessibilityCheck::AccessibilityCheck(Runtime& runtime, const AppHost& host)
    : runtime_(runtime), host_(host), queue_(runtime.makeSerialQueue(queueLabel, QueuePriority::utility)) {}

void AccessibilityCheck::start(Work onChange, Work firstAnswer) {
  onChange_ = std::move(onChange);
  recheck(std::move(firstAnswer));
  timer_ = runtime_.main().every(recheckInterval, recheckTolerance, lifetime_.guard([this] { recheck(); }));
}

void AccessibilityCheck::recheck(Work then) {
  runThenMain<bool>(
      *queue_, runtime_.main(), lifetime_, [&host = host_] { return host.accessibilityTrusted(); },
      [this, then = std::move(then)](bool trusted) {
        const bool changed = trusted_ != trusted;
        trusted_ = trusted;
        if (changed && onChange_) onChange_();
        if (then) then();
      });
}

}  // namespace wh
