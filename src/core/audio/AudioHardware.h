#pragma once
// The audio port: the sound server's devices, default devices and per-process audio objects, read
// one property at a time, and property listeners. The Linux adapter speaks the PulseAudio protocol;
// tests use MemoryAudioHardware. Everything above this interface (AudioDevice, DefaultDevice,
// CA::Listener, AudioProcessMonitor) is portable.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace wh {

using AudioObjectID = std::uint32_t;

// No object: what a default-device read answers when there is no default.
inline constexpr AudioObjectID audioObjectUnknown = 0;
// The audio system itself: owner of the device list, the defaults and the process object list.
inline constexpr AudioObjectID audioSystemObject = 1;

// Four characters stored as the 32-bit big-endian value of the characters ("blue" = 0x626c7565).
constexpr std::uint32_t fourCharCode(const char (&code)[5]) {
  return (static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) << 24) |
         (static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 16) |
         (static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 8) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(code[3]));
}

// The properties that can be listened to (and, for the defaults, written).
enum class AudioProperty {
  devices,                    // system object: the device list
  defaultInputDevice,         // system object
  defaultOutputDevice,        // system object
  defaultSystemOutputDevice,  // system object: where alert sounds go
  processObjectList,          // system object: the list of audio process objects
  processIsRunning,           // process object: doing any audio I/O
  processIsRunningInput,      // process object
  processIsRunningOutput,     // process object
  cards,                      // system object: a card appearing, going, or changing its profiles
  recordings,                 // system object: a recording starting, stopping or moving to another device
};

// What a card's profile does for the headphones' sound.
enum class ProfileKind {
  music,    // playback alone, in full quality (A2DP, LE audio's BAP sink)
  headset,  // two-way, in call quality (HSP/HFP, LE audio's duplex profile)
  other,    // off, audio gateway roles, the profiles of cards that are not headphones
};

struct AudioProfile {
  std::string name;  // the server's name: "a2dp-sink", "headset_head_unit", ...
  ProfileKind kind = ProfileKind::other;
  std::uint32_t priority = 0;  // the server's preference: higher is better
  bool available = true;       // false when the server says it cannot be used now
  bool operator==(const AudioProfile&) const = default;
};

// A sound card (on PipeWire: a device): what owns devices and switches them by profile.
struct AudioCard {
  AudioObjectID id = audioObjectUnknown;  // kept while the card keeps its name
  std::string name;      // bluez_card.AA_BB_CC_DD_EE_FF on both servers
  std::string description;
  std::uint32_t transport = 0;
  std::string activeProfile;
  std::vector<AudioProfile> profiles;
  bool operator==(const AudioCard&) const = default;

  // What the active profile is for; other when it is none of the offered ones.
  ProfileKind activeKind() const {
    for (const auto& profile : profiles) {
      if (profile.name == activeProfile) return profile.kind;
    }
    return ProfileKind::other;
  }
};

enum class Direction { input, output };

// The sound server's answer to a write.
struct WriteAnswer {
  bool accepted = false;
  std::string reason;  // why it was refused ("No such entity", ...); empty when accepted

  static WriteAnswer accept() { return {true, {}}; }
  static WriteAnswer refuse(std::string reason) { return {false, std::move(reason)}; }
  bool operator==(const WriteAnswer&) const = default;
};

// Receives the answer to one write. Owners guard it with their Lifetime: an answer that comes
// after its owner has gone does nothing.
using WriteDone = std::function<void(const WriteAnswer&)>;

class AudioHardware {
 public:
  using ListenerToken = std::uint64_t;

  virtual ~AudioHardware() = default;

  // Devices, in the order the sound server lists them. Reads answer nothing when the property
  // cannot be read (the device has gone, or never had it). Safe from any thread.
  virtual std::vector<AudioObjectID> devices() = 0;
  virtual std::optional<std::string> deviceUID(AudioObjectID device) = 0;
  virtual std::optional<std::string> deviceName(AudioObjectID device) = 0;
  virtual std::optional<std::uint32_t> deviceTransport(AudioObjectID device) = 0;
  // How many streams the device has in that direction.
  virtual std::optional<std::uint32_t> deviceStreamCount(AudioObjectID device, Direction direction) = 0;
  virtual std::optional<double> deviceNominalSampleRate(AudioObjectID device) = 0;
  // Whether a stream other than a level meter records from (or plays to) the device now.
  virtual std::optional<bool> deviceIsRunningSomewhere(AudioObjectID device) = 0;

  // The sound cards, in the server's order, each read whole. Safe from any thread.
  virtual std::vector<AudioCard> cards() = 0;

  // Writes (a card's profile, a default device) are sent at once and never wait for the sound
  // server. Reads may show a write before it is answered. Every write is answered exactly once,
  // through `done` (which may be empty), on the main thread and never before the write returns:
  // accepted, or refused with the reason. A write that cannot be sent (an object the port does not
  // know, no connection) and one whose connection is lost before the answer are refused. Before the
  // server's own refusal is delivered, reads show again what it kept, and the listeners of what
  // changed back have been called.
  virtual void setCardProfile(AudioObjectID card, const std::string& profile, WriteDone done) = 0;

  // `which` is defaultInputDevice, defaultOutputDevice or defaultSystemOutputDevice. A read may
  // answer audioObjectUnknown.
  virtual std::optional<AudioObjectID> defaultDevice(AudioProperty which) = 0;
  virtual void setDefaultDevice(AudioProperty which, AudioObjectID device, WriteDone done) = 0;

  // Audio process objects, in the sound server's order, and their properties.
  virtual std::vector<AudioObjectID> processObjects() = 0;
  virtual std::optional<std::int32_t> processPID(AudioObjectID process) = 0;
  virtual std::optional<std::string> processBundleID(AudioObjectID process) = 0;
  virtual std::optional<bool> processIsRunningInput(AudioObjectID process) = 0;
  virtual std::optional<bool> processIsRunningOutput(AudioObjectID process) = 0;

  // Calls `handler` on the main thread after each change of the property of that object (several
  // changes in a row may be reported by one call). Answers a token for removeListener, or 0 when
  // the registration was refused. After removeListener returns, the handler is never called again.
  // Both are called on the main thread.
  virtual ListenerToken addListener(AudioObjectID object, AudioProperty property, std::function<void()> handler) = 0;
  virtual void removeListener(ListenerToken token) = 0;
};

}  // namespace wh
