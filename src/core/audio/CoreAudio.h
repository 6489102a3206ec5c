#pragma once
// The audio device layer: device records read afresh from the audio port on every call, the
// default input and output, the built-in microphone, the headphones-to-device match, and
// CA::Listener, one property-listener registration owned by one object.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/AudioHardware.h"

namespace wh {

// Transport codes that the agent tests or names.
namespace Transport {
inline constexpr std::uint32_t builtIn = fourCharCode("bltn");
inline constexpr std::uint32_t bluetooth = fourCharCode("blue");
inline constexpr std::uint32_t bluetoothLE = fourCharCode("blea");
inline constexpr std::uint32_t aggregate = fourCharCode("grup");
// Bluetooth, classic or LE.
constexpr bool isBluetooth(std::uint32_t code) { return code == bluetooth || code == bluetoothLE; }
}  // namespace Transport

struct AudioDevice {
  AudioObjectID id = audioObjectUnknown;
  std::string uid;
  std::string name;
  std::uint32_t transport = 0;
  bool hasInput = false;
  bool hasOutput = false;

  bool operator==(const AudioDevice&) const = default;

  // Every device whose uid can be read, in the order the audio system lists them.
  static std::vector<AudioDevice> all(AudioHardware& hardware);
  // One device's record; nothing when its uid cannot be read.
  static std::optional<AudioDevice> read(AudioHardware& hardware, AudioObjectID id);
  // The first device whose uid equals `uid` exactly.
  static std::optional<AudioDevice> byUID(AudioHardware& hardware, const std::string& uid);
  // The first built-in device with input.
  static std::optional<AudioDevice> builtInMicrophone(AudioHardware& hardware);
  // The first output device whose uid names the headphones' Bluetooth address.
  static std::optional<AudioDevice> forHeadphones(AudioHardware& hardware, const std::string& address);
  // Whether a device uid names the Bluetooth address: both lower-cased, with ":" and "_" read as
  // "-", the uid contains the address. Sound servers name Bluetooth nodes
  // bluez_output.AA_BB_CC_DD_EE_FF.1 or bluez_sink.AA_BB_CC_DD_EE_FF.a2dp_sink.
  static bool uidNamesAddress(const std::string& uid, const std::string& address);
};

namespace DefaultDevice {
// The default device of that direction; nothing when the read fails or there is none.
std::optional<AudioObjectID> id(AudioHardware& hardware, Direction direction);
// Makes the device the default; for output the alert sound output follows (whether that second
// write works does not matter). `done` gets the answer to the first write, later, on the main
// thread (see AudioHardware::setDefaultDevice).
void set(AudioHardware& hardware, Direction direction, AudioObjectID device, WriteDone done);
}  // namespace DefaultDevice

namespace CA {

// One property-listener registration, from construction to destruction. Owners stop listening by
// dropping it. It holds its handler strongly: a handler that refers back to its owner must guard
// itself (a Lifetime) or be dropped with the owner.
class Listener {
 public:
  Listener(AudioHardware& hardware, AudioObjectID object, AudioProperty address, std::function<void()> handler);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  AudioObjectID object() const { return object_; }
  AudioProperty address() const { return address_; }
  // False when the audio port refused the registration.
  bool registered() const { return token_ != 0; }

 private:
  AudioHardware& hardware_;
  AudioObjectID object_;
  AudioProperty address_;
  AudioHardware::ListenerToken token_;
};

}  // namespace CA

}  // namespace wh
