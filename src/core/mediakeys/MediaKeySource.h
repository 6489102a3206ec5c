#pragma once
// Port: where media key events come from, system-wide, and how they are kept from the rest of
// the system (the event tap).

#include <functional>
#include <memory>

#include "core/mediakeys/MediaKeyRouter.h"

namespace wh {

// One running capture; it ends when dropped.
class KeyCapture {
 public:
  virtual ~KeyCapture() = default;
  // False when the capture has stopped seeing keys (every keyboard gone, the grab lost).
  virtual bool isEnabled() const = 0;
  // Takes up the keys again (opens keyboards that appeared, grabs again).
  virtual void enable() = 0;
};

class MediaKeySource {
 public:
  // Why a key went by without a decision, with the number the log shows.
  enum class Disabled : unsigned { byTimeout = 0xFFFFFFFEu, byUserInput = 0xFFFFFFFFu };

  struct Handler {
    // Called on the main thread for each media key event; answers whether it is swallowed.
    std::function<bool(const MediaKeyEvent&)> decide;
    // Called on the main thread when keys went by undecided.
    std::function<void(Disabled)> disabled;
  };

  virtual ~MediaKeySource() = default;
  // Whether the agent may capture the keys at all. Cheap enough for a one-second poll.
  virtual bool accessGranted() const = 0;
  // Starts capturing; null when no capture can be made.
  virtual std::unique_ptr<KeyCapture> start(Handler handler) = 0;
};

}  // namespace wh
