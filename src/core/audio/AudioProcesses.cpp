#include "core/audio/AudioProcesses.h"

#include <algorithm>

#include "core/log/Log.h"

namespace wh {

AudioProcessMonitor::AudioProcessMonitor(Runtime& runtime, AudioHardware& hardware, AppGrouping& grouping)
    : runtime_(runtime), hardware_(hardware), grouping_(grouping) {}

void AudioProcessMonitor::start() {
  if (listListener_) return;
  listListener_ = std::make_unique<CA::Listener>(hardware_, audioSystemObject, AudioProperty::processObjectList,
                                                 lifetime_.guard([this] { scheduleRefresh(); }));
  refresh();
  schedulePoll();
}

AudioProcessMonitor::ObserverKey AudioProcessMonitor::addObserver(Observer observer) {
  const ObserverKey key = nextObserverKey_++;
  observers_.emplace(key, std::move(observer));
  return key;
}

void AudioProcessMonitor::removeObserver(ObserverKey key) { observers_.erase(key); }

void AudioProcessMonitor::scheduleRefresh() {
  if (pending_) return;
  pending_ = true;
  pendingRefresh_ = runtime_.main().after(coalescingDelay, lifetime_.guard([this] {
    pending_ = false;
    refresh();
  }));
}

void AudioProcessMonitor::schedulePoll() {
  const bool active = std::any_of(processes_.begin(), processes_.end(),
                                  [](const AudioProcess& p) { return p.runningInput || p.runningOutput; });
  const double interval = active ? activePollInterval : idlePollInterval;
  if (poll_ && pollIntervalValue_ == interval) return;
  if (poll_) poll_->invalidate();
  pollIntervalValue_ = interval;
  poll_ = runtime_.main().every(interval, interval / 4, lifetime_.guard([this] { refresh(); }));
}

void AudioProcessMonitor::refresh() {
  const std::vector<AudioObjectID> objects = hardware_.processObjects();
  std::optional<std::set<std::string>> runningApps;  // computed once, when first needed
  const std::int32_t ownPid = grouping_.ownPid();

  std::vector<AudioProcess> list;
  list.reserve(objects.size());
  std::vector<AudioObjectID> listed;
  listed.reserve(objects.size());
  for (AudioObjectID object : objects) {
    auto [cached, isNew] = identities_.try_emplace(object);
    Identity& identity = cached->second;
    if (isNew) {
      identity.pid = hardware_.processPID(object).value_or(0);
      identity.bundleID = hardware_.processBundleID(object).value_or("");
      if (identity.bundleID.empty()) identity.bundleID = grouping_.bundleIdentifier(identity.pid).value_or("");
    }
    if (identity.pid == ownPid) {
      identities_.erase(cached);  // the agent's own process leaves no trace
      continue;
    }

    std::string appID;
    if (identity.appID) {
      appID = *identity.appID;
    } else {
      if (!runningApps) runningApps = grouping_.runningAppIDs();
      appID = grouping_.owningApp(identity.pid, identity.bundleID, *runningApps);
      identity.tries += 1;
      if (runningApps->count(appID) > 0 || identity.tries >= maxIdentityTries) identity.appID = appID;
    }

    AudioProcess process;
    process.object = object;
    process.pid = identity.pid;
    process.bundleID = identity.bundleID;
    process.runningInput = hardware_.processIsRunningInput(object).value_or(false);
    process.runningOutput = hardware_.processIsRunningOutput(object).value_or(false);
    process.appID = std::move(appID);
    list.push_back(std::move(process));
    listed.push_back(object);

    if (perProcess_.count(object) == 0) {
      auto& listeners = perProcess_[object];
      for (AudioProperty property : {AudioProperty::processIsRunning, AudioProperty::processIsRunningInput,
                                     AudioProperty::processIsRunningOutput}) {
        listeners.push_back(std::make_unique<CA::Listener>(hardware_, object, property,
                                                           lifetime_.guard([this] { scheduleRefresh(); })));
      }
    }
  }

  std::sort(listed.begin(), listed.end());
  const auto gone = [&](const auto& entry) { return !std::binary_search(listed.begin(), listed.end(), entry.first); };
  std::erase_if(perProcess_, gone);
  std::erase_if(identities_, gone);

  if (list == processes_) {
    if (poll_) schedulePoll();
    return;
  }
  logOutputChanges(list);
  processes_ = std::move(list);
  // Observers may unsubscribe while being called: call a copy.
  const auto observers = observers_;
  for (const auto& [key, observer] : observers) observer(processes_);
  if (poll_) schedulePoll();
}

void AudioProcessMonitor::logOutputChanges(const std::vector<AudioProcess>& list) const {
  std::map<AudioObjectID, bool> before;
  for (const auto& process : processes_) before[process.object] = process.runningOutput;
  for (const auto& process : list) {
    const auto found = before.find(process.object);
    if (found == before.end() || found->second == process.runningOutput) continue;
    Log::info(process.bundleID + (process.runningOutput ? " started output" : " stopped output"));
  }
}

}  // namespace wh
