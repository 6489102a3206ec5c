#pragma once
// Keyboards made of pipes for the media key reader: input_event records go into `keys`, what is
// let through comes out of `out`. Header only, as the doubles library does not link the adapters.

#include <fcntl.h>
#include <unistd.h>

#include <mutex>
#include <utility>

#include "platform/linux/mediakeys/KernelInput.h"

namespace wh {

struct PipeKernelInput final : platform::KernelInput {
  std::mutex mutex;
  std::vector<Device> waiting;  // handed to the reader when it next looks for devices

  std::pair<int, int> plug(const std::string& path) {  // keys, out
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
  int changesFd() const override { return -1; }
  void drainChanges() override {}
};

}  // namespace wh
