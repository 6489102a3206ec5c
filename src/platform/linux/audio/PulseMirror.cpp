#include "platform/linux/audio/PulseMirror.h"

#include <algorithm>
#include <charconv>

namespace wh::platform {

namespace {

std::string property(const PulseProperties& properties, const std::string& key) {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string() : found->second;
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// BlueZ nodes as each server names them: PipeWire's bluez_output.AA_BB_CC_DD_EE_FF.1 and
// bluez_input.AA_BB_CC_DD_EE_FF.0 (WirePlumber 0.5's loopback source: bluez_input.AA:BB:CC:DD:EE:FF),
// PulseAudio's bluez_sink.AA_BB_CC_DD_EE_FF.a2dp_sink and bluez_source.AA_BB_CC_DD_EE_FF.*.
bool isBluetooth(const std::string& name, const PulseProperties& properties) {
  for (const char* prefix : {"bluez_output.", "bluez_input.", "bluez_sink.", "bluez_source."}) {
    if (startsWith(name, prefix)) return true;
  }
  const std::string bus = property(properties, "device.bus");
  const std::string api = property(properties, "device.api");
  if (bus == "bluetooth" || api == "bluez5" || api == "bluez") return true;
  if (property(properties, "bluez5.loopback") == "true") return true;
  return std::any_of(properties.begin(), properties.end(),
                     [](const auto& entry) { return startsWith(entry.first, "api.bluez5."); });
}

}  // namespace

std::uint32_t pulseTransport(const std::string& name, const PulseProperties& properties, bool hardware, bool network) {
  if (isBluetooth(name, properties)) {
    // LE audio runs the BAP profiles; classic audio A2DP and the headset profiles.
    const bool le = startsWith(property(properties, "api.bluez5.profile"), "bap") ||
                    startsWith(property(properties, "bluetooth.protocol"), "bap");
    return le ? fourCharCode("blea") : fourCharCode("blue");
  }
  const std::string bus = property(properties, "device.bus");
  if (property(properties, "device.form_factor") == "internal" || bus == "pci" || bus == "platform") {
    return fourCharCode("bltn");
  }
  if (bus == "usb") return fourCharCode("usb ");
  if (bus == "firewire") return fourCharCode("1394");
  if (network) return fourCharCode("ntwk");
  if (!hardware) return fourCharCode("grup");
  return fourCharCode("unkn");
}

ProfileKind pulseProfileKind(const std::string& name) {
  for (const char* prefix : {"a2dp_sink", "a2dp-sink", "bap-sink"}) {
    if (startsWith(name, prefix)) return ProfileKind::music;
  }
  for (const char* prefix : {"headset_head_unit", "handsfree_head_unit", "headset-head-unit", "bap-duplex"}) {
    if (startsWith(name, prefix)) return ProfileKind::headset;
  }
  return ProfileKind::other;
}

namespace {

std::optional<std::int32_t> pidFrom(const std::string& text) {
  std::int32_t pid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || pid <= 0) return std::nullopt;
  return pid;
}

}  // namespace

PulseClientInfo pulseClient(std::uint32_t index, const PulseProperties& properties) {
  PulseClientInfo client;
  client.index = index;
  const std::string portalApp = property(properties, "pipewire.access.portal.app_id");
  const bool sandboxed = !portalApp.empty() || property(properties, "pipewire.access") == "flatpak" ||
                         property(properties, "pipewire.client.access") == "flatpak";
  const bool throughPulseServer = property(properties, "client.api") == "pipewire-pulse";
  if (!throughPulseServer) client.pid = pidFrom(property(properties, "pipewire.sec.pid"));
  if (!client.pid && !sandboxed) client.pid = pidFrom(property(properties, "application.process.id"));
  const std::string appID = portalApp.empty() ? property(properties, "application.id") : portalApp;
  if (!appID.empty()) client.appID = appID;
  return client;
}

struct PulseMirror::Registration {
  AudioObjectID object;
  AudioProperty property;
  std::function<void()> handler;
  std::atomic<bool> queued{false};
  std::atomic<bool> removed{false};
};

PulseMirror::PulseMirror(MainQueue& main) : main_(main) {}
PulseMirror::~PulseMirror() = default;

// --- applying the server's reports -------------------------------------------------------------

void PulseMirror::applyDevice(const PulseDeviceInfo& info) {
  if (info.isMonitor || info.name.starts_with(tapSinkPrefix)) return;
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    auto& table = info.isSink ? sinks_ : sources_;
    auto& id = deviceIDs_[{info.isSink, info.name}];
    if (id == audioObjectUnknown) id = nextID_++;
    Device device{id, info.isSink, info.name, info.description, info.rate,
                  info.properties, info.card, info.hardware, info.network};
    auto found = table.find(info.index);
    if (found != table.end() && found->second == device) return;
    if (found != table.end() && found->second.id != id) presentDevices_.erase(found->second.id);
    table[info.index] = std::move(device);
    presentDevices_[id] = {info.isSink, info.index};
    changes.emplace_back(audioSystemObject, AudioProperty::devices);
    compareDefaults(changes);
  }
  report(changes);
}

