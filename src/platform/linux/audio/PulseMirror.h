#pragma once
// The adapter's copy of the sound server's objects: sinks and sources (monitor sources left out)
// as devices, clients with playback or capture streams as audio processes, and the default sink
// and source. The connection thread applies what the server reports; any thread reads; each
// change is reported to the listeners of the properties it touched, on the main queue.
//
// Object ids are the adapter's own, never the server's indexes: a device keeps its id for as long
// as the adapter lives (looked up by kind and name, so it survives a server restart), and a client
// gets a fresh id each time it appears, so a cached identity can never be mistaken for another
// process after the server reuses an index.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/audio/AudioHardware.h"
#include "core/runtime/Runtime.h"

namespace wh::platform {

using PulseProperties = std::map<std::string, std::string>;

// The agent's own per-app sinks (process taps) begin with this; they are not devices.
inline constexpr char tapSinkPrefix[] = "wrenhaven_tap.";

// One sink or source as the server describes it.
struct PulseDeviceInfo {
  std::uint32_t index = 0;
  bool isSink = true;
  std::string name;
  std::string description;
  std::uint32_t rate = 0;
  bool isMonitor = false;  // a source that records a sink
  bool hardware = false;   // PA_SINK_HARDWARE / PA_SOURCE_HARDWARE
  bool network = false;    // PA_SINK_NETWORK / PA_SOURCE_NETWORK
  PulseProperties properties;  // the device.*, api.bluez5.*, bluez5.* and bluetooth.* properties
  std::optional<std::uint32_t> card;  // the card (PipeWire: the device) that owns it
};

struct PulseClientInfo {
  std::uint32_t index = 0;
  std::optional<std::int32_t> pid;   // the process on this machine
  std::optional<std::string> appID;  // the application's id
};

// Who a client is, from its properties, trusting what the server learnt from the socket over
// what the client says of itself. pipewire.sec.pid is the socket's peer: the client itself for a
// native PipeWire client, but pipewire-pulse for every client of the pulse server. A sandboxed
// client (Flatpak: pipewire.access "flatpak", pipewire.access.portal.app_id) counts its
// application.process.id in the sandbox's own pid namespace, so that pid means nothing here;
// its portal app id names the application.
PulseClientInfo pulseClient(std::uint32_t index, const PulseProperties& properties);

// A playback stream (sink input) or a capture stream (source output).
struct PulseStreamInfo {
  std::uint32_t index = 0;
  std::optional<std::uint32_t> client;  // absent for streams that modules own
  bool corked = false;
  bool peakMeter = false;  // a level meter's capture (resampled to peaks): not real input
};

// A card as the server describes it; its sinks and sources inherit its device.* properties
// where theirs lack them.
struct PulseCardInfo {
  std::uint32_t index = 0;
  std::string name;
  std::string description;
  PulseProperties properties;
  std::string activeProfile;
  std::vector<AudioProfile> profiles;
};

// What a Bluetooth profile is for, by the names both servers give them: PulseAudio's a2dp_sink
// and headset_head_unit / handsfree_head_unit, PipeWire's a2dp-sink-<codec>,
// headset-head-unit-<codec>, bap-sink and bap-duplex. Anything else (off, the gateway roles,
// other cards' profiles) is "other".
ProfileKind pulseProfileKind(const std::string& name);

// The transport code for a device from its server name and properties (its card's properties
// included where its own lack them): "blue" (or "blea" for LE audio) for Bluetooth, "bltn" for the
// machine's own card, "usb " and "1394" for USB and FireWire, "ntwk" for network devices, "grup"
// for virtual devices (null, combine, remap, filter sinks), "unkn" for other hardware.
std::uint32_t pulseTransport(const std::string& name, const PulseProperties& properties, bool hardware, bool network);

class PulseMirror : public AudioHardware {
 public:
  explicit PulseMirror(MainQueue& main);
  ~PulseMirror() override;
  PulseMirror(const PulseMirror&) = delete;
  PulseMirror& operator=(const PulseMirror&) = delete;

  // What the server reports; each call reports the changes it makes to the listeners.
  void applyDevice(const PulseDeviceInfo& device);
  void removeDevice(bool isSink, std::uint32_t index);
  void applyCard(const PulseCardInfo& card);
  void removeCard(std::uint32_t index);
  void applyClient(const PulseClientInfo& client);
  void removeClient(std::uint32_t index);
  // `device`: the sink it plays to or the source it records from.
  void applyStream(bool playback, const PulseStreamInfo& stream, std::optional<std::uint32_t> device = std::nullopt);
  void removeStream(bool playback, std::uint32_t index);
  // The server's default sink and source names (empty when it has none).
  void applyDefaults(const std::string& sink, const std::string& source);
  // A default that this adapter has just set and the server has accepted.
  void noteDefault(bool sink, const std::string& name);
  // A card profile that this adapter has just set and the server has accepted.
  void noteCardProfile(AudioObjectID card, const std::string& profile);
  // The connection has gone: nothing is known any more.
  void clear();

