#pragma once
// Per-application volume: turns the user's per-app settings into running process taps. It follows
// the audio processes and the default output, keeps the list of apps the panel shows, builds and
// stops taps on its tap queue (the newest build of an app always wins), and notices the two
// problems the user sees: a tap that could not be built, and taps that hear only silence.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "core/audio/AppGrouping.h"
#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"
#include "core/volume/ProcessTap.h"

namespace wh {

namespace AppVolumePlan {

struct Entry {
  std::string bundleID;
  std::vector<AudioObjectID> processes;  // in process list order
  bool playing = false;
  bool operator==(const Entry&) const = default;
};

// One entry per running, not ignored application that owns audio processes, sorted by bundle id.
// A process whose own id is ignored is left out whichever application it counts under.
std::vector<Entry> entries(const std::vector<AudioProcess>& processes, const std::set<std::string>& runningApps,
                           const std::set<std::string>& ignored);

}  // namespace AppVolumePlan

class AppVolumeController {
 public:
  class Problem {
   public:
    enum class Kind { none, needsPermission, failed };
    static Problem none() { return {Kind::none, {}}; }
    static Problem needsPermission() { return {Kind::needsPermission, {}}; }
    static Problem failed(std::string message) { return {Kind::failed, std::move(message)}; }
    Kind kind() const { return kind_; }
    const std::string& message() const { return message_; }
    bool operator==(const Problem&) const = default;

   private:
    Problem(Kind kind, std::string message) : kind_(kind), message_(std::move(message)) {}
    Kind kind_;
    std::string message_;
  };

  // What the user is told when taps hear only silence.
  static constexpr char permissionText[] =
      "Per-app volume hears only silence: the sound server may not let Wrenhaven record what applications play";
  // Gains at or above this are full volume; at or below `mutedGain`, silence.
  static constexpr float fullGain = 0.999F;
  static constexpr float mutedGain = 0.001F;
  // An app stays in the panel this long after its sound stopped.
  static constexpr double listedAfterPlaying = 900.0;
  // A paused app with a non-default setting keeps its gain tap this long, for a quick resume.
  static constexpr double stopDelay = 20.0;
  // How long a new gain tap may stay silent while its app plays before permission is doubted.
  static constexpr double signalCheckDelay = 4.0;

  AppVolumeController(Runtime& runtime, Settings& settings, AudioHardware& audio, AudioProcessMonitor& monitor,
                      AppGrouping& grouping, DesktopEntries& desktop, ProcessTaps& taps,
                      std::set<std::string> ignored);
  AppVolumeController(const AppVolumeController&) = delete;
  AppVolumeController& operator=(const AppVolumeController&) = delete;
  ~AppVolumeController();

  std::function<void()> onChange;

  void start();
  // Ends per-app volume for this run, as the agent quits: follows nothing more, and stops every
  // tap it made (also one whose build has finished but not yet answered), waiting until the tap
  // queue has done so, so that every application plays directly again. Later calls do nothing.
  void stop();
  void setGain(const std::string& bundleID, float gain);
  void toggleMute(const std::string& bundleID);
  // Forgets the problem and applies every app again.
  void retry();

  // The apps the panel shows, most recently played first (then by id).
  const std::vector<std::string>& apps() const { return apps_; }
  const Problem& problem() const { return problem_; }
  std::string displayName(const std::string& bundleID) const;
  std::string icon(const std::string& bundleID) const;
  // The app's stored setting (full volume, not muted, when it has none).
  AppVolumeSetting setting(const std::string& bundleID) const;
  bool isPlaying(const std::string& bundleID) const;
  // The mode of each app's running tap.
  std::map<std::string, ProcessTap::Mode> runningTaps() const;

 private:
  struct Wanted {
    ProcessTap::Mode mode = ProcessTap::Mode::mute;
    std::vector<AudioObjectID> processes;
    std::optional<std::string> outputUID;
    bool operator==(const Wanted&) const = default;
  };
  struct Running {
    Wanted wanted;
    std::shared_ptr<ProcessTap> tap;
    std::uint64_t generation = 0;
    bool lost = false;  // it said it cannot keep all of the app's sound: the next apply builds anew
  };

  void processesChanged(const std::vector<AudioProcess>& processes);
  void outputChanged();
  void apply(const std::string& bundleID);
  void build(const std::string& bundleID, Wanted wanted, float gain);
  void built(const std::string& bundleID, std::uint64_t generation, const Wanted& wanted, ProcessTaps::Result result);
  void lostHold(const std::string& bundleID, std::uint64_t generation);
  void showFailure(const std::string& bundleID);
  void scheduleStop(const std::string& bundleID, bool keepAWhile);
  void stopOnQueue(std::shared_ptr<ProcessTap> tap);
  void checkSignal(const std::string& bundleID, const std::shared_ptr<ProcessTap>& tap);
  std::optional<std::string> outputUID() const;
  void changed() const;

  Runtime& runtime_;
  Settings& settings_;
  AudioHardware& audio_;
  AudioProcessMonitor& monitor_;
  AppGrouping& grouping_;
  DesktopEntries& desktop_;
  ProcessTaps& factory_;
  std::set<std::string> ignored_;
  std::vector<std::string> apps_;
  Problem problem_ = Problem::none();
  std::string failedApp_;  // whose tap the `failed` problem is about
  std::map<std::string, std::uint64_t> lostBuild_;  // a build that lost its hold before it was done
  std::map<std::string, AppVolumePlan::Entry> entries_;
  std::map<std::string, double> lastPlayed_;
  std::map<std::string, Running> taps_;
  std::map<std::string, HeldWork> stopWork_;
  std::map<std::string, Wanted> building_;
  std::map<std::string, std::uint64_t> generations_;
  std::shared_ptr<SerialQueue> tapQueue_;
  std::unique_ptr<CA::Listener> outputListener_;
  std::optional<AudioProcessMonitor::ObserverKey> observer_;
  std::map<std::string, HeldWork> signalChecks_;
  // Every tap the tap queue built, touched on that queue only.
  std::shared_ptr<std::vector<std::weak_ptr<ProcessTap>>> made_ =
      std::make_shared<std::vector<std::weak_ptr<ProcessTap>>>();
  bool stopped_ = false;
  Lifetime lifetime_;
};

}  // namespace wh
