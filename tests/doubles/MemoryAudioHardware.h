#pragma once
// The audio port held in memory. Any property can be left unreadable (empty), and reads of the
// process list are counted. The test's own changes are silent until it calls notify(), which calls
// the matching handlers at once, as the sound server's report would.
//
// Writes go as they go through the sound server adapter: reads show a write at once and its
// listeners hear of it on the main queue; the answer comes answerDelay seconds later, also on the
// main queue. A refused write (refuseWrites, refuseProfiles, a card it does not have) is undone
// first, unless something else has changed that value meanwhile, with its listeners called.

#include <algorithm>
#include <map>
#include <utility>

#include "core/audio/AudioHardware.h"
#include "core/runtime/Runtime.h"

namespace wh {

class MemoryAudioHardware final : public AudioHardware {
 public:
  explicit MemoryAudioHardware(MainQueue& main) : main_(main) {}

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
  double answerDelay = 0;                 // seconds from a write to its answer
  std::string refusal = "Access denied";  // the reason a refusal gives
  std::vector<std::pair<AudioProperty, AudioObjectID>> writes;  // default writes, accepted and refused, in order
  std::vector<WriteAnswer> answers;                             // every answer given, in order
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
  void setCardProfile(AudioObjectID id, const std::string& profile, WriteDone done) override {
    AudioCard* card = cardWithID(id);
    if (card == nullptr) return answerLater(WriteAnswer::refuse("No such entity"), [] {}, std::move(done));
    const std::string before = card->activeProfile;
    show(card->activeProfile, profile, AudioProperty::cards);
    answerLater(refuseProfiles ? WriteAnswer::refuse(refusal) : WriteAnswer::accept(), [this, id, profile, before] {
      if (AudioCard* kept = cardWithID(id)) undo(kept->activeProfile, profile, before, AudioProperty::cards);
    }, std::move(done));
  }
  std::optional<AudioObjectID> defaultDevice(AudioProperty which) override { return defaults[which]; }
  void setDefaultDevice(AudioProperty which, AudioObjectID id, WriteDone done) override {
    writes.emplace_back(which, id);
    const std::optional<AudioObjectID> before = defaults[which];
    show(defaults[which], std::optional(id), which);
    answerLater(refuseWrites[which] ? WriteAnswer::refuse(refusal) : WriteAnswer::accept(), [this, which, id, before] {
      undo(defaults[which], std::optional(id), before, which);
    }, std::move(done));
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

  AudioCard* cardWithID(AudioObjectID id) {
    const auto card = std::find_if(cardList.begin(), cardList.end(), [&](const AudioCard& c) { return c.id == id; });
    return card == cardList.end() ? nullptr : &*card;
  }
  // A write shown at once; its listeners hear of it on the main queue.
  template <class T>
  void show(T& value, const T& written, AudioProperty property) {
    if (value == written) return;
    value = written;
    main_.post([this, property] { notify(audioSystemObject, property); });
  }
  // A refused write taken back, unless something else has changed the value since.
  template <class T>
  void undo(T& value, const T& written, const T& before, AudioProperty property) {
    if (value != written || value == before) return;
    value = before;
    notify(audioSystemObject, property);
  }
  void answerLater(WriteAnswer answer, std::function<void()> undoRefused, WriteDone done) {
    main_.after(answerDelay, [this, answer = std::move(answer), undoRefused = std::move(undoRefused),
                              done = std::move(done)] {
      if (!answer.accepted) undoRefused();
      answers.push_back(answer);
      if (done) done(answer);
    });
  }

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

  MainQueue& main_;
  std::map<ListenerToken, Registration> listeners_;
  ListenerToken nextToken_ = 1;
};

}  // namespace wh