  // The server's name of a sink or source known by its id.
  std::optional<std::string> deviceServerName(AudioObjectID device, bool sink) const;
  // The server's name of a card known by its id.
  std::optional<std::string> cardServerName(AudioObjectID card) const;
  // The server's index of a client known by its process id.
  std::optional<std::uint32_t> clientServerIndex(AudioObjectID process) const;

  std::vector<AudioObjectID> devices() override;
  std::optional<std::string> deviceUID(AudioObjectID device) override;
  std::optional<std::string> deviceName(AudioObjectID device) override;
  std::optional<std::uint32_t> deviceTransport(AudioObjectID device) override;
  std::optional<std::uint32_t> deviceStreamCount(AudioObjectID device, Direction direction) override;
  std::optional<double> deviceNominalSampleRate(AudioObjectID device) override;
  std::optional<bool> deviceIsRunningSomewhere(AudioObjectID device) override;
  std::vector<AudioCard> cards() override;
  std::optional<AudioObjectID> defaultDevice(AudioProperty which) override;
  std::vector<AudioObjectID> processObjects() override;
  std::optional<std::int32_t> processPID(AudioObjectID process) override;
  std::optional<std::string> processBundleID(AudioObjectID process) override;
  std::optional<bool> processIsRunningInput(AudioObjectID process) override;
  std::optional<bool> processIsRunningOutput(AudioObjectID process) override;
  ListenerToken addListener(AudioObjectID object, AudioProperty property, std::function<void()> handler) override;
  void removeListener(ListenerToken token) override;

 private:
  struct Device {
    AudioObjectID id = 0;
    bool isSink = true;
    std::string name;
    std::string description;
    std::uint32_t rate = 0;
    PulseProperties properties;
    std::optional<std::uint32_t> card;
    bool hardware = false;
    bool network = false;
    bool operator==(const Device&) const = default;
  };
  struct Client {
    AudioObjectID id = 0;
    std::optional<std::int32_t> pid;
    std::optional<std::string> appID;
  };
  struct Stream {
    std::optional<std::uint32_t> client;
    bool running = false;
    std::optional<std::uint32_t> device;
  };
  struct Card {
    AudioObjectID id = 0;
    PulseCardInfo info;
  };
  // What a client's streams add up to.
  struct Usage {
    unsigned streams = 0;
    unsigned runningInput = 0;
    unsigned runningOutput = 0;
  };
  // What listeners of one client can see.
  struct ProcessView {
    bool listed = false;
    bool runningInput = false;
    bool runningOutput = false;
  };
  using Key = std::pair<AudioObjectID, AudioProperty>;
  using Changes = std::vector<Key>;
  struct Registration;

  // All with mutex_ held.
  const Device* findDevice(AudioObjectID id) const;
  std::uint32_t transportOf(const Device& device) const;
  const Client* findClient(AudioObjectID id) const;
  ProcessView viewOf(std::uint32_t clientIndex) const;
  void compareView(std::uint32_t clientIndex, const ProcessView& before, Changes& changes) const;
  void compareDefaults(Changes& changes);
  AudioObjectID resolvedDefault(bool sink) const;
  void addUsage(const Stream& stream, bool playback, int sign);

  void report(const Changes& changes);

  MainQueue& main_;
  mutable std::mutex mutex_;
  std::map<std::uint32_t, Device> sinks_;
  std::map<std::uint32_t, Device> sources_;
  std::map<std::uint32_t, Card> cards_;
  std::map<std::string, AudioObjectID> cardIDs_;  // by name, kept across reconnections
  std::map<std::pair<bool, std::string>, AudioObjectID> deviceIDs_;  // kept across reconnections
  std::map<AudioObjectID, std::pair<bool, std::uint32_t>> presentDevices_;  // id -> (sink?, index)
  std::map<std::uint32_t, Client> clients_;
  std::map<AudioObjectID, std::uint32_t> clientIndexes_;
  std::map<std::uint32_t, Stream> playback_;
  std::map<std::uint32_t, Stream> capture_;
  std::map<std::uint32_t, Usage> usage_;
  std::string defaultSink_;
  std::string defaultSource_;
  AudioObjectID reportedDefaultSink_ = audioObjectUnknown;
  AudioObjectID reportedDefaultSource_ = audioObjectUnknown;
  AudioObjectID nextID_ = audioSystemObject + 1;

  std::mutex listenersMutex_;
  std::map<ListenerToken, std::shared_ptr<Registration>> registrations_;
  std::map<Key, std::vector<std::shared_ptr<Registration>>> listening_;
  ListenerToken nextToken_ = 1;
};

}  // namespace wh::platform
