#include "doubles/MemoryAudioHardware.h"

namespace wh {

namespace {

template <class Record>
Record* findByID(std::vector<Record>& records, AudioObjectID id) {
  for (auto& record : records) {
    if (record.id == id) return &record;
  }
  return nullptr;
}

}  // namespace

MemoryAudioHardware::Process* MemoryAudioHardware::process(AudioObjectID id) { return findByID(processList, id); }
MemoryAudioHardware::Device* MemoryAudioHardware::device(AudioObjectID id) { return findByID(deviceList, id); }

void MemoryAudioHardware::notify(AudioObjectID object, AudioProperty property) {
  // Collect first: a handler may add or remove listeners. A handler removed by an earlier one in
  // this round is not called.
  std::vector<ListenerToken> tokens;
  for (const auto& [token, registration] : listeners_) {
    if (registration.object == object && registration.property == property) tokens.push_back(token);
  }
  for (ListenerToken token : tokens) {
    const auto found = listeners_.find(token);
    if (found == listeners_.end()) continue;
    auto handler = found->second.handler;
    (*handler)();
  }
}

std::size_t MemoryAudioHardware::listenerCount(AudioObjectID object, AudioProperty property) const {
  std::size_t count = 0;
  for (const auto& [token, registration] : listeners_) {
    if (registration.object == object && registration.property == property) ++count;
  }
  return count;
}

std::vector<AudioObjectID> MemoryAudioHardware::devices() {
  std::vector<AudioObjectID> ids;
  for (const auto& d : deviceList) ids.push_back(d.id);
  return ids;
}

std::optional<std::string> MemoryAudioHardware::deviceUID(AudioObjectID id) {
  auto* d = device(id);
  return d ? d->uid : std::nullopt;
}

std::optional<std::string> MemoryAudioHardware::deviceName(AudioObjectID id) {
  auto* d = device(id);
  return d ? d->name : std::nullopt;
}

std::optional<std::uint32_t> MemoryAudioHardware::deviceTransport(AudioObjectID id) {
  auto* d = device(id);
  return d ? d->transport : std::nullopt;
}

std::optional<std::uint32_t> MemoryAudioHardware::deviceStreamCount(AudioObjectID id, Direction direction) {
  auto* d = device(id);
  if (d == nullptr) return std::nullopt;
  return direction == Direction::input ? d->inputStreams : d->outputStreams;
}

std::optional<double> MemoryAudioHardware::deviceNominalSampleRate(AudioObjectID id) {
  auto* d = device(id);
  return d ? d->nominalSampleRate : std::nullopt;
}

std::optional<AudioObjectID> MemoryAudioHardware::defaultDevice(AudioProperty which) {
  const auto found = defaults.find(which);
  return found == defaults.end() ? std::nullopt : found->second;
}

bool MemoryAudioHardware::setDefaultDevice(AudioProperty which, AudioObjectID id) {
  writes.emplace_back(which, id);
  if (refuseWrites[which]) return false;
  defaults[which] = id;
  return true;
}

std::vector<AudioObjectID> MemoryAudioHardware::processObjects() {
  ++reads.processObjects;
  std::vector<AudioObjectID> ids;
  for (const auto& p : processList) ids.push_back(p.id);
  return ids;
}

std::optional<std::int32_t> MemoryAudioHardware::processPID(AudioObjectID id) {
  ++reads.pid;
  auto* p = process(id);
  return p ? p->pid : std::nullopt;
}

std::optional<std::string> MemoryAudioHardware::processBundleID(AudioObjectID id) {
  ++reads.bundleID;
  auto* p = process(id);
  return p ? p->bundleID : std::nullopt;
}

std::optional<bool> MemoryAudioHardware::processIsRunningInput(AudioObjectID id) {
  ++reads.runningInput;
  auto* p = process(id);
  return p ? p->runningInput : std::nullopt;
}

std::optional<bool> MemoryAudioHardware::processIsRunningOutput(AudioObjectID id) {
  ++reads.runningOutput;
  auto* p = process(id);
  return p ? p->runningOutput : std::nullopt;
}

AudioHardware::ListenerToken MemoryAudioHardware::addListener(AudioObjectID object, AudioProperty property,
                                                             std::function<void()> handler) {
  const ListenerToken token = nextToken_++;
  listeners_.emplace(token, Registration{object, property, std::make_shared<std::function<void()>>(std::move(handler))});
  return token;
}

void MemoryAudioHardware::removeListener(ListenerToken token) { listeners_.erase(token); }

}  // namespace wh
