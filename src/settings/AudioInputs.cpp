#include "settings/AudioInputs.h"

namespace wh::settingsapp {

AudioInputs::AudioInputs(Runtime& runtime, platform::PulseAudioHardware& hardware,
                         std::function<void(std::vector<AudioDevice>)> changed)
    : runtime_(runtime), hardware_(hardware), changed_(std::move(changed)),
      queue_(runtime.makeSerialQueue("wrenhaven.settings.audio", QueuePriority::utility)) {
  listener_ = std::make_unique<CA::Listener>(hardware_, audioSystemObject, AudioProperty::devices,
                                             lifetime_.guard([this] { read(); }));
  read();
}

void AudioInputs::read() {
  runThenMain<std::vector<AudioDevice>>(
      *queue_, runtime_.main(), lifetime_,
      [&hardware = hardware_] {
        hardware.waitUntilReady(connectWait);
        return AudioDevice::all(hardware);
      },
      [this](std::vector<AudioDevice> devices) { changed_(std::move(devices)); });
}

}  // namespace wh::settingsapp
