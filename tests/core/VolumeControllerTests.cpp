// The app volume controller on the virtual clock: scripts of process changes, settings and time,
// then the taps that run, how many were built and stopped, the problem and the listed apps.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string_view>

#include "AudioWorld.h"
#include "core/audio/SystemProcesses.h"
#include "core/volume/AppVolumeController.h"
#include "doubles/FakeProcessTaps.h"
#include "doubles/MemoryStore.h"

namespace wh {
namespace {

struct Scenario {
  std::string script;
  std::string taps;  // running taps: "app:mode:output:gain[:processes]", separated by spaces
  int builds, stops;
  std::string problem = "";
  std::string apps = "a";
};
void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.script; }

class VolumeControllerTest : public testing::TestWithParam<Scenario>, protected test::AudioWorld {
 protected:
  VolumeControllerTest() {
    addDevice(1, "speakers", "Speakers", Transport::builtIn, 0, 1);
    addDevice(2, "buds", "Buds", Transport::bluetooth, 0, 1);
    hw.defaults[AudioProperty::defaultOutputDevice] = 1;
    runApp("a", 10);
    runApp("b", 20);
    table.processes[11] = {10, "/usr/bin/a-helper", {}, {}};
  }

  // "a+"/"a-": the app's process plays/pauses ("a2+": its second process), "ax": it quits; "a=G":
  // setGain; "am": toggleMute; "+S": seconds pass; ".": the tap queue runs; "fail": the next build
  // fails; "sig": the newest tap hears sound; "lost"/"lost0": the newest/first tap loses its hold;
  // "loses": the next build loses it while being built; "out": the default output moves to the
  // buds; "retry"; "stop": the agent quits.
  void play(const std::string& script) {
    std::istringstream events(script);
    for (std::string e; events >> e;) {
      const std::string app = e.substr(0, 1);
      const AudioObjectID object = (app == "a" ? 10 : 20) + (e[1] == '2' ? 1 : 0);
      if (e == ".") rt.drainSerialQueues();
      else if (e[0] == '+') rt.advance(std::stod(e.substr(1)));
      else if (e == "fail") taps.failNext = ProcessTap::Failure{ProcessTap::Failure::Step::tap, 25};
      else if (e == "sig") taps.built.back()->box().markSignal();
      else if (e == "lost") taps.built.back()->loseHold();
      else if (e == "lost0") taps.built.front()->loseHold();
      else if (e == "loses") taps.loseNext = true;
      else if (e == "retry") volume.retry();
      else if (e == "stop") volume.stop();
      else if (e[1] == '=') volume.setGain(app, std::stof(e.substr(2)));
      else if (e == app + "m") volume.toggleMute(app);
      else if (e == "out") {
        hw.defaults[AudioProperty::defaultOutputDevice] = 2;
        hw.notify(audioSystemObject, AudioProperty::defaultOutputDevice);
      } else {
        // A process of app a or b (a second one with "2") starts playing (+), pauses (-) or quits (x).
        ASSERT_TRUE((app == "a" || app == "b") && (e.size() == 2 || (e.size() == 3 && e[1] == '2')) &&
                    std::string_view("+-x").find(e.back()) != std::string_view::npos)
            << "unknown script word: " << e;
        std::erase_if(hw.processList, [&](const auto& p) { return p.id == object; });
        if (e.back() != 'x') hw.processList.push_back({object, int(object), {}, false, e.back() == '+'});
        monitor.refresh();
      }
    }
  }

  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  AudioProcessMonitor monitor{rt, hw, grouping};
  FakeProcessTaps taps;
  AppVolumeController volume{rt, settings, hw, monitor, grouping, desktop, taps, ignoredSystemApps()};
};

TEST_P(VolumeControllerTest, Scenario) {
  monitor.start();
  volume.start();
  play(GetParam().script);
  std::string running, apps, problem = volume.problem().message();
  int stops = 0;
  for (const auto& tap : taps.built) {
    const auto& [app, processes, mode, output, gain, lostHold] = tap->request;
    stops += tap->stops;
    if (tap->stops == 0) running += (running.empty() ? "" : " ") + app + (mode == ProcessTap::Mode::gain ? ":gain:" : ":mute:") + output.value_or("-") +
                                    ":" + std::to_string(tap->box().gain()).substr(0, 3) + (processes.size() > 1 ? ":2" : "");
  }
  for (const auto& app : volume.apps()) apps += (apps.empty() ? "" : " ") + app;
  if (volume.problem().kind() == AppVolumeController::Problem::Kind::needsPermission) problem = "permission";
  EXPECT_EQ(running, GetParam().taps);
  EXPECT_EQ(int(taps.built.size()) * 10 + stops, GetParam().builds * 10 + GetParam().stops);
  EXPECT_EQ(problem, GetParam().problem);
  EXPECT_EQ(apps, GetParam().apps);
  EXPECT_EQ(taps.cleanUps, 1);
  EXPECT_EQ(volume.runningTaps().size(), running.empty() ? 0 : std::count(running.begin(), running.end(), ' ') + 1);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, VolumeControllerTest,
    testing::Values(
        Scenario{"a+ a=0.9995 .", "", 0, 0},
        Scenario{"a+ a=0.0005 .", "a:mute:speakers:0.0", 1, 0},
        Scenario{"a- a=0.5 . am .", "a:mute:speakers:0.5", 1, 0, "", ""},           // muted: tapped while silent
        Scenario{"a+ a=0.5 . a=0.3 .", "a:gain:speakers:0.3", 1, 0},                // a gain change needs no rebuild
        Scenario{"a+ a=0.5 . a- +19 a+ .", "a:gain:speakers:0.5", 1, 0},            // resumed within 20 s: reused
        Scenario{"a+ a=0.5 . a- +20 .", "", 1, 1},
        Scenario{"a+ a=0.5 . a=1 .", "", 1, 1},                                      // back to full volume: at once
        Scenario{"a+ a=0.5 a=0 .", "a:mute:speakers:0.0", 2, 1},                     // the newer build wins
        Scenario{"a+ a=0.5 . a2+ .", "a:gain:speakers:0.5:2", 2, 1},                 // a later process is covered
        Scenario{"a+ a=0.5 . out .", "a:gain:buds:0.5", 2, 1},
        Scenario{"a+ a=7 a=-3 . b+ b=0.5 . bx +19 .", "a:mute:speakers:0.0 b:gain:speakers:0.5", 2, 0, "", "a b"},  // clamped; b's tap outlives its process a while
        Scenario{"a- am . ax . a+ .", "a:mute:speakers:1.0", 1, 0},                   // a muted client without streams keeps its tap
        Scenario{"a- a=0.5 am . am a=1 a+ .", "", 1, 1},                               // full volume ends a delayed stop at once
        Scenario{"a+ fail a=0.5 .", "", 0, 0, "Could not change the volume of a"},
        Scenario{"a+ fail a=0.5 . retry .", "a:gain:speakers:0.5", 1, 0},
        Scenario{"a+ a=0.5 . lost .", "a:gain:speakers:0.5", 1, 0, "Could not change the volume of a"},  // kept, told
        Scenario{"a+ loses a=0.5 .", "a:gain:speakers:0.5", 1, 0, "Could not change the volume of a"},   // while built
        Scenario{"a+ a=0.5 . lost . retry .", "a:gain:speakers:0.5", 2, 1},           // retry builds it anew
        Scenario{"a+ a=0.5 . a=0 . lost0 .", "a:mute:speakers:0.0", 2, 1},            // a replaced tap's news is stale
        Scenario{"a+ a=0.5 . +4", "a:gain:speakers:0.5", 1, 0, "permission"},        // only zeros while playing
        Scenario{"a+ a=0.5 . a- +4", "a:gain:speakers:0.5", 1, 0},                   // paused: nothing concluded
        Scenario{"a+ a=0.5 . sig +4 a=1 . b+ b=0.5 . +4", "b:gain:speakers:0.5", 2, 1, "", "a b"},  // verified once
        Scenario{"a+ a=0.5 . b+ b=0 . stop", "", 2, 2, "", "a b"},                     // quitting waits for the stops
        Scenario{"a- am . a+ a=0.5 am stop a=0.3 am b+ b=0 .", "", 2, 2},            // also a build on its way; then nothing
        Scenario{"a+ a- +899 b+ .", "", 0, 0, "", "b a"},
        Scenario{"a+ a- +900 b+ .", "", 0, 0, "", "b"}));

// The system's own processes never get an entry, a tap or a panel row (the status rows are made
// from the listed apps), whether their id comes from their desktop entry or they count under the
// session program that started them; an ordinary app set up the same way gets all three.
struct Identity {
  std::string program;  // the process's program file
  std::string unit;     // its control group's innermost unit
  std::string entry;    // the desktop entry naming that program, if any
  bool ignored;
};
void PrintTo(const Identity& identity, std::ostream* out) { *out << identity.program; }

class IgnoredAppsTest : public testing::TestWithParam<Identity>, protected test::AudioWorld {};

TEST_P(IgnoredAppsTest, GetsNoEntryTapOrRow) {
  const Identity& identity = GetParam();
  addDevice(1, "speakers", "Speakers", Transport::builtIn, 0, 1);
  hw.defaults[AudioProperty::defaultOutputDevice] = 1;
  runApp("org.example.Session", 41);  // the session program: the parent of those without an entry
  table.processes[40] = {41, identity.program, "/user.slice/user@1000.service/session.slice/" + identity.unit, {}};
  if (!identity.entry.empty()) entries.push_back({identity.entry, identity.program, "", true, false});
  desktop.set(entries);
  hw.processList.push_back({40, 40, {}, false, true});
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  const std::string owner = identity.entry.empty() ? "org.example.Session" : identity.entry;
  settings.setAppVolumes({{owner, {0.5F, true}}});
  AudioProcessMonitor monitor{rt, hw, grouping};
  FakeProcessTaps taps;
  AppVolumeController volume{rt, settings, hw, monitor, grouping, desktop, taps, ignoredSystemApps()};
  monitor.start();
  volume.start();
  rt.drainSerialQueues();

  ASSERT_EQ(monitor.processes().size(), 1U);
  EXPECT_EQ(monitor.processes()[0].appID, owner) << "counted under " << owner;
  EXPECT_EQ(volume.isPlaying(owner), !identity.ignored);
  EXPECT_EQ(volume.apps(), identity.ignored ? std::vector<std::string>() : std::vector<std::string>{owner});
  EXPECT_EQ(taps.built.size(), identity.ignored ? 0U : 1U);
  EXPECT_EQ(volume.runningTaps().size(), identity.ignored ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(
    SystemProcesses, IgnoredAppsTest,
    testing::Values(Identity{"/usr/bin/gnome-shell", "org.gnome.Shell@wayland.service", "org.gnome.Shell", true},
                    Identity{"/usr/bin/plasmashell", "plasma-plasmashell.service", "org.kde.plasmashell", true},
                    Identity{"/usr/bin/pavucontrol", "app-gnome-org.pulseaudio.pavucontrol-40.scope",
                             "org.pulseaudio.pavucontrol", true},
                    Identity{"/usr/bin/wrenhaven", "wrenhaven.service", "com.quintelbarrows.wrenhaven", true},
                    Identity{"/usr/bin/pipewire", "pipewire.service", "", true},
                    Identity{"/usr/bin/wireplumber", "wireplumber.service", "", true},
                    Identity{"/usr/bin/pipewire-pulse", "pipewire-pulse.service", "", true},
                    Identity{"/usr/bin/pulseaudio", "pulseaudio.service", "", true},
                    Identity{"/usr/bin/example-player", "app-gnome-org.example.Player-40.scope", "org.example.Player", false},
                    Identity{"/usr/bin/example-helper", "example-helper.service", "", false}));

}  // namespace
}  // namespace wh
