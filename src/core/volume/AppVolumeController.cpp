#include "core/volume/AppVolumeController.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/log/Log.h"

namespace wh {

namespace AppVolumePlan {

std::vector<Entry> entries(const std::vector<AudioProcess>& processes, const std::set<std::string>& runningApps,
                           const std::set<std::string>& ignored) {
  std::map<std::string, Entry> byApp;  // sorted by bundle id
  for (const AudioProcess& process : processes) {
    if (process.bundleID.empty()) continue;
    const std::string key = process.appID.empty() ? AppGrouping::parent(process.bundleID, runningApps) : process.appID;
    // A process of the ignored list stays out also where it is counted under another app (a
    // sound server started by the session's own program).
    if (runningApps.count(key) == 0 || ignored.count(key) > 0 || ignored.count(process.bundleID) > 0) continue;
    Entry& entry = byApp[key];
    entry.bundleID = key;
    entry.processes.push_back(process.object);
    entry.playing = entry.playing || process.runningOutput;
  }
  std::vector<Entry> out;
  for (auto& [key, entry] : byApp) out.push_back(std::move(entry));
  return out;
}

}  // namespace AppVolumePlan

namespace {

const char* modeText(ProcessTap::Mode mode) { return mode == ProcessTap::Mode::gain ? "gain" : "mute"; }

}  // namespace

AppVolumeController::AppVolumeController(Runtime& runtime, Settings& settings, AudioHardware& audio,
                                         AudioProcessMonitor& monitor, AppGrouping& grouping, DesktopEntries& desktop,
                                         ProcessTaps& taps, std::set<std::string> ignored)
    : runtime_(runtime),
      settings_(settings),
      audio_(audio),
      monitor_(monitor),
      grouping_(grouping),
      desktop_(desktop),
      factory_(taps),
      ignored_(std::move(ignored)),
      tapQueue_(runtime.makeSerialQueue("wrenhaven.taps", QueuePriority::userInitiated)) {}

AppVolumeController::~AppVolumeController() {
  if (observer_) monitor_.removeObserver(*observer_);
}

void AppVolumeController::start() {
  if (observer_) return;
  tapQueue_->async([&factory = factory_] { factory.removeLeftovers(); });
  observer_ = monitor_.addObserver(
      lifetime_.guard([this](const std::vector<AudioProcess>& processes) { processesChanged(processes); }));
  processesChanged(monitor_.processes());
  outputListener_ = std::make_unique<CA::Listener>(audio_, audioSystemObject, AudioProperty::defaultOutputDevice,
                                                   lifetime_.guard([this] { outputChanged(); }));
}

void AppVolumeController::stop() {
  if (stopped_) return;
  stopped_ = true;
  if (observer_) monitor_.removeObserver(*std::exchange(observer_, std::nullopt));
  outputListener_.reset();
  stopWork_.clear();
  signalChecks_.clear();
  for (const auto& [bundleID, wanted] : building_) ++generations_[bundleID];  // their answers are stale
  building_.clear();
  std::vector<std::shared_ptr<ProcessTap>> running;
  for (const auto& [bundleID, tap] : taps_) {
    running.push_back(tap.tap);
    Log::info("removed tap for " + bundleID);
  }
  taps_.clear();
  // The running taps are among those the queue made; the closure holds them until they stop.
  tapQueue_->sync([running = std::move(running), made = made_] {
    for (const auto& weak : *made) {
      if (const auto tap = weak.lock()) tap->stop();
    }
    made->clear();
  });
  changed();
}

void AppVolumeController::processesChanged(const std::vector<AudioProcess>& processes) {
  const auto runningApps = grouping_.runningAppIDs();
  std::map<std::string, AppVolumePlan::Entry> plan;
  for (auto& entry : AppVolumePlan::entries(processes, runningApps, ignored_)) plan[entry.bundleID] = std::move(entry);

  const double now = runtime_.clock().now();
  for (const auto& [bundleID, entry] : plan) {
    if (entry.playing) lastPlayed_[bundleID] = now;
  }
  std::erase_if(lastPlayed_, [&](const auto& item) {
    return runningApps.count(item.first) == 0 || now - item.second >= listedAfterPlaying;
  });
  apps_.clear();
  for (const auto& [bundleID, at] : lastPlayed_) apps_.push_back(bundleID);
  std::stable_sort(apps_.begin(), apps_.end(),
                   [&](const std::string& a, const std::string& b) { return lastPlayed_[a] > lastPlayed_[b]; });

  std::set<std::string> touched;
  for (const auto& [bundleID, entry] : plan) {
    const auto old = entries_.find(bundleID);
    if (old == entries_.end() || !(old->second == entry)) touched.insert(bundleID);
  }
  for (const auto& [bundleID, entry] : entries_) {
    if (plan.count(bundleID) == 0) touched.insert(bundleID);
  }
  entries_ = std::move(plan);
  for (const auto& bundleID : touched) apply(bundleID);
  changed();
}

void AppVolumeController::outputChanged() {
  std::set<std::string> gainApps;
  for (const auto& [bundleID, running] : taps_) {
    if (running.wanted.mode == ProcessTap::Mode::gain) gainApps.insert(bundleID);
  }
  for (const auto& [bundleID, wanted] : building_) {
    if (wanted.mode == ProcessTap::Mode::gain) gainApps.insert(bundleID);
  }
  for (const auto& bundleID : gainApps) apply(bundleID);
}

std::optional<std::string> AppVolumeController::outputUID() const {
  const auto device = DefaultDevice::id(audio_, Direction::output);
  if (!device || *device == audioObjectUnknown) return std::nullopt;
  return audio_.deviceUID(*device);
}

void AppVolumeController::apply(const std::string& bundleID) {
  if (stopped_) return;
  const auto entry = entries_.find(bundleID);
  const auto settings = settings_.appVolumes();
  const auto record = settings.find(bundleID);
  std::optional<ProcessTap::Mode> mode;
  float gain = 1.0F;
  bool muted = false;
  if (record != settings.end()) {
    // A stored gain out of range or not a number counts as the nearest sensible value.
    gain = std::isnan(record->second.gain) ? 1.0F : std::clamp(record->second.gain, 0.0F, 1.0F);
    muted = record->second.muted;
  }
  // Whether the app has a setting of its own, also while it has no processes: a client without
  // streams is no process, and its next stream must find the tap still there.
  const bool nonDefault = gain < fullGain || muted;
  if (entry != entries_.end() && record != settings.end()) {
    if (gain >= fullGain) {
      if (muted) mode = ProcessTap::Mode::mute;
    } else if (gain <= mutedGain || muted) {
      mode = ProcessTap::Mode::mute;
    } else if (entry->second.playing) {
      mode = ProcessTap::Mode::gain;
    }
  }

  if (!mode) {
    if (building_.erase(bundleID) > 0) ++generations_[bundleID];  // the build in flight is no longer wanted
    if (taps_.count(bundleID) > 0) scheduleStop(bundleID, nonDefault);
    return;
  }

  stopWork_.erase(bundleID);
  Wanted wanted{*mode, entry->second.processes, outputUID()};
  const auto running = taps_.find(bundleID);
  const auto inFlight = building_.find(bundleID);
  if (inFlight != building_.end() ? inFlight->second == wanted
                                  : running != taps_.end() && running->second.wanted == wanted && !running->second.lost) {
    if (running != taps_.end() && *mode == ProcessTap::Mode::gain) running->second.tap->box().setGain(gain);
    return;
  }
  build(bundleID, std::move(wanted), gain);
}

void AppVolumeController::build(const std::string& bundleID, Wanted wanted, float gain) {
  const std::uint64_t generation = ++generations_[bundleID];
  building_[bundleID] = wanted;
  Log::info(std::string("building ") + modeText(wanted.mode) + " tap for " + bundleID);
  ProcessTap::Request request{bundleID, wanted.processes, wanted.mode, wanted.outputUID, gain, {}};
  // The guard is made here, on the main thread; the tap calls from its own.
  request.lostHold = [&main = runtime_.main(),
                      report = lifetime_.guard([this, bundleID, generation] { lostHold(bundleID, generation); })] {
    main.post(report);
  };
  runThenMain<ProcessTaps::Result>(
      *tapQueue_, runtime_.main(), lifetime_,
      [&factory = factory_, request, made = made_] {
        auto result = factory.build(request);
        if (const auto* tap = std::get_if<std::shared_ptr<ProcessTap>>(&result)) {
          std::erase_if(*made, [](const auto& weak) { return weak.expired(); });
          made->push_back(*tap);
        }
        return result;
      },
      [this, bundleID, generation, wanted](ProcessTaps::Result result) {
        built(bundleID, generation, wanted, std::move(result));
      });
}

void AppVolumeController::built(const std::string& bundleID, std::uint64_t generation, const Wanted& wanted,
                                ProcessTaps::Result result) {
  if (stopped_) return;  // stop() has stopped every tap the queue built
  const bool current = generations_[bundleID] == generation;
  if (auto* failure = std::get_if<ProcessTap::Failure>(&result)) {
    if (!current) return;
    building_.erase(bundleID);
    Log::error("could not build the tap for " + bundleID + ": status " + std::to_string(failure->status));
    showFailure(bundleID);
    return;
  }
  auto tap = std::get<std::shared_ptr<ProcessTap>>(std::move(result));
  if (!current) {
    stopOnQueue(std::move(tap));
    return;
  }
  building_.erase(bundleID);
  const auto lostEarly = lostBuild_.find(bundleID);
  const bool lost = lostEarly != lostBuild_.end() && lostEarly->second == generation;
  if (lostEarly != lostBuild_.end()) lostBuild_.erase(lostEarly);
  if (const auto previous = taps_.find(bundleID); previous != taps_.end()) stopOnQueue(previous->second.tap);
  // The gain may have moved while the tap was being built.
  const auto settings = settings_.appVolumes();
  if (const auto record = settings.find(bundleID); record != settings.end() && !std::isnan(record->second.gain)) {
    tap->box().setGain(std::clamp(record->second.gain, 0.0F, 1.0F));
  }
  taps_[bundleID] = {wanted, tap, generation, lost};
  // A failure of this app's that a later build got past (a sound server that was restarting, an
  // output that was going away) is over.
  if (problem_.kind() == Problem::Kind::failed && failedApp_ == bundleID && !lost) problem_ = Problem::none();
  Log::info(std::string("built ") + modeText(wanted.mode) + " tap for " + bundleID);
  if (wanted.mode == ProcessTap::Mode::gain) checkSignal(bundleID, tap);
  changed();
}

// The app's current tap (or the build on its way) cannot keep all of its sound: it plays louder
// than its slider says, so the user is told. An older tap's news is stale.
void AppVolumeController::lostHold(const std::string& bundleID, std::uint64_t generation) {
  if (stopped_) return;
  const auto running = taps_.find(bundleID);
  if (running != taps_.end() && running->second.generation == generation) {
    running->second.lost = true;
  } else if (building_.count(bundleID) > 0 && generations_[bundleID] == generation) {
    lostBuild_[bundleID] = generation;
  } else {
    return;
  }
  Log::error("the tap for " + bundleID + " cannot keep the app's sound: something keeps moving it away");
  showFailure(bundleID);
}

void AppVolumeController::showFailure(const std::string& bundleID) {
  problem_ = Problem::failed("Could not change the volume of " + displayName(bundleID));
  failedApp_ = bundleID;
  changed();
}

void AppVolumeController::scheduleStop(const std::string& bundleID, bool keepAWhile) {
  // A delayed stop on its way keeps its time; a stop that is due at once replaces it.
  if (keepAWhile && stopWork_[bundleID].isPending()) return;
  auto stop = lifetime_.guard([this, bundleID] {
    const auto running = taps_.find(bundleID);
    if (running == taps_.end()) return;
    stopOnQueue(running->second.tap);
    taps_.erase(running);
    signalChecks_.erase(bundleID);
    Log::info("removed tap for " + bundleID);
    changed();
  });
  if (!keepAWhile) {
    stopWork_.erase(bundleID);
    stop();
    return;
  }
  stopWork_[bundleID] = runtime_.main().after(stopDelay, std::move(stop));
}

void AppVolumeController::stopOnQueue(std::shared_ptr<ProcessTap> tap) {
  tapQueue_->async([tap = std::move(tap)] { tap->stop(); });
}

void AppVolumeController::checkSignal(const std::string& bundleID, const std::shared_ptr<ProcessTap>& tap) {
  if (settings_.boolValue(Keys::audioCaptureVerified, false)) return;
  signalChecks_[bundleID] = runtime_.main().after(
      signalCheckDelay, lifetime_.guard([this, bundleID, weakTap = std::weak_ptr<ProcessTap>(tap)] {
        const auto running = taps_.find(bundleID);
        const auto shared = weakTap.lock();
        if (!shared || running == taps_.end() || running->second.tap != shared) return;
        if (shared->box().sawSignal()) {
          settings_.store().set(Keys::audioCaptureVerified, StoreValue::boolean(true));
          return;
        }
        if (!isPlaying(bundleID)) return;
        Log::info("tap for " + bundleID + " delivered only silence; assuming audio recording permission is missing");
        problem_ = Problem::needsPermission();
        changed();
      }));
}

void AppVolumeController::setGain(const std::string& bundleID, float gain) {
  if (std::isnan(gain)) return;
  gain = std::clamp(gain, 0.0F, 1.0F);  // never amplifies
  auto volumes = settings_.appVolumes();
  const bool muted = volumes.count(bundleID) > 0 && volumes[bundleID].muted;
  volumes[bundleID] = {gain, muted};
  settings_.setAppVolumes(volumes);
  if (const auto running = taps_.find(bundleID);
      running != taps_.end() && running->second.wanted.mode == ProcessTap::Mode::gain) {
    running->second.tap->box().setGain(gain);
  }
  apply(bundleID);
  changed();
}

void AppVolumeController::toggleMute(const std::string& bundleID) {
  auto volumes = settings_.appVolumes();
  AppVolumeSetting record = volumes.count(bundleID) > 0 ? volumes[bundleID] : AppVolumeSetting{};
  record.muted = !record.muted;
  volumes[bundleID] = record;
  settings_.setAppVolumes(volumes);
  apply(bundleID);
  changed();
}

void AppVolumeController::retry() {
  problem_ = Problem::none();
  std::set<std::string> all;
  for (const auto& [bundleID, entry] : entries_) all.insert(bundleID);
  for (const auto& [bundleID, running] : taps_) all.insert(bundleID);
  for (const auto& bundleID : all) apply(bundleID);
  changed();
}

std::string AppVolumeController::displayName(const std::string& bundleID) const {
  const auto catalog = desktop_.catalog();
  const DesktopEntry* entry = catalog ? catalog->byID(bundleID) : nullptr;
  return entry && !entry->name.empty() ? entry->name : bundleID;
}

std::string AppVolumeController::icon(const std::string& bundleID) const {
  const auto catalog = desktop_.catalog();
  const DesktopEntry* entry = catalog ? catalog->byID(bundleID) : nullptr;
  return entry ? entry->icon : std::string();
}

AppVolumeSetting AppVolumeController::setting(const std::string& bundleID) const {
  const auto volumes = settings_.appVolumes();
  const auto found = volumes.find(bundleID);
  return found == volumes.end() ? AppVolumeSetting{} : found->second;
}

bool AppVolumeController::isPlaying(const std::string& bundleID) const {
  const auto entry = entries_.find(bundleID);
  return entry != entries_.end() && entry->second.playing;
}

std::map<std::string, ProcessTap::Mode> AppVolumeController::runningTaps() const {
  std::map<std::string, ProcessTap::Mode> out;
  for (const auto& [bundleID, running] : taps_) out[bundleID] = running.wanted.mode;
  return out;
}

void AppVolumeController::changed() const {
  if (onChange) onChange();
}

}  // namespace wh
