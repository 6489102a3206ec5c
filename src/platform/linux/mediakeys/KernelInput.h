#pragma once
// The kernel's input devices as the media key reader needs them, kept to a few calls so that the
// reader's event flow runs the same on real devices and on descriptors made by tests.

#include <poll.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace wh::platform {

class KernelInput {
 public:
  // One grabbed keyboard: `fd` gives its input_event records, `emitter` takes the records that
  // are let through (its uinput twin).
  struct Device {
    int fd = -1;
    int emitter = -1;
    std::string path;
    bool repeats = true;  // the kernel repeats its held keys (EV_REP); the reader does it otherwise
  };

  virtual ~KernelInput() = default;
  // Opens and grabs every device that reports media keys and is not open yet (by path).
  virtual std::vector<Device> openDevices(const std::set<std::string>& open) = 0;
  // Lets go of the device and closes it and its twin.
  virtual void closeDevice(const Device& device) = 0;
  // Readable when devices come or go (or -1 when nothing tells); `drainChanges` empties it.
  virtual int changesFd() const = 0;
  virtual void drainChanges() = 0;
  // Waits for the descriptors as poll(2) does.
  virtual int wait(pollfd* watched, nfds_t count, int timeoutMs) { return ::poll(watched, count, timeoutMs); }
};

// The real devices: /dev/input/event* through libevdev, twins through /dev/uinput, changes by inotify.
std::unique_ptr<KernelInput> linuxKernelInput();

}  // namespace wh::platform
