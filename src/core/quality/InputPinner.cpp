#include "core/quality/InputPinner.h"

#include <algorithm>

#include "core/log/Log.h"
#include "core/quality/CallDetector.h"

namespace wh {

namespace {

using Transport::isBluetooth;

}  // namespace

std::string describe(const InputPinner::Status& status) {
  using Kind = InputPinner::Status::Kind;
  switch (status.kind()) {
    case Kind::pinned:
      return "pinned:" + status.name();
    case Kind::off:
      return "off";
    case Kind::idle:
      return "idle";
    case Kind::releasedForCall:
      return "releasedForCall";
    case Kind::releasedManually:
      return "releasedManually";
    case Kind::noMicrophone:
      return "noMicrophone";
    case Kind::fighting:
      return "fighting";
  }
  return "idle";
}

InputPinner::InputPinner(Runtime& runtime, Settings& settings, AudioHardware& hardware,
                         AudioProcessMonitor& processes)
    : runtime_(runtime),
      settings_(settings),
      hardware_(hardware),
      processes_(processes),
      pacer_(runtime, "another app keeps switching the input; pinning paused") {}

InputPinner::~InputPinner() { stopObserving(); }

void InputPinner::stopObserving() {
  listeners_.clear();
  if (processObserver_) processes_.removeObserver(*processObserver_);
  processObserver_.reset();
}

void InputPinner::start() {
  stopObserving();
  pacer_.reset();
  for (AudioProperty property : {AudioProperty::defaultInputDevice, AudioProperty::devices}) {
    listeners_.push_back(std::make_unique<CA::Listener>(hardware_, audioSystemObject, property,
                                                        lifetime_.guard([this] { evaluate(); })));
  }
  processObserver_ = processes_.addObserver(
      lifetime_.guard([this](const std::vector<AudioProcess>& list) { processesChanged(list); }));
  // A call already going on when the pinner starts counts from the start, so the single
  // evaluation below releases instead of pinning first. A re-pin still waiting keeps its time.
  if (CallDetector::inCall(processes_.processes(), CallDetector::meetingApps(settings_))) {
    repinWork_.cancel();
    inCall_ = true;
  } else if (!repinWork_.isPending()) {
    inCall_ = false;
  }
  evaluate();
}

void InputPinner::processesChanged(const std::vector<AudioProcess>& processes) {
  const bool answer = CallDetector::inCall(processes, CallDetector::meetingApps(settings_));
  // What the last edge reported: a call that has ended but not yet been re-pinned is over,
  // so that a call starting again in the gap cancels the re-pin, and other changes of the
  // list in the gap leave its deadline alone.
  const bool callSeen = inCall_ && !repinWork_.isPending();
  if (answer == callSeen) return;
  repinWork_.cancel();
  if (answer) {
    inCall_ = true;
    evaluate();
    return;
  }
  repinWork_ = runtime_.main().after(repinDelay, lifetime_.guard([this] {
    inCall_ = false;
    pacer_.reset();
    evaluate();
  }));
}

std::optional<AudioDevice> InputPinner::preferredMicrophone() const {
  const auto stored = settings_.store().object(Keys::preferredInputUID);
  const auto uid = stored ? stored->asString() : std::nullopt;
  if (uid && !uid->empty()) {
    auto device = AudioDevice::byUID(hardware_, *uid);
    if (device && device->hasInput && !isBluetooth(device->transport)) return device;
  }
  return AudioDevice::builtInMicrophone(hardware_);
}

InputPinner::InputCheck InputPinner::checkDefaultInput() const {
  InputCheck check;
  if (const auto id = DefaultDevice::id(hardware_, Direction::input)) check.current = AudioDevice::read(hardware_, *id);
  if (!check.current || !isBluetooth(check.current->transport)) return check;
  // The first remembered headphones whose address the device's uid names decide; headphones
  // without a record are pinned.
  const auto devices = settings_.devices();
  const auto record = std::find_if(devices.begin(), devices.end(), [&](const DeviceSetting& device) {
    return AudioDevice::uidNamesAddress(check.current->uid, device.address);
  });
  check.needsCorrecting = record == devices.end() || record->pinInput;
  return check;
}

bool InputPinner::headphoneMicAllowed() const {
  switch (override_) {
    case Override::allowHeadphoneMic:
      return true;
    case Override::forcePin:
      return false;
    case Override::none:
      break;
  }
  switch (settings_.callMode()) {
    case CallModeOption::automatic:
      return inCall_;
    case CallModeOption::alwaysHeadphoneMic:
      return true;
    case CallModeOption::alwaysPinned:
      return false;
  }
  return false;
}

void InputPinner::evaluate() {
  decide();
  if (onEvaluated) onEvaluated();
}

void InputPinner::decide() {
  if (!settings_.boolValue(Keys::pinInput, true)) {
    setStatus(Status::off());
    return;
  }
  const auto microphone = preferredMicrophone();
  if (!microphone) {
    setStatus(Status::noMicrophone());
    return;
  }
  const InputCheck input = checkDefaultInput();
  if (headphoneMicAllowed()) {
    setStatus(override_ == Override::allowHeadphoneMic ? Status::releasedManually() : Status::releasedForCall());
    return;
  }
  // Until the server has answered a write, the input may read as written when it is not: nothing
  // is decided from it. The answer evaluates again.
  if (unanswered_ > 0) return;
  if (input.needsCorrecting) {
    correct(*microphone, input);
  } else {
    settle(*microphone, input);
  }
}

void InputPinner::correct(const AudioDevice& microphone, const InputCheck& input) {
  switch (pacer_.request(lifetime_.guard([this] { evaluate(); }))) {
    case CorrectionPacer::Verdict::deferred:
      return;
    case CorrectionPacer::Verdict::fighting:
      setStatus(Status::fighting());
      return;
    case CorrectionPacer::Verdict::go:
      break;
  }
  // An accepted write pins (the evaluation after the answer finds the microphone in place); a
  // refused one leaves the status as it was and stays on the fight record, so a server that keeps
  // refusing ends in a fight like a program that keeps switching back.
  ++unanswered_;
  const std::string line =
      "pinned input to " + microphone.name + " (was " + (input.current ? input.current->name : "?") + ")";
  DefaultDevice::set(hardware_, Direction::input, microphone.id, lifetime_.guard([this, line](const WriteAnswer& answer) {
    --unanswered_;
    if (answer.accepted) Log::info(line);
    evaluate();
  }));
}

void InputPinner::settle(const AudioDevice& microphone, const InputCheck& input) {
  const bool onMicrophone = input.current && input.current->uid == microphone.uid;
  const auto devices = AudioDevice::all(hardware_);
  const bool headsetPresent = std::any_of(devices.begin(), devices.end(), [](const AudioDevice& device) {
    return device.hasInput && isBluetooth(device.transport);
  });
  setStatus(onMicrophone && headsetPresent ? Status::pinned(microphone.name) : Status::idle());
}

void InputPinner::setStatus(Status status) {
  if (status == status_) return;
  status_ = std::move(status);
  if (onChange) onChange();
}

}  // namespace wh
