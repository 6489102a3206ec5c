#pragma once
// The sound server's devices for the microphone choice, read through the agent's own audio adapter
// (the same classification of transports). Waiting for the server and reading run on a serial
// queue; the list comes back on the main queue, and again whenever the server's devices change.

#include <functional>
#include <memory>
#include <vector>

#include "core/audio/CoreAudio.h"
#include "core/runtime/Runtime.h"
#include "platform/linux/audio/PulseAudioHardware.h"

namespace wh::settingsapp {

class AudioInputs {
 public:
  // How long the first read waits for the sound server.
  static constexpr double connectWait = 3.0;

  AudioInputs(Runtime& runtime, platform::PulseAudioHardware& hardware,
              std::function<void(std::vector<AudioDevice>)> changed);

 private:
  void read();

  Runtime& runtime_;
  platform::PulseAudioHardware& hardware_;
  std::function<void(std::vector<AudioDevice>)> changed_;
  std::shared_ptr<SerialQueue> queue_;
  std::unique_ptr<CA::Listener> listener_;
  Lifetime lifetime_;
};

}  // namespace wh::settingsapp
