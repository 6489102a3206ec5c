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
    : settings_(settings),
      hardware_(hardware),
      processes_(processes),
      pinner_(pinner),
      pacer_(runtime, "another app keeps switching the headphones to their headset profile; profile guard paused") {}

ProfileGuard::~ProfileGuard() { stopObserving(); }

void ProfileGuard::stopObserving() {
  listeners_.clear();
  pinner_.onEvaluated = nullptr;
}

void ProfileGuard::start() {
  stopObserving();
  pacer_.reset();
  // The program that makes a server switch profiles is recording by then, but the process monitor
  // may not have read it yet: read it first, so that a call's switch is judged as a call's.
  listeners_.push_back(std::make_unique<CA::Listener>(hardware_, audioSystemObject, AudioProperty::cards,
                                                      lifetime_.guard([this] {
                                                        processes_.refresh();
                                                        evaluate();
                                                      })));
  for (AudioProperty property : {AudioProperty::devices, AudioProperty::defaultOutputDevice}) {
    listeners_.push_back(std::make_unique<CA::Listener>(hardware_, audioSystemObject, property,
                                                        lifetime_.guard([this] { evaluate(); })));
  }
  pinner_.onEvaluated = lifetime_.guard([this] { evaluate(); });
  evaluate();
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

std::optional<std::string> ProfileGuard::musicProfileFor(const AudioCard& card) const {
  std::optional<AudioProfile> best;
  const auto remembered = musicProfiles_.find(card.name);
  for (const auto& profile : card.profiles) {
    if (profile.kind != ProfileKind::music || !profile.available) continue;
    if (remembered != musicProfiles_.end() && profile.name == remembered->second) return profile.name;
    if (!best || profile.priority > best->priority) best = profile;
  }
  return best ? std::optional(best->name) : std::nullopt;
}

void ProfileGuard::evaluate() {
  if (!settings_.boolValue(Keys::pinInput, true)) {
    setState(Status::off);
    return;
  }
  if (pinner_.headphoneMicAllowed() || pinner_.isFighting()) {
    released_ = true;
    setState(Status::released);
    return;
  }
  if (released_) {  // a call, an override or the pinner's fight is over: the record starts afresh
    released_ = false;
    pacer_.reset();
  }
  // Until the server has answered a profile write, the card may read as written when it is not:
  // nothing is decided from it. The answer evaluates again.
  if (unanswered_ > 0) return;
  bool holding = false;
  for (const auto& guarded : guardedCards()) {
    const AudioCard& card = guarded.card;
    const ProfileKind kind = card.activeKind();
    if (kind == ProfileKind::music) musicProfiles_[card.name] = card.activeProfile;
    if (kind != ProfileKind::headset || recordedFrom(guarded.address)) {
      holding = holding || kind == ProfileKind::music || kind == ProfileKind::headset;
      continue;
    }
    if (!musicProfileFor(card)) continue;  // nothing to go back to
    // One card at a time; the status stays as it is until the answer.
    moveBack(guarded);
    return;
  }
  setState(holding ? Status::holding : Status::idle);
}

void ProfileGuard::moveBack(const Guarded& guarded) {
  switch (pacer_.request(lifetime_.guard([this] { evaluate(); }))) {
    case CorrectionPacer::Verdict::deferred:
      return;
    case CorrectionPacer::Verdict::fighting:
      setState(Status::fighting);
      return;
    case CorrectionPacer::Verdict::go:
      break;
  }
  // A refusal (the server's, or a card gone meanwhile) is logged and stays on the fight record:
  // the evaluation after it finds the card where the server kept it and tries again at the
  // pinner's pace, so a server that keeps refusing ends in a fight.
  ++unanswered_;
  hardware_.setCardProfile(guarded.card.id, *musicProfileFor(guarded.card),
                           lifetime_.guard([this, name = guarded.name](const WriteAnswer& answer) {
                             --unanswered_;
                             if (answer.accepted) {
                               Log::info("moved " + name + " back to its music profile");
                             } else {
                               Log::error("could not move " + name + " back to its music profile: " + answer.reason);
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
