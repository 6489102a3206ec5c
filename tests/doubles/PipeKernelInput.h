#pragma once
// Keyboards made of pipes, for the media key reader: whoever plugs one writes input_event records
// into `keys` and reads what is let through from `out`. Header only: it stands in for a Linux
// adapter's kernel layer, which the doubles library does not link.

#include <fcntl.h>
#include <unistd.h>

#include <mutex>
#include <utility>

#include "platform/linux/mediakeys/KernelInput.h"

namespace wh {

struct PipeKernelInput final : platform::KernelInput {
  struct Plugged {
    int keys, out;
  };
  std::mutex mutex;
  std::vector<Device> waiting;
  int changes[2];
  PipeKernelInput() { [[maybe_unused]] int made = ::pipe2(changes, O_NONBLOCK | O_CLOEXEC); }
  ~PipeKernelInput() override {
    ::close(changes[0]);
    ::close(changes[1]);
  }
  Plugged plug(const std::string& path) {
    int keys[2], out[2];
    if (::pipe2(keys, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC | O_NONBLOCK) != 0) return {-1, -1};
    std::lock_guard lock(mutex);
    waiting.push_back({keys[0], out[1], path});
    return {keys[1], out[0]};
  }
  std::vector<Device> openDevices(const std::set<std::string>&) override {
    std::lock_guard lock(mutex);
    return std::exchange(waiting, {});
  }
  void closeDevice(const Device& device) override {
    ::close(device.fd);
    ::close(device.emitter);
  }
  int changesFd() const override { return changes[0]; }
  void drainChanges() override {
    char byte;
    while (::read(changes[0], &byte, 1) == 1) {
    }
  }
};

}  // namespace wh
