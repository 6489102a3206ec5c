#include "core/bluetooth/OutputSwitcher.h"

#include "core/audio/CoreAudio.h"
#include "core/log/Log.h"
#include "core/settings/Address.h"

namespace wh {

OutputSwitcher::Audio OutputSwitcher::Audio::live(AudioHardware& hardware) {
  return {
      [&hardware](const std::string& address) -> std::optional<DeviceID> {
        if (auto device = AudioDevice::forHeadphones(hardware, address)) return device->id;
        return std::nullopt;
      },
      [&hardware] { return DefaultDevice::id(hardware, Direction::output); },
      [&hardware](DeviceID id, WriteDone done) { DefaultDevice::set(hardware, Direction::output, id, std::move(done)); },
      [&hardware](DeviceID id) {
        if (auto device = AudioDevice::read(hardware, id)) return device->name;
        return std::to_string(id);
      },
      [&hardware](std::function<void()> changed) -> std::shared_ptr<void> {
        return std::make_shared<CA::Listener>(hardware, audioSystemObject, AudioProperty::devices, std::move(changed));
      },
  };
}

OutputSwitcher::OutputSwitcher(Runtime& runtime, Audio audio) : runtime_(runtime), audio_(std::move(audio)) {}

bool OutputSwitcher::current(const std::string& address, int generation) const {
  auto found = generation_.find(address);
  return found != generation_.end() && found->second == generation;
}

void OutputSwitcher::begin(const std::string& rawAddress) {
  const std::string address = normalizeAddress(rawAddress);
  const int generation = ++generation_[address];
  waiting_[address] = {generation, runtime_.clock().now()};
  // Registered once and kept: a report while nothing waits costs a map lookup.
  if (!watching_ && audio_.watch) watching_ = audio_.watch(lifetime_.guard([this] { devicesChanged(); }));
  poll(address, generation);
}

void OutputSwitcher::cancel(const std::string& rawAddress) {
  const std::string address = normalizeAddress(rawAddress);
  // The repair's own disconnect must not end the repair.
  if (repairing_.count(address) > 0) return;
  ++generation_[address];
  waiting_.erase(address);
}

void OutputSwitcher::devicesChanged() {
  const auto waiting = waiting_;  // `found` ends waits
  for (const auto& [address, wait] : waiting) found(address, wait.generation);
}

bool OutputSwitcher::found(const std::string& address, int generation) {
  const auto id = audio_.find(address);
  if (!id) return false;
  waiting_.erase(address);
  apply(*id);
  for (double delay : {firstRecheck, secondRecheck}) {
    runtime_.main().after(delay, lifetime_.guard([this, address, generation] { recheck(address, generation); }));
  }
  return true;
}

void OutputSwitcher::poll(const std::string& address, int generation) {
  const auto waiting = waiting_.find(address);
  if (waiting == waiting_.end() || waiting->second.generation != generation) return;
  if (found(address, generation)) return;
  if (runtime_.clock().now() - waiting->second.started < giveUpAfter) {
    runtime_.main().after(pollEvery, lifetime_.guard([this, address, generation] { poll(address, generation); }));
    return;
  }
  waiting_.erase(waiting);
  if (repairUsed.count(address) == 0 && reconnect) {
    repairUsed.insert(address);
    repairing_.insert(address);
    Log::info("no audio device for " + address + " after connect; reconnecting once");
    reconnect(address, lifetime_.guard([this, address, generation](bool connected) {
      repairing_.erase(address);
      if (connected && current(address, generation)) begin(address);
    }));
    return;
  }
  Log::info("gave up setting output for " + address);
}

void OutputSwitcher::apply(DeviceID id) {
  if (audio_.current() == id) return;
  // A refusal is not reported: the re-checks set it again.
  audio_.set(id, lifetime_.guard([this, id](const WriteAnswer& answer) {
    if (answer.accepted) Log::info("output set to " + audio_.name(id));
  }));
}

void OutputSwitcher::recheck(const std::string& address, int generation) {
  if (!current(address, generation)) return;
  const auto id = audio_.find(address);
  if (!id) return;
  const auto now = audio_.current();
  if (now && *now == *id) return;
  Log::info("output moved away from " + audio_.name(*id) + "; setting it again");
  audio_.set(*id, {});
}

}  // namespace wh
