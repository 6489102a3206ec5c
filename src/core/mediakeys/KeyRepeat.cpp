#include "core/mediakeys/KeyRepeat.h"

namespace wh {

void KeyRepeat::key(const MediaKeyEvent& event, double now) {
  if (event.isRepeat) return;
  if (event.isDown) {
    if (event.direction() == 0) return;
    key_ = event.key;
    due_ = now + delay;
  } else if (key_ == event.key) {
    key_.reset();
  }
}

std::optional<double> KeyRepeat::due() const {
  if (!key_) return std::nullopt;
  return due_;
}

std::optional<MediaKeyEvent> KeyRepeat::take(double now) {
  if (!key_ || now < due_) return std::nullopt;
  due_ = now + period;  // a late reader catches up with one repeat, not a burst
  return MediaKeyEvent{*key_, true, true};
}

}  // namespace wh
