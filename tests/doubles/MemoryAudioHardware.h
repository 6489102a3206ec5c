#pragma once
// The audio port held in memory. Any property can be left unreadable (empty), writes can be
// refused, and reads of the process list are counted. Changes are silent until the test calls
// notify(), which calls the matching handlers at once, as the sound server's report would.

#include <algorithm>
#include <map>
#include <utility>

#include "core/audio/AudioHardware.h"

namespace wh {

class MemoryAudioHardware final : public AudioHardware {
 public:
  struct Device {
    AudioObjectID id = audioObjectUnknown;
    std::optional<std::string> uid, name;
    std::optional<std::uint32_t> transport, inputStreams, outputStreams;
    std::optional<double> nominalSampleRate;
    std::optional<bool> runningSomewhere = false;
  };
  struct Process {
    AudioObjectID id = audioObjectUnknown;
    std::optional<std::int32_t> pid;
    std::optional<std::string> bundleID;
    std::optional<bool> runningInput = false, runningOutput = false;
  };

  std::vector<Device> deviceList;
  std::vector<Process> processList;
  std::map<AudioProperty, std::optional<AudioObjectID>> defaults;
  std::vector<AudioCard> cardList;
  std::map<AudioProperty, bool> refuseWrites;
  bool refuseProfiles = false;
  std::vector<std::pair<AudioProperty, AudioObjectID>> writes;  // accepted and refused, in order
  std::size_t processListReads = 0;

  // Calls the handlers of that property, but none that an earlier one of the round removed.
  void notify(AudioObjectID object, AudioProperty property) {
    const auto registered = listeners_;
    for (const auto& [token, r] : registered) {
      if (r.object == object && r.property == property && listeners_.count(token) > 0) r.handler();
    }
  }
  std::size_t listenerCount() const { return listeners_.size(); }

  std::vector<AudioObjectID> devices() override { return ids(deviceList); }
  std::optional<std::string> deviceUID(AudioObjectID id) override { return device(id, &Device::uid); }
  std::optional<std::string> deviceName(AudioObjectID id) override { return device(id, &Device::name); }
  std::optional<std::uint32_t> deviceTransport(AudioObjectID id) override { return device(id, &Device::transport); }
  std::optional<std::uint32_t> deviceStreamCount(AudioObjectID id, Direction direction) override {
    return device(id, direction == Direction::input ? &Device::inputStreams : &Device::outputStreams);
  }
  std::optional<double> deviceNominalSampleRate(AudioObjectID id) override {
    return device(id, &Device::nominalSampleRate);
  }
  std::optional<bool> deviceIsRunningSomewhere(AudioObjectID id) override { return device(id, &Device::runningSomewhere); }
  std::vector<AudioCard> cards() override { return cardList; }
  bool setCardProfile(AudioObjectID id, const std::string& profile) override {
    const auto card = std::find_if(cardList.begin(), cardList.end(), [&](const AudioCard& c) { return c.id == id; });
    if (refuseProfiles || card == cardList.end()) return false;
    card->activeProfile = profile;
    return true;
  }
  std::optional<AudioObjectID> defaultDevice(AudioProperty which) override { return defaults[which]; }
  bool setDefaultDevice(AudioProperty which, AudioObjectID id) override {
    writes.emplace_back(which, id);
    if (!refuseWrites[which]) defaults[which] = id;
    return !refuseWrites[which];
  }
  std::vector<AudioObjectID> processObjects() override {
    ++processListReads;
    return ids(processList);
  }
  std::optional<std::int32_t> processPID(AudioObjectID id) override { return process(id, &Process::pid); }
  std::optional<std::string> processBundleID(AudioObjectID id) override { return process(id, &Process::bundleID); }
  std::optional<bool> processIsRunningInput(AudioObjectID id) override { return process(id, &Process::runningInput); }
  std::optional<bool> processIsRunningOutput(AudioObjectID id) override { return process(id, &Process::runningOutput); }
  ListenerToken addListener(AudioObjectID object, AudioProperty property, std::function<void()> handler) override {
    listeners_[nextToken_] = {object, property, std::move(handler)};
    return nextToken_++;
  }
  void removeListener(ListenerToken token) override { listeners_.erase(token); }

 private:
  struct Registration {
    AudioObjectID object;
    AudioProperty property;
    std::function<void()> handler;
  };

  template <class Record>
  static std::vector<AudioObjectID> ids(const std::vector<Record>& records) {
    std::vector<AudioObjectID> out;
    for (const auto& record : records) out.push_back(record.id);
    return out;
  }
  template <class Record, class T>
  static std::optional<T> read(const std::vector<Record>& records, AudioObjectID id, std::optional<T> Record::*field) {
    for (const auto& record : records) {
      if (record.id == id) return record.*field;
    }
    return std::nullopt;
  }
  template <class T>
  std::optional<T> device(AudioObjectID id, std::optional<T> Device::*field) { return read(deviceList, id, field); }
  template <class T>
  std::optional<T> process(AudioObjectID id, std::optional<T> Process::*field) { return read(processList, id, field); }

  std::map<ListenerToken, Registration> listeners_;
  ListenerToken nextToken_ = 1;
};

}  // namespace wh