void PulseMirror::removeDevice(bool isSink, std::uint32_t index) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    auto& table = isSink ? sinks_ : sources_;
    auto found = table.find(index);
    if (found == table.end()) return;
    presentDevices_.erase(found->second.id);
    table.erase(found);
    changes.emplace_back(audioSystemObject, AudioProperty::devices);
    compareDefaults(changes);
  }
  report(changes);
}

void PulseMirror::applyCard(const PulseCardInfo& info) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    auto& id = cardIDs_[info.name];
    if (id == audioObjectUnknown) id = nextID_++;
    auto& known = cards_[info.index];
    const bool propertiesChanged = known.id != id || known.info.properties != info.properties;
    if (!propertiesChanged && known.info.activeProfile == info.activeProfile &&
        known.info.profiles == info.profiles && known.info.description == info.description) {
      return;
    }
    known = {id, info};
    changes.emplace_back(audioSystemObject, AudioProperty::cards);
    const auto owned = [&info](const auto& entry) { return entry.second.card == info.index; };
    if (propertiesChanged &&
        (std::any_of(sinks_.begin(), sinks_.end(), owned) || std::any_of(sources_.begin(), sources_.end(), owned))) {
      changes.emplace_back(audioSystemObject, AudioProperty::devices);
    }
  }
  report(changes);
}

void PulseMirror::removeCard(std::uint32_t index) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    if (cards_.erase(index) > 0) changes.emplace_back(audioSystemObject, AudioProperty::cards);
  }
  report(changes);
}

void PulseMirror::applyClient(const PulseClientInfo& info) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    const ProcessView before = viewOf(info.index);
    auto& client = clients_[info.index];
    if (client.id == audioObjectUnknown) {
      client.id = nextID_++;
      clientIndexes_[client.id] = info.index;
    }
    client.pid = info.pid;
    client.appID = info.appID;
    compareView(info.index, before, changes);
  }
  report(changes);
}

void PulseMirror::removeClient(std::uint32_t index) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    const auto found = clients_.find(index);
    if (found == clients_.end()) return;
    const ProcessView before = viewOf(index);
    clientIndexes_.erase(found->second.id);
    clients_.erase(found);
    if (before.listed) changes.emplace_back(audioSystemObject, AudioProperty::processObjectList);
  }
  report(changes);
}

void PulseMirror::addUsage(const Stream& stream, bool playback, int sign) {
  if (!stream.client) return;
  auto& usage = usage_[*stream.client];
  const auto add = [sign](unsigned& counter) { counter = static_cast<unsigned>(static_cast<int>(counter) + sign); };
  add(usage.streams);
  if (stream.running) add(playback ? usage.runningOutput : usage.runningInput);
  if (usage.streams == 0) usage_.erase(*stream.client);
}

void PulseMirror::applyStream(bool playback, const PulseStreamInfo& info, std::optional<std::uint32_t> device) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    auto& table = playback ? playback_ : capture_;
    const Stream stream{info.client, !info.corked && !info.peakMeter, device};
    const auto found = table.find(info.index);
    if (found != table.end() && found->second.client == stream.client && found->second.running == stream.running &&
        found->second.device == stream.device) {
      return;
    }
    // A stream may move from one client to none (or back) only in theory; compare both owners.
    std::vector<std::pair<std::uint32_t, ProcessView>> before;
    if (found != table.end() && found->second.client) before.emplace_back(*found->second.client, viewOf(*found->second.client));
    if (stream.client && (before.empty() || before[0].first != *stream.client)) {
      before.emplace_back(*stream.client, viewOf(*stream.client));
    }
    // A recording that starts, stops or moves to another source.
    const bool wasRunning = found != table.end() && found->second.running;
    const bool moved = found != table.end() && found->second.device != stream.device;
    if (found != table.end()) addUsage(found->second, playback, -1);
    addUsage(stream, playback, +1);
    table[info.index] = stream;
    for (const auto& [client, view] : before) compareView(client, view, changes);
    if (!playback && (wasRunning != stream.running || (stream.running && moved))) {
      changes.emplace_back(audioSystemObject, AudioProperty::recordings);
    }
  }
  report(changes);
}

