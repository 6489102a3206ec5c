#include "core/quality/AutoSwitchKeeper.h"

#include "core/log/Log.h"

namespace wh {

std::string AutoSwitchKeeper::described(const std::optional<AutoSwitchReading>& reading,
                                        const std::optional<Record>& kept) {
  if (!reading) return kept ? "none now (the person's setting to put back: " + kept->setting + ")" : "none";
  if (reading->on || !kept) return reading->owner + ": " + (reading->on ? "on" : "off") + ", as the person set it";
  return reading->owner + ": off, by Wrenhaven (the person's setting: " + kept->setting + ")";
}

AutoSwitchKeeper::AutoSwitchKeeper(Runtime& runtime, Settings& settings, HeadsetAutoSwitch& server, SettingsStore& state)
    : runtime_(runtime),
      settings_(settings),
      server_(server),
      state_(state),
      queue_(runtime.makeSerialQueue(queueLabel, QueuePriority::utility)) {}

std::string AutoSwitchKeeper::lookNow() const { return described(server_.read(), record(state_)); }

std::optional<AutoSwitchKeeper::Record> AutoSwitchKeeper::record(const SettingsStore& state) {
  const auto stored = state.object(recordKey);
  if (!stored || stored->kind() != StoreValue::Kind::dictionary) return std::nullopt;
  const auto& json = stored->json();
  if (!json.contains("owner") || !json.contains("setting") || !json["owner"].is_string() ||
      !json["setting"].is_string()) {
    return std::nullopt;
  }
  return Record{json["owner"].get<std::string>(), json["setting"].get<std::string>()};
}

void AutoSwitchKeeper::start() {
  running_ = true;
  evaluate();
}

void AutoSwitchKeeper::stop() {
  running_ = false;
  Outcome outcome;
  queue_->sync([&] { outcome = decide(server_, state_, false, "the agent stops"); });
  settle(std::move(outcome));
}

void AutoSwitchKeeper::evaluate() {
  if (std::exchange(onItsWay_, true)) {
    again_ = true;
    return;
  }
  const bool keeping = running_ && settings_.boolValue(Keys::pinInput, true);
  const std::string why = running_ ? "music quality is no longer kept" : "the agent stops";
  runThenMain<Outcome>(
      *queue_, runtime_.main(), lifetime_,
      [&server = server_, &state = state_, keeping, why] { return decide(server, state, keeping, why); },
      [this](Outcome outcome) {
        onItsWay_ = false;
        settle(std::move(outcome));
        if (std::exchange(again_, false)) evaluate();
      });
}

AutoSwitchKeeper::Outcome AutoSwitchKeeper::decide(HeadsetAutoSwitch& server, SettingsStore& state, bool keeping,
                                                   const std::string& why) {
  const auto reading = server.read();
  const auto kept = record(state);
  // No switch, or no server: nothing to keep. A record stays for the server that comes back.
  if (!reading) return {false, described(reading, kept), {}};
  if (keeping) return keep(server, state, *reading);
  if (kept) return putBack(server, state, *kept, why);
  return {false, described(reading, std::nullopt), {}};
}

AutoSwitchKeeper::Outcome AutoSwitchKeeper::keep(HeadsetAutoSwitch& server, SettingsStore& state,
                                                 const AutoSwitchReading& reading) {
  if (!reading.on) {
    // Off already: by this agent (a record says what the person had), or by the person.
    const auto kept = record(state);
    return {kept.has_value(), described(reading, kept), {}};
  }
  // On now: this is the person's setting (also after the server restarted with it). Written down
  // before it is changed, so a crash cannot lose it.
  state.set(recordKey, StoreValue::fromJson({{"owner", reading.owner}, {"setting", reading.setting}}));
  const WriteAnswer answer = server.turnOff();
  if (!answer.accepted) {
    state.set(recordKey, std::nullopt);
    return {false, reading.owner + ": on, as the person set it (could not turn it off: " + answer.reason + ")",
            {{true, "could not turn off automatic headset switching of " + reading.owner + ": " + answer.reason}}};
  }
  return {true, described(server.read(), record(state)),
          {{false, "turned off automatic headset switching of " + reading.owner + " while music quality is kept"}}};
}

AutoSwitchKeeper::Outcome AutoSwitchKeeper::putBack(HeadsetAutoSwitch& server, SettingsStore& state,
                                                    const Record& kept, const std::string& why) {
  const WriteAnswer answer = server.putBack(kept.setting);
  if (!answer.accepted) {
    return {true, kept.owner + ": off, by Wrenhaven (could not put back " + kept.setting + ": " + answer.reason + ")",
            {{true, "could not put back automatic headset switching of " + kept.owner + ": " + answer.reason}}};
  }
  state.set(recordKey, std::nullopt);
  return {false, described(server.read(), std::nullopt),
          {{false, "put back automatic headset switching of " + kept.owner + " as the person set it (" + kept.setting +
                       "): " + why}}};
}

void AutoSwitchKeeper::settle(Outcome outcome) {
  for (const auto& [error, line] : outcome.said) error ? Log::error(line) : Log::info(line);
  if (outcome.offByAgent == offByAgent_ && outcome.description == description_) return;
  offByAgent_ = outcome.offByAgent;
  description_ = std::move(outcome.description);
  if (onChange) onChange();
}

}  // namespace wh
