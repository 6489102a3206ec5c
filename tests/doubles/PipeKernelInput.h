#pragma once
// Keyboards made of pipes for the media key reader: input_event records go into `keys`, what is
// let through comes out of `out`. Header only, as the doubles library does not link the adapters.

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/linux/mediakeys/KernelInput.h"

namespace wh {

// What kind of keyboard `PipeKernelInput::plug` makes.
struct PipeKeyboard {
  bool repeats = true;       // the device has EV_REP: the kernel makes its repeats
  bool twinRefuses = false;  // every write to its twin fails (EBADF)
};

struct PipeKernelInput final : platform::KernelInput {

  std::mutex mutex;
  std::vector<Device> waiting;      // handed to the reader when it next looks for devices
  std::vector<std::string> closed;  // the devices let go of, in order
  std::atomic<bool> failWaits{false};  // the reader's next wait fails (ENOMEM)

  std::pair<int, int> plug(const std::string& path, PipeKeyboard kind = {}) {  // keys, out
    int keys[2], out[2];
    if (::pipe2(keys, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC | O_NONBLOCK) != 0) return {-1, -1};
    if (kind.twinRefuses) {
      ::close(out[1]);
      out[1] = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    std::lock_guard lock(mutex);
    waiting.push_back({keys[0], out[1], path, kind.repeats});
    return {keys[1], out[0]};
  }
  std::vector<std::string> closedSoFar() {
    std::lock_guard lock(mutex);
    return closed;
  }
  std::vector<Device> openDevices(const std::set<std::string>&) override {
    std::lock_guard lock(mutex);
    return std::exchange(waiting, {});
  }
  void closeDevice(const Device& device) override {
    ::close(device.fd);
    ::close(device.emitter);
    std::lock_guard lock(mutex);
    closed.push_back(device.path);
  }
  int changesFd() const override { return -1; }
  void drainChanges() override {}
  int wait(pollfd* watched, nfds_t count, int timeoutMs) override {
    const int ready = ::poll(watched, count, timeoutMs);
    if (!failWaits) return ready;
    errno = ENOMEM;
    return -1;
  }
};

}  // namespace wh