void PulseMirror::removeStream(bool playback, std::uint32_t index) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    auto& table = playback ? playback_ : capture_;
    const auto found = table.find(index);
    if (found == table.end()) return;
    const Stream stream = found->second;
    const ProcessView before = stream.client ? viewOf(*stream.client) : ProcessView{};
    addUsage(stream, playback, -1);
    table.erase(found);
    if (stream.client) compareView(*stream.client, before, changes);
    if (!playback && stream.running) changes.emplace_back(audioSystemObject, AudioProperty::recordings);
  }
  report(changes);
}

void PulseMirror::applyDefaults(const std::string& sink, const std::string& source) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    defaultSink_ = sink;
    defaultSource_ = source;
    compareDefaults(changes);
  }
  report(changes);
}

void PulseMirror::noteDefault(bool sink, const std::string& name) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    (sink ? defaultSink_ : defaultSource_) = name;
    compareDefaults(changes);
  }
  report(changes);
}

void PulseMirror::noteCardProfile(AudioObjectID id, const std::string& profile) {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    for (auto& [index, card] : cards_) {
      if (card.id != id || card.info.activeProfile == profile) continue;
      card.info.activeProfile = profile;
      changes.emplace_back(audioSystemObject, AudioProperty::cards);
    }
  }
  report(changes);
}

void PulseMirror::clear() {
  Changes changes;
  {
    std::lock_guard lock(mutex_);
    if (!sinks_.empty() || !sources_.empty()) changes.emplace_back(audioSystemObject, AudioProperty::devices);
    if (!cards_.empty()) changes.emplace_back(audioSystemObject, AudioProperty::cards);
    std::vector<std::pair<std::uint32_t, ProcessView>> before;
    for (const auto& [index, client] : clients_) before.emplace_back(index, viewOf(index));
    sinks_.clear();
    sources_.clear();
    cards_.clear();
    presentDevices_.clear();
    clients_.clear();
    clientIndexes_.clear();
    playback_.clear();
    capture_.clear();
    usage_.clear();
    defaultSink_.clear();
    defaultSource_.clear();
    compareDefaults(changes);
    bool listChanged = false;
    for (const auto& [index, view] : before) listChanged = listChanged || view.listed;
    if (listChanged) changes.emplace_back(audioSystemObject, AudioProperty::processObjectList);
  }
  report(changes);
}

// --- derived state (mutex_ held) ---------------------------------------------------------------

PulseMirror::ProcessView PulseMirror::viewOf(std::uint32_t clientIndex) const {
  ProcessView view;
  const auto usage = usage_.find(clientIndex);
  if (usage == usage_.end() || clients_.count(clientIndex) == 0) return view;
  view.listed = usage->second.streams > 0;
  view.runningInput = usage->second.runningInput > 0;
  view.runningOutput = usage->second.runningOutput > 0;
  return view;
}

void PulseMirror::compareView(std::uint32_t clientIndex, const ProcessView& before, Changes& changes) const {
  const ProcessView after = viewOf(clientIndex);
  if (after.listed != before.listed) changes.emplace_back(audioSystemObject, AudioProperty::processObjectList);
  const auto client = clients_.find(clientIndex);
  if (client == clients_.end()) return;
  const AudioObjectID id = client->second.id;
  if (after.runningInput != before.runningInput) changes.emplace_back(id, AudioProperty::processIsRunningInput);
  if (after.runningOutput != before.runningOutput) changes.emplace_back(id, AudioProperty::processIsRunningOutput);
  if ((after.runningInput || after.runningOutput) != (before.runningInput || before.runningOutput)) {
    changes.emplace_back(id, AudioProperty::processIsRunning);
  }
}

