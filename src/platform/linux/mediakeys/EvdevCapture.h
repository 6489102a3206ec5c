#pragma once
// Reads the keyboards that report media keys on a thread of its own. Every event that is not a
// media key goes straight out again through the keyboard's twin, so typing is never delayed; a
// media key waits for the main thread's decision, but never longer than `decisionLimit`: a late
// decision lets the key through and is reported like a tap the system disabled. A keyboard that
// goes away is dropped; one that appears (or a replugged one) is picked up.

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "core/mediakeys/MediaKeySource.h"
#include "core/runtime/Runtime.h"
#include "platform/linux/mediakeys/KernelInput.h"

namespace wh::platform {

class EvdevCapture final : public KeyCapture {
 public:
  static constexpr double decisionLimit = 0.010;

  EvdevCapture(std::unique_ptr<KernelInput> kernel, MainQueue& main, MediaKeySource::Handler handler,
               double limit = decisionLimit);
  ~EvdevCapture() override;
  EvdevCapture(const EvdevCapture&) = delete;
  EvdevCapture& operator=(const EvdevCapture&) = delete;

  bool isEnabled() const override { return devices_.load() > 0; }
  void enable() override;

 private:
  struct Pending;
  void run();
  void openNew(std::vector<KernelInput::Device>& devices);
  // Reads what the device has; false when it has gone.
  bool readFrom(const KernelInput::Device& device);
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
