#pragma once
// Reads the keyboards that report media keys on a thread of its own. Every event that is not a
// media key goes straight out again through the keyboard's twin, so typing is never delayed; a
// media key waits for the main thread's decision, but never longer than `decisionLimit`: a late
// decision lets the key through and is reported like a tap the system disabled. On a keyboard
// whose kernel device makes no auto-repeats, a held media key that was swallowed is repeated here
// (`KeyRepeat`). A keyboard that goes away, or whose twin refuses a key, is let go; one that
// appears (or a replugged one) is picked up. However the reader ends, it lets go of every keyboard.

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "core/mediakeys/KeyRepeat.h"
#include "core/mediakeys/MediaKeySource.h"
#include "core/runtime/Runtime.h"
#include "platform/linux/mediakeys/KernelInput.h"

namespace wh::platform {

class EvdevCapture final : public KeyCapture {
 public:
  static constexpr double decisionLimit = 0.010;

  // Opens and grabs the keyboards before it returns: `isEnabled` then tells whether any was
  // (none when other programs hold them all).
  EvdevCapture(std::unique_ptr<KernelInput> kernel, MainQueue& main, MediaKeySource::Handler handler,
               double limit = decisionLimit);
  ~EvdevCapture() override;
  EvdevCapture(const EvdevCapture&) = delete;
  EvdevCapture& operator=(const EvdevCapture&) = delete;

  bool isEnabled() const override { return devices_.load() > 0; }
  void enable() override;

 private:
  struct Pending;
  struct Open {
    KernelInput::Device device;
    KeyRepeat repeat;  // used only when the kernel makes no repeats for the device
  };
  enum class Read { kept, gone, twinRefused };

  void run(std::vector<Open> devices);
  // Waits for records, a wake-up or the next repeat due, and handles them; false when the reader ends.
  bool step(std::vector<Open>& devices);
  void openNew(std::vector<Open>& devices);
  // Reads what the device has; on `twinRefused`, `refusal` is the failed write's error number.
  Read readFrom(Open& open, int& refusal);
  bool decide(const MediaKeyEvent& event);
  void wake(char why);

  std::unique_ptr<KernelInput> kernel_;
  MainQueue& main_;
  MediaKeySource::Handler handler_;
  double limit_;
  int wake_[2] = {-1, -1};
  std::atomic<std::size_t> devices_{0};
  Lifetime lifetime_;
  std::thread thread_;
};

}  // namespace wh::platform