AudioObjectID PulseMirror::resolvedDefault(bool sink) const {
  const std::string& name = sink ? defaultSink_ : defaultSource_;
  const auto id = deviceIDs_.find({sink, name});
  if (id == deviceIDs_.end() || presentDevices_.count(id->second) == 0) return audioObjectUnknown;
  return id->second;
}

void PulseMirror::compareDefaults(Changes& changes) {
  const AudioObjectID sink = resolvedDefault(true);
  const AudioObjectID source = resolvedDefault(false);
  if (sink != reportedDefaultSink_) {
    reportedDefaultSink_ = sink;
    changes.emplace_back(audioSystemObject, AudioProperty::defaultOutputDevice);
    changes.emplace_back(audioSystemObject, AudioProperty::defaultSystemOutputDevice);
  }
  if (source != reportedDefaultSource_) {
    reportedDefaultSource_ = source;
    changes.emplace_back(audioSystemObject, AudioProperty::defaultInputDevice);
  }
}

const PulseMirror::Device* PulseMirror::findDevice(AudioObjectID id) const {
  const auto present = presentDevices_.find(id);
  if (present == presentDevices_.end()) return nullptr;
  const auto& table = present->second.first ? sinks_ : sources_;
  const auto found = table.find(present->second.second);
  return found == table.end() ? nullptr : &found->second;
}

std::uint32_t PulseMirror::transportOf(const Device& device) const {
  const auto card = device.card ? cards_.find(*device.card) : cards_.end();
  if (card == cards_.end()) return pulseTransport(device.name, device.properties, device.hardware, device.network);
  PulseProperties merged = device.properties;
  const PulseProperties& inherited = card->second.info.properties;
  merged.insert(inherited.begin(), inherited.end());  // the device's own keys stay
  return pulseTransport(device.name, merged, device.hardware, device.network);
}

const PulseMirror::Client* PulseMirror::findClient(AudioObjectID id) const {
  const auto index = clientIndexes_.find(id);
  if (index == clientIndexes_.end()) return nullptr;
  const auto found = clients_.find(index->second);
  return found == clients_.end() ? nullptr : &found->second;
}

// --- reads -------------------------------------------------------------------------------------

std::vector<AudioObjectID> PulseMirror::devices() {
  std::lock_guard lock(mutex_);
  std::vector<AudioObjectID> ids;
  ids.reserve(sinks_.size() + sources_.size());
  for (const auto& [index, device] : sinks_) ids.push_back(device.id);
  for (const auto& [index, device] : sources_) ids.push_back(device.id);
  return ids;
}

std::optional<std::string> PulseMirror::deviceUID(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const Device* device = findDevice(id);
  return device ? std::optional(device->name) : std::nullopt;
}

std::optional<std::string> PulseMirror::deviceName(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const Device* device = findDevice(id);
  if (device == nullptr || device->description.empty()) return std::nullopt;
  return device->description;
}

std::optional<std::uint32_t> PulseMirror::deviceTransport(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const Device* device = findDevice(id);
  return device ? std::optional(transportOf(*device)) : std::nullopt;
}

std::optional<std::uint32_t> PulseMirror::deviceStreamCount(AudioObjectID id, Direction direction) {
  std::lock_guard lock(mutex_);
  const Device* device = findDevice(id);
  if (device == nullptr) return std::nullopt;
  // A sink is one output stream, a source one input stream.
  return (direction == Direction::output) == device->isSink ? 1u : 0u;
}

std::optional<double> PulseMirror::deviceNominalSampleRate(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const Device* device = findDevice(id);
  if (device == nullptr || device->rate == 0) return std::nullopt;
  return static_cast<double>(device->rate);
}

std::optional<bool> PulseMirror::deviceIsRunningSomewhere(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const auto present = presentDevices_.find(id);
  if (present == presentDevices_.end()) return std::nullopt;
  const auto [isSink, index] = present->second;
  const auto& streams = isSink ? playback_ : capture_;
  return std::any_of(streams.begin(), streams.end(),
                     [device = index](const auto& entry) { return entry.second.running && entry.second.device == device; });
}

