#include "core/audio/CoreAudio.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace wh {

namespace {

// Lower case, with ":" and "_" both read as "-".
std::string addressForm(std::string text) {
  for (char& c : text) {
    if (c == ':' || c == '_') {
      c = '-';
    } else {
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return text;
}

AudioProperty defaultProperty(Direction direction) {
  return direction == Direction::input ? AudioProperty::defaultInputDevice : AudioProperty::defaultOutputDevice;
}

}  // namespace

std::optional<AudioDevice> AudioDevice::read(AudioHardware& hardware, AudioObjectID id) {
  auto uid = hardware.deviceUID(id);
  if (!uid) return std::nullopt;
  AudioDevice device;
  device.id = id;
  device.name = hardware.deviceName(id).value_or(*uid);
  device.uid = std::move(*uid);
  device.transport = hardware.deviceTransport(id).value_or(0);
  device.hasInput = hardware.deviceStreamCount(id, Direction::input).value_or(0) > 0;
  device.hasOutput = hardware.deviceStreamCount(id, Direction::output).value_or(0) > 0;
  return device;
}

std::vector<AudioDevice> AudioDevice::all(AudioHardware& hardware) {
  std::vector<AudioDevice> out;
  for (AudioObjectID id : hardware.devices()) {
    if (auto device = read(hardware, id)) out.push_back(std::move(*device));
  }
  return out;
}

std::optional<AudioDevice> AudioDevice::byUID(AudioHardware& hardware, const std::string& uid) {
  for (auto& device : all(hardware)) {
    if (device.uid == uid) return std::move(device);
  }
  return std::nullopt;
}

std::optional<AudioDevice> AudioDevice::builtInMicrophone(AudioHardware& hardware) {
  for (auto& device : all(hardware)) {
    if (device.transport == Transport::builtIn && device.hasInput) return std::move(device);
  }
  return std::nullopt;
}

bool AudioDevice::uidNamesAddress(const std::string& uid, const std::string& address) {
  const std::string wanted = addressForm(address);
  return !wanted.empty() && addressForm(uid).find(wanted) != std::string::npos;
}

std::optional<AudioDevice> AudioDevice::forHeadphones(AudioHardware& hardware, const std::string& address) {
  for (auto& device : all(hardware)) {
    if (device.hasOutput && uidNamesAddress(device.uid, address)) return std::move(device);
  }
  return std::nullopt;
}

namespace DefaultDevice {

std::optional<AudioObjectID> id(AudioHardware& hardware, Direction direction) {
  auto device = hardware.defaultDevice(defaultProperty(direction));
  if (!device || *device == audioObjectUnknown) return std::nullopt;
  return device;
}

void set(AudioHardware& hardware, Direction direction, AudioObjectID device, WriteDone done) {
  hardware.setDefaultDevice(defaultProperty(direction), device, std::move(done));
  // Alert sounds follow; whether that works does not change the answer.
  if (direction == Direction::output) hardware.setDefaultDevice(AudioProperty::defaultSystemOutputDevice, device, {});
}

}  // namespace DefaultDevice

namespace CA {

Listener::Listener(AudioHardware& hardware, AudioObjectID object, AudioProperty address,
                   std::function<void()> handler)
    : hardware_(hardware),
      object_(object),
      address_(address),
      token_(hardware.addListener(object, address, std::move(handler))) {}

Listener::~Listener() {
  if (token_ != 0) hardware_.removeListener(token_);
}

}  // namespace CA

}  // namespace wh
