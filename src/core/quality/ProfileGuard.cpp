#include "core/quality/ProfileGuard.h"

#include <algorithm>
#include <cmath>

#include "core/log/Log.h"

namespace wh {

std::string describe(ProfileGuard::Status status) {
  switch (status) {
    case ProfileGuard::Status::off:
      return "off";
    case ProfileGuard::Status::idle:
      return "idle";
    case ProfileGuard::Status::holding:
      return "holding";
    case ProfileGuard::Status::released:
      return "released";
    case ProfileGuard::Status::fighting:
      return "fighting";
  }
  return "idle";
}

std::string qualityText(double rate) {
  // Kilohertz with one decimal at most: 44.1, 48, 16.
  const long tenths = std::lround(rate / 100.0);
  std::string text = std::to_string(tenths / 10);
  if (tenths % 10 != 0) text += "." + std::to_string(tenths % 10);
  return text + " kHz, " + (rate >= ProfileGuard::fullQualityRate ? "full quality" : "call quality");
}

ProfileGuard::ProfileGuard(Runtime& runtime, Settings& settings, AudioHardware& hardware,
                           AudioProcessMonitor& processes, InputPinner& pinner)
    : runtime_(runtime),
      settings_(settings),
      hardware_(hardware),
      processes_(processes),
      pinner_(pinner),
      pacer_(runtime, "another app keeps switching the headphones to their headset profile; profile guard paused") {}

ProfileGuard::~ProfileGuard() { stopObserving(); }

void ProfileGuard::stopObserving() {
  listeners_.clear();
  if (processObserver_) processes_.removeObserver(*processObserver_);
  processObserver_.reset();
  pinner_.onEvaluated = nullptr;
}

void ProfileGuard::start() {
  stopObserving();
  pacer_.reset();
  memory_.clear();
  // The program that makes a server switch profiles is recording by then, but the process monitor
  // may not have read it yet: read it first, so that a call's switch is judged as a call's. The
  // same for a recording that starts, stops or moves to another microphone.
  for (AudioProperty property : {AudioProperty::cards, AudioProperty::recordings}) {
    listeners_.push_back(std::make_unique<CA::Listener>(hardware_, audioSystemObject, property,
                                                        lifetime_.guard([this] {
                                                          processes_.refresh();
                                                          evaluate();
                                                        })));
  }
  for (AudioProperty property : {AudioProperty::devices, AudioProperty::defaultOutputDevice}) {
    listeners_.push_back(std::make_unique<CA::Listener>(hardware_, audioSystemObject, property,
                                                        lifetime_.guard([this] { evaluate(); })));
  }
  processObserver_ = processes_.addObserver(lifetime_.guard([this](const std::vector<AudioProcess>&) { evaluate(); }));
  pinner_.onEvaluated = lifetime_.guard([this] { evaluate(); });
  evaluate();
}

std::string ProfileGuard::lastAction(const std::string& cardName) const {
  const auto found = memory_.find(cardName);
  return found == memory_.end() ? std::string() : found->second.lastAction;
}

std::vector<ProfileGuard::Guarded> ProfileGuard::guardedCards() const {
  std::vector<Guarded> out;
  const auto records = settings_.devices();
  for (auto& card : hardware_.cards()) {
    if (!Transport::isBluetooth(card.transport)) continue;
    // As for the input: the first record naming the headphones decides.
    const auto record = std::find_if(records.begin(), records.end(), [&](const DeviceSetting& device) {
      return AudioDevice::uidNamesAddress(card.name, device.address);
    });
    if (record == records.end() || !record->pinInput) continue;
    std::string name = card.description.empty() ? record->name : card.description;
    out.push_back({std::move(card), std::move(name), record->address});
  }
  return out;
}

bool ProfileGuard::recordedFrom(const std::string& address) const {
  const auto devices = AudioDevice::all(hardware_);
  return std::any_of(devices.begin(), devices.end(), [&](const AudioDevice& device) {
    return device.hasInput && Transport::isBluetooth(device.transport) &&
           AudioDevice::uidNamesAddress(device.uid, address) && hardware_.deviceIsRunningSomewhere(device.id) == true;
  });
}

bool ProfileGuard::anyRecording() const {
  const auto& list = processes_.processes();
  return std::any_of(list.begin(), list.end(), [](const AudioProcess& process) { return process.runningInput; });
}

std::optional<std::string> ProfileGuard::musicProfileFor(const AudioCard& card, const Memory& memory) const {
  std::optional<AudioProfile> best;
  for (const auto& profile : card.profiles) {
    if (profile.kind != ProfileKind::music || !profile.available) continue;
    if (profile.name == memory.musicProfile) return profile.name;
    if (!best || profile.priority > best->priority) best = profile;
  }
  return best ? std::optional(best->name) : std::nullopt;
}

std::optional<std::string> ProfileGuard::headsetProfileFor(const AudioCard& card) {
  std::optional<AudioProfile> best;
  for (const auto& profile : card.profiles) {
    if (profile.kind == ProfileKind::headset && profile.available && (!best || profile.priority > best->priority)) {
      best = profile;
    }
  }
  return best ? std::optional(best->name) : std::nullopt;
}

bool ProfileGuard::released(const std::string& why) {
  released_ = true;
  releasedWhy_ = why;
  setState(Status::released);
  return true;
}

void ProfileGuard::evaluate() {
  if (!settings_.boolValue(Keys::pinInput, true)) {
    setState(Status::off);
    return;
  }
  const bool release = (pinner_.headphoneMicAllowed() &&
                        released(pinner_.override() == InputPinner::Override::allowHeadphoneMic
                                     ? "the headphone microphone is allowed by hand"
                                     : "a call or the call mode needs the headphone microphone")) ||
                       (pinner_.status().kind() == InputPinner::Status::Kind::noMicrophone &&
                        released("there is no other microphone")) ||
                       (pinner_.isFighting() && released("the input pinner is paused by a fight"));
  if (!release && released_) {  // a call, an override or the pinner's fight is over: the record starts afresh
    released_ = false;
    pacer_.reset();
  }
  // Until the server has answered a profile write, the card may read as written when it is not:
  // nothing is decided from it. The answer evaluates again.
  if (unanswered_ > 0) return;
  const auto cards = guardedCards();
  std::erase_if(memory_, [&](const auto& entry) {  // gone (or no longer guarded): a reconnect starts afresh
    return std::none_of(cards.begin(), cards.end(), [&](const Guarded& g) { return g.card.name == entry.first; });
  });
  nextCheck_.reset();
  bool holding = false;
  for (const auto& guarded : cards) {
    Memory& memory = memory_[guarded.card.name];
    // One write at a time; the status stays as it is until the answer.
    if (!(release ? decideReleased(guarded, memory) : decide(guarded, memory, holding))) return;
  }
  if (nextCheck_) restoreCheck_ = runtime_.main().after(*nextCheck_, lifetime_.guard([this] { evaluate(); }));
  if (!release) setState(holding ? Status::holding : Status::idle);
}

bool ProfileGuard::observe(const AudioCard& card, Memory& memory) {
  const bool switched = card.activeProfile != memory.seenProfile;
  memory.seenProfile = card.activeProfile;
  if (card.activeKind() == ProfileKind::music) {
    memory.musicProfile = card.activeProfile;
    memory.chosenByHand = false;
    memory.moveBackWhy.clear();
    if (memory.awaitingRestoreSince) {  // the policy's restore step has run (or someone did its work)
      memory.awaitingRestoreSince.reset();
      memory.recording = false;
      memory.policyHeadset.clear();
    }
  }
  return switched;
}

void ProfileGuard::awaitRestore(Memory& memory, bool recording) {
  const double now = runtime_.clock().now();
  // The policy restores 2 s after the last recording it counts has ended: while anything records,
  // or when it has just stopped, the wait starts again.
  if (!memory.awaitingRestoreSince || recording || memory.recording) memory.awaitingRestoreSince = now;
  memory.recording = recording;
  const double left = *memory.awaitingRestoreSince + restoreWait - now;
  if (!recording && (!nextCheck_ || left < *nextCheck_)) nextCheck_ = left;
}

void ProfileGuard::note(Memory& memory, std::string action) { memory.lastAction = std::move(action); }

bool ProfileGuard::decideReleased(const Guarded& guarded, Memory& memory) {
  observe(guarded.card, memory);
  const ProfileKind kind = guarded.card.activeKind();
  // The server does not switch for calls while the agent keeps its switch off: the guard does, once
  // per release (a refusal is not tried again until the next one).
  const auto headset = headsetProfileFor(guarded.card);
  if (kind == ProfileKind::music && !memory.movedForCall && headset && !pinner_.isFighting() &&
      movesCardsForCalls && movesCardsForCalls()) {
    memory.movedForCall = true;
    note(memory, "moved to its headset profile: " + releasedWhy_);
    memory.releaseNoted = releasedWhy_;
    write(guarded, *headset, "moved " + guarded.name + " to its headset profile " + *headset,
          "could not move " + guarded.name + " to its headset profile: ");
    return false;
  }
  // The person needs the headphone microphone now: a card the guard kept from its headset profile
  // gets it back, which the policy's restore step then remembers.
  if (kind == ProfileKind::music && !memory.policyHeadset.empty() && !memory.awaitingRestoreSince) {
    note(memory, "moved to its headset profile again: " + releasedWhy_);
    memory.releaseNoted = releasedWhy_;
    handBack(guarded, memory);
    return false;
  }
  // The call's recordings have ended: the policy restores the card itself, before the release ends.
  if (kind == ProfileKind::headset && (memory.awaitingRestoreSince || !anyRecording())) {
    awaitRestore(memory, anyRecording());
  }
  if (memory.releaseNoted != releasedWhy_) note(memory, "released: " + releasedWhy_);
  memory.releaseNoted = releasedWhy_;
  return true;
}

bool ProfileGuard::decide(const Guarded& guarded, Memory& memory, bool& holding) {
  const AudioCard& card = guarded.card;
  const bool switched = observe(card, memory);
  const ProfileKind kind = card.activeKind();
  memory.releaseNoted.clear();
  if (kind == ProfileKind::music) {
    holding = true;
    memory.movedForCall = false;
    if (memory.policyHeadset.empty() || anyRecording()) return true;
    note(memory, "moved to its headset profile again, for the server to remember when it restores");
    handBack(guarded, memory);
    return false;
  }
  if (kind != ProfileKind::headset || !musicProfileFor(card, memory)) return true;  // nothing to go back to
  holding = true;
  if (memory.chosenByHand) return true;
  if (recordedFrom(guarded.address)) {  // its own microphone in use: the policy remembers a headset profile
    memory.policyHeadset.clear();
    memory.awaitingRestoreSince.reset();
    memory.moveBackWhy.clear();
    note(memory, "left in its headset profile: its microphone records");
    return true;
  }
  if (memory.movedForCall) {  // the guard's own move for a call: undone when the release ends
    memory.movedForCall = false;
    memory.awaitingRestoreSince.reset();
    moveBack(guarded, memory, "the call is over");
    return false;
  }
  if (!memory.moveBackWhy.empty()) {  // a move back not yet made or refused: tried again at the pace
    moveBack(guarded, memory, memory.moveBackWhy);
    return false;
  }
  const bool recording = anyRecording();
  if (!memory.awaitingRestoreSince && !recording) {
    if (switched) {
      // Nothing records, so no server policy did this: a person did, in the sound settings or
      // with pactl. Theirs until the headphones reconnect.
      memory.chosenByHand = true;
      note(memory, "left in its headset profile: chosen by hand");
      Log::info(guarded.name + " switched to its headset profile by hand; left there until it reconnects");
      return true;
    }
    // The recording that explained the switch has ended: the policy restores the card itself.
    note(memory, "left in its headset profile: waiting for the server to restore it");
  }
  if (memory.awaitingRestoreSince || !recording) {
    awaitRestore(memory, recording);
    if (recording || runtime_.clock().now() - *memory.awaitingRestoreSince < restoreWait - 1e-9) return true;
    memory.awaitingRestoreSince.reset();
    memory.policyHeadset.clear();
    moveBack(guarded, memory, "the server did not restore it");
    return false;
  }
  memory.policyHeadset = card.activeProfile;
  moveBack(guarded, memory, "a recording not from its microphone switched it to " + card.activeProfile);
  return false;
}

void ProfileGuard::moveBack(const Guarded& guarded, Memory& memory, const std::string& why) {
  memory.moveBackWhy = why;  // owed until the server accepts (a retry, a refusal, a fight's end)
  switch (pacer_.request(lifetime_.guard([this] { evaluate(); }))) {
    case CorrectionPacer::Verdict::deferred:
      return;
    case CorrectionPacer::Verdict::fighting:
      note(memory, "paused: another program keeps switching it back");
      setState(Status::fighting);
      return;
    case CorrectionPacer::Verdict::go:
      break;
  }
  // A refusal (the server's, or a card gone meanwhile) is logged and stays on the fight record:
  // the evaluation after it finds the card where the server kept it and tries again at the
  // pinner's pace, so a server that keeps refusing ends in a fight.
  note(memory, "moved back to its music profile: " + why);
  write(guarded, *musicProfileFor(guarded.card, memory), "moved " + guarded.name + " back to its music profile",
        "could not move " + guarded.name + " back to its music profile: ");
}

void ProfileGuard::handBack(const Guarded& guarded, Memory& memory) {
  memory.awaitingRestoreSince = runtime_.clock().now();
  memory.recording = false;
  write(guarded, memory.policyHeadset, "moved " + guarded.name + " to its headset profile " + memory.policyHeadset,
        "could not move " + guarded.name + " to its headset profile: ");
}

void ProfileGuard::write(const Guarded& guarded, const std::string& profile, std::string accepted, std::string refused) {
  ++unanswered_;
  hardware_.setCardProfile(guarded.card.id, profile,
                           lifetime_.guard([this, card = guarded.card.name, accepted = std::move(accepted),
                                            refused = std::move(refused)](const WriteAnswer& answer) {
                             --unanswered_;
                             const auto memory = memory_.find(card);
                             if (answer.accepted) {
                               Log::info(accepted);
                               if (memory != memory_.end()) memory->second.moveBackWhy.clear();
                             } else {
                               Log::error(refused + answer.reason);
                               if (memory != memory_.end()) memory->second.lastAction += " (refused: " + answer.reason + ")";
                             }
                             evaluate();
                           }));
}

void ProfileGuard::setState(Status status) {
  std::string quality;
  const auto output = DefaultDevice::id(hardware_, Direction::output);
  const auto device = output ? AudioDevice::read(hardware_, *output) : std::nullopt;
  const auto rate = device && Transport::isBluetooth(device->transport) ? hardware_.deviceNominalSampleRate(device->id)
                                                                         : std::nullopt;
  if (rate) quality = device->name + ": " + qualityText(*rate);
  if (status == status_ && quality == outputQuality_) return;
  status_ = status;
  outputQuality_ = std::move(quality);
  if (onChange) onChange();
}

}  // namespace wh