std::vector<AudioCard> PulseMirror::cards() {
  std::lock_guard lock(mutex_);
  std::vector<AudioCard> out;
  for (const auto& [index, card] : cards_) {
    const PulseCardInfo& info = card.info;
    out.push_back({card.id, info.name, info.description, pulseTransport(info.name, info.properties, true, false),
                   info.activeProfile, info.profiles});
  }
  return out;
}

std::optional<std::string> PulseMirror::cardServerName(AudioObjectID id) const {
  std::lock_guard lock(mutex_);
  for (const auto& [index, card] : cards_) {
    if (card.id == id) return card.info.name;
  }
  return std::nullopt;
}

std::optional<std::string> PulseMirror::deviceServerName(AudioObjectID id, bool sink) const {
  std::lock_guard lock(mutex_);
  const Device* device = findDevice(id);
  if (device == nullptr || device->isSink != sink) return std::nullopt;
  return device->name;
}

std::optional<std::uint32_t> PulseMirror::clientServerIndex(AudioObjectID process) const {
  std::lock_guard lock(mutex_);
  const auto index = clientIndexes_.find(process);
  return index == clientIndexes_.end() ? std::nullopt : std::optional(index->second);
}

std::optional<AudioObjectID> PulseMirror::defaultDevice(AudioProperty which) {
  std::lock_guard lock(mutex_);
  switch (which) {
    case AudioProperty::defaultInputDevice:
      return resolvedDefault(false);
    case AudioProperty::defaultOutputDevice:
    case AudioProperty::defaultSystemOutputDevice:  // alert sounds play on the default sink
      return resolvedDefault(true);
    default:
      return std::nullopt;
  }
}

std::vector<AudioObjectID> PulseMirror::processObjects() {
  std::lock_guard lock(mutex_);
  std::vector<AudioObjectID> ids;
  for (const auto& [index, usage] : usage_) {
    const auto client = clients_.find(index);
    if (client != clients_.end() && usage.streams > 0) ids.push_back(client->second.id);
  }
  return ids;
}

std::optional<std::int32_t> PulseMirror::processPID(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const Client* client = findClient(id);
  return client ? client->pid : std::nullopt;
}

std::optional<std::string> PulseMirror::processBundleID(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const Client* client = findClient(id);
  return client ? client->appID : std::nullopt;
}

std::optional<bool> PulseMirror::processIsRunningInput(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const auto index = clientIndexes_.find(id);
  if (index == clientIndexes_.end()) return std::nullopt;
  return viewOf(index->second).runningInput;
}

std::optional<bool> PulseMirror::processIsRunningOutput(AudioObjectID id) {
  std::lock_guard lock(mutex_);
  const auto index = clientIndexes_.find(id);
  if (index == clientIndexes_.end()) return std::nullopt;
  return viewOf(index->second).runningOutput;
}

// --- listeners ---------------------------------------------------------------------------------

AudioHardware::ListenerToken PulseMirror::addListener(AudioObjectID object, AudioProperty property,
                                                     std::function<void()> handler) {
  auto registration = std::make_shared<Registration>();
  registration->object = object;
  registration->property = property;
  registration->handler = std::move(handler);
  std::lock_guard lock(listenersMutex_);
  const ListenerToken token = nextToken_++;
  registrations_.emplace(token, registration);
  listening_[{object, property}].push_back(std::move(registration));
  return token;
}

void PulseMirror::removeListener(ListenerToken token) {
  std::lock_guard lock(listenersMutex_);
  const auto found = registrations_.find(token);
  if (found == registrations_.end()) return;
  auto registration = found->second;
  registration->removed = true;
  registrations_.erase(found);
  const Key key{registration->object, registration->property};
  auto& list = listening_[key];
  std::erase(list, registration);
  if (list.empty()) listening_.erase(key);
}

void PulseMirror::report(const Changes& changes) {
  if (changes.empty()) return;
  std::lock_guard lock(listenersMutex_);
  for (const Key& key : changes) {
    const auto found = listening_.find(key);
    if (found == listening_.end()) continue;
    for (const auto& registration : found->second) {
      // One delivery at a time per registration: changes that come while one is on its way are
      // reported by it.
      if (registration->queued.exchange(true)) continue;
      main_.post([weak = std::weak_ptr<Registration>(registration)] {
        const auto alive = weak.lock();
        if (!alive) return;
        alive->queued = false;
        if (!alive->removed) alive->handler();
      });
    }
  }
}

}  // namespace wh::platform
