#pragma once
// Auto-repeats for a next/previous-type key held on a device that makes none: most keyboards'
// separate "Consumer Control" device and headphones over AVRCP send a press and, much later, a
// release. The router advances a hold only on repeats, so without them a long press would skip on
// release. The first repeat comes at the router's hold threshold, later ones at a fifth of its
// seek spacing, so that a step is never missed by a repeat that arrives a moment early.

#include <optional>

#include "core/mediakeys/MediaKeyRouter.h"

namespace wh {

class KeyRepeat {
 public:
  static constexpr double delay = MediaKeyRouter::holdThreshold;
  static constexpr double period = MediaKeyRouter::seekSpacing / 5;

  // A press or release seen on the device; a press of a next/previous-type key starts repeating
  // it (in place of any other), its release ends that.
  void key(const MediaKeyEvent& event, double now);
  // When the next repeat is due; nothing while no key repeats.
  std::optional<double> due() const;
  // The repeat due at `now`, if any; the one after it is due a period later.
  std::optional<MediaKeyEvent> take(double now);

 private:
  std::optional<MediaKeyEvent::Key> key_;
  double due_ = 0;
};

}  // namespace wh
