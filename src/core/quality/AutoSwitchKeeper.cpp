#include "core/quality/AutoSwitchKeeper.h"

#include "core/log/Log.h"

namespace wh {

std::string AutoSwitchKeeper::described(const std::optional<AutoSwitchReading>& reading,
                                        const std::optional<Record>& kept) {
  if (!reading) return kept ? "none now (the person's setting to put back: " + kept->setting + ")" : "none";
  if (reading->on || !kept) return reading->owner + ": " + (reading->on ? "on" : "off") + ", as the person set it";
  return reading->owner + ": off, by Wrenhaven (the person's setting: " + kept->setting + ")";
}

std::string AutoSwitchKeeper::lookNow() const { return described(server_.read(), record()); }

std::optional<AutoSwitchKeeper::Record> AutoSwitchKeeper::record() const {
  const auto stored = state_.object(recordKey);
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
  evaluate();
}

void AutoSwitchKeeper::evaluate() {
  const auto reading = server_.read();
  const auto kept = record();
  if (!reading) {
    // No switch, or no server: nothing to keep. A record stays for the server that comes back.
    report(false, described(reading, kept));
    return;
  }
  if (running_ && settings_.boolValue(Keys::pinInput, true)) return keep(*reading);
  if (kept) return putBack(*kept, running_ ? "music quality is no longer kept" : "the agent stops");
  report(false, described(reading, std::nullopt));
}

void AutoSwitchKeeper::keep(const AutoSwitchReading& reading) {
  if (!reading.on) {
    // Off already: by this agent (a record says what the person had), or by the person.
    const auto kept = record();
    report(kept.has_value(), described(reading, kept));
    return;
  }
  // On now: this is the person's setting (also after the server restarted with it). Written down
  // before it is changed, so a crash cannot lose it.
  state_.set(recordKey, StoreValue::fromJson({{"owner", reading.owner}, {"setting", reading.setting}}));
  const WriteAnswer answer = server_.turnOff();
  if (!answer.accepted) {
    Log::error("could not turn off automatic headset switching of " + reading.owner + ": " + answer.reason);
    state_.set(recordKey, std::nullopt);
    report(false, reading.owner + ": on, as the person set it (could not turn it off: " + answer.reason + ")");
    return;
  }
  Log::info("turned off automatic headset switching of " + reading.owner + " while music quality is kept");
  report(true, described(server_.read(), record()));
}

void AutoSwitchKeeper::putBack(const Record& kept, const std::string& when) {
  const WriteAnswer answer = server_.putBack(kept.setting);
  if (!answer.accepted) {
    Log::error("could not put back automatic headset switching of " + kept.owner + ": " + answer.reason);
    report(true, kept.owner + ": off, by Wrenhaven (could not put back " + kept.setting + ": " + answer.reason + ")");
    return;
  }
  state_.set(recordKey, std::nullopt);
  Log::info("put back automatic headset switching of " + kept.owner + " as the person set it (" + kept.setting +
            "): " + when);
  report(false, described(server_.read(), std::nullopt));
}

void AutoSwitchKeeper::report(bool offByAgent, std::string description) {
  if (offByAgent == offByAgent_ && description == description_) return;
  offByAgent_ = offByAgent;
  description_ = std::move(description);
  if (onChange) onChange();
}

}  // namespace wh
