// The audio process monitor on the virtual clock, over the in-memory audio port, process table
// and desktop entries.
#include <gtest/gtest.h>

#include "AudioWorld.h"
#include "support/CapturedLog.h"
#include "core/audio/AudioProcesses.h"

namespace wh {
namespace {


class AudioProcessMonitorTest : public testing::Test, protected test::AudioWorld {
 protected:
  test::CapturedLog log;
  std::vector<DesktopEntry> entries;


  MemoryAudioHardware::Process& addProcess(AudioObjectID id, std::int32_t pid, std::string bundleID,
                                           bool output = false, bool input = false) {
    hw.processList.push_back({id, pid, std::move(bundleID), input, output});
    return hw.processList.back();
  }
  // A running application: a process in the application's systemd scope, with a desktop entry.
  void runApp(const std::string& id, std::int32_t pid) {
    table.processes[pid] = {1, "/usr/bin/" + id, "/user.slice/app.slice/app-gnome-" + id + "-" + std::to_string(pid) + ".scope", std::nullopt};
    entries.push_back({id, id, "", false});
    desktop.set(entries);
  }
  AudioProcess record(AudioObjectID id, std::int32_t pid, std::string bundleID, bool in, bool out, std::string appID) {
    return {id, pid, std::move(bundleID), in, out, std::move(appID)};
  }
};

TEST_F(AudioProcessMonitorTest, StartPublishesTheListWithoutTheAgentAndListensToEachProcess) {
  runApp("org.example.Player", 2001);
  addProcess(10, table.own, "com.quintelbarrows.wrenhaven", true);
  addProcess(11, 2001, "org.example.Player", true);
  addProcess(12, 2002, "");  // the server knows no id: the process table does
  table.processes[2002] = {1, "/usr/bin/recorder", "/user.slice/session-2.scope", std::nullopt};

  AudioProcessMonitor monitor(rt, hw, grouping);
  std::vector<std::vector<AudioProcess>> seen;
  monitor.addObserver([&](const std::vector<AudioProcess>& list) { seen.push_back(list); });
  EXPECT_FALSE(monitor.pollInterval());
  monitor.start();

  const std::vector<AudioProcess> expected{record(11, 2001, "org.example.Player", false, true, "org.example.Player"),
                                           record(12, 2002, "recorder", false, false, "recorder")};
  EXPECT_EQ(monitor.processes(), expected);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0], expected);
  EXPECT_EQ(hw.listenerCount(audioSystemObject, AudioProperty::processObjectList), 1u);
  for (AudioObjectID id : {11u, 12u}) {
    EXPECT_EQ(hw.listenerCount(id, AudioProperty::processIsRunning), 1u);
    EXPECT_EQ(hw.listenerCount(id, AudioProperty::processIsRunningInput), 1u);
    EXPECT_EQ(hw.listenerCount(id, AudioProperty::processIsRunningOutput), 1u);
  }
  EXPECT_EQ(hw.listenerCount(10, AudioProperty::processIsRunningOutput), 0u) << "the agent's own process is skipped";
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::activePollInterval);

  monitor.start();
  EXPECT_EQ(hw.reads.processObjects, 1u) << "start is idempotent";
  EXPECT_EQ(hw.listenerCount(), 7u);
}

TEST_F(AudioProcessMonitorTest, ABurstOfNotificationsWithinFiftyMillisecondsCostsOneRefresh) {
  addProcess(11, 2001, "org.example.Player");
  AudioProcessMonitor monitor(rt, hw, grouping);
  monitor.start();
  ASSERT_EQ(hw.reads.processObjects, 1u);

  for (int i = 0; i < 10; ++i) {
    hw.notify(i % 2 == 0 ? 11 : audioSystemObject,
              i % 2 == 0 ? AudioProperty::processIsRunningOutput : AudioProperty::processObjectList);
    rt.advance(0.004);
  }
  EXPECT_EQ(hw.reads.processObjects, 1u) << "nothing before the delay is up";
  rt.advance(0.05 - 0.04 - 0.001);
  EXPECT_EQ(hw.reads.processObjects, 1u);
  rt.advance(0.002);
  EXPECT_EQ(hw.reads.processObjects, 2u) << "one refresh, 50 ms after the first notification";
  rt.advance(1.0);
  EXPECT_EQ(hw.reads.processObjects, 2u);

  hw.notify(11, AudioProperty::processIsRunning);
  rt.advance(0.05);
  EXPECT_EQ(hw.reads.processObjects, 3u) << "a later notification schedules a new refresh";
}

TEST_F(AudioProcessMonitorTest, ObserversHearOnlyRealChangesAndUnsubscribedOnesNothing) {
  auto& player = addProcess(11, 2001, "org.example.Player");
  AudioProcessMonitor monitor(rt, hw, grouping);
  int first = 0;
  int second = 0;
  const auto firstKey = monitor.addObserver([&](const auto&) { ++first; });
  monitor.addObserver([&](const auto&) { ++second; });
  monitor.start();
  EXPECT_EQ(first, 1);

  monitor.refresh();
  monitor.refresh();
  EXPECT_EQ(first, 1) << "the same list again calls nobody";

  player.runningOutput = true;
  monitor.refresh();
  EXPECT_EQ(first, 2);
  EXPECT_EQ(second, 2);

  monitor.removeObserver(firstKey);
  player.runningOutput = false;
  monitor.refresh();
  EXPECT_EQ(first, 2);
  EXPECT_EQ(second, 3);

  // Order counts: the same records in another order are a change.
  addProcess(12, 2002, "org.example.Other");
  monitor.refresh();
  std::swap(hw.processList[0], hw.processList[1]);
  monitor.refresh();
  EXPECT_EQ(second, 5);
  EXPECT_EQ(monitor.processes()[0].object, 12u);
}

TEST_F(AudioProcessMonitorTest, SafetyPollFollowsActivityAndCatchesUnannouncedChanges) {
  auto& player = addProcess(11, 2001, "org.example.Player");
  AudioProcessMonitor monitor(rt, hw, grouping);
  monitor.start();
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::idlePollInterval);

  player.runningOutput = true;  // nobody is told
  rt.advance(14.9);
  EXPECT_FALSE(monitor.processes()[0].runningOutput);
  rt.advance(0.2);
  EXPECT_TRUE(monitor.processes()[0].runningOutput) << "the 15 s poll found it";
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::activePollInterval);

  player.runningOutput = false;
  player.runningInput = true;
  rt.advance(2.0);
  EXPECT_TRUE(monitor.processes()[0].runningInput);
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::activePollInterval) << "input counts as activity too";

  player.runningInput = false;
  rt.advance(2.0);
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::idlePollInterval);
  const std::size_t reads = hw.reads.processObjects;
  rt.advance(14.5);
  EXPECT_EQ(hw.reads.processObjects, reads) << "idle: no poll before 15 s";

  hw.processList.clear();
  rt.advance(0.6);
  EXPECT_TRUE(monitor.processes().empty());
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::idlePollInterval) << "an empty list is idle";
}

TEST_F(AudioProcessMonitorTest, IdentitiesAreReadOncePerObjectAndForgottenWhenItGoes) {
  runApp("org.example.Player", 2001);
  addProcess(11, 2001, "org.example.Player");
  addProcess(12, 2002, "org.example.Other");
  AudioProcessMonitor monitor(rt, hw, grouping);
  monitor.start();
  const std::size_t tableReads = table.reads;
  for (int i = 0; i < 5; ++i) monitor.refresh();
  EXPECT_EQ(hw.reads.pid, 2u);
  EXPECT_EQ(hw.reads.bundleID, 2u);
  EXPECT_EQ(hw.reads.runningOutput, 12u) << "the running flags are read on every refresh";
  EXPECT_EQ(hw.reads.runningInput, 12u);
  // org.example.Other is not a running app: it is tried on three refreshes, then settles.
  EXPECT_GT(table.reads, tableReads);
  const std::size_t settled = table.reads;
  monitor.refresh();
  EXPECT_EQ(table.reads, settled) << "a settled identity is never resolved again";

  const auto other = hw.processList[1];
  hw.processList.pop_back();
  monitor.refresh();
  EXPECT_EQ(hw.listenerCount(12, AudioProperty::processIsRunningOutput), 0u) << "its listeners went with it";
  hw.processList.push_back(other);
  hw.processList.back().pid = 2003;  // the same object id, now another process
  monitor.refresh();
  EXPECT_EQ(monitor.processes()[1].pid, 2003) << "an object that comes back is resolved anew";
  EXPECT_EQ(hw.listenerCount(12, AudioProperty::processIsRunningOutput), 1u);
}

TEST_F(AudioProcessMonitorTest, AnUnfoundOwnerIsRetriedOnTwoMoreRefreshesThenKeepsItsThirdAnswer) {
  addProcess(11, 3000, "com.example.helper");
  table.processes[3000] = {2999, "/opt/example/helper", std::nullopt, std::nullopt};
  table.processes[2999] = {1, "/usr/bin/bash", std::nullopt, std::nullopt};
  AudioProcessMonitor monitor(rt, hw, grouping);
  monitor.start();
  EXPECT_EQ(monitor.processes()[0].appID, "com.example.helper");
  monitor.refresh();
  monitor.refresh();  // the third try settles the answer
  runApp("com.example", 4000);
  monitor.refresh();
  EXPECT_EQ(monitor.processes()[0].appID, "com.example.helper") << "the third answer sticks";

  // The same process seen again from scratch: an app that appears before the third try still wins.
  hw.processList.clear();
  monitor.refresh();
  entries.clear();
  desktop.set(entries);
  addProcess(12, 3000, "com.example.helper");
  monitor.refresh();
  monitor.refresh();
  EXPECT_EQ(monitor.processes()[0].appID, "com.example.helper");
  runApp("com.example", 4000);
  monitor.refresh();
  EXPECT_EQ(monitor.processes()[0].appID, "com.example") << "found on the third try";
}

TEST_F(AudioProcessMonitorTest, LogsOutputStartsAndStopsOfKnownProcessesOnly) {
  auto& player = addProcess(11, 2001, "org.example.Player", true);
  AudioProcessMonitor monitor(rt, hw, grouping);
  monitor.start();
  EXPECT_TRUE(log->lines.empty()) << "already playing when first seen: no line";

  player.runningOutput = false;
  monitor.refresh();
  hw.processList[0].runningOutput = true;
  addProcess(12, 2002, "org.example.Newcomer", true);
  monitor.refresh();
  hw.processList[0].runningInput = true;  // input changes are not logged
  hw.processList.erase(hw.processList.begin() + 1);
  monitor.refresh();
  EXPECT_EQ(log->lines, (std::vector<std::string>{"org.example.Player stopped output",
                                                  "org.example.Player started output"}));
}

TEST_F(AudioProcessMonitorTest, UnreadablePropertiesFailSoft) {
  hw.processList.push_back({11, std::nullopt, std::nullopt, std::nullopt, std::nullopt});
  addProcess(12, 2002, "");  // a pid the process table does not know (it has ended)
  AudioProcessMonitor monitor(rt, hw, grouping);
  monitor.start();
  EXPECT_EQ(monitor.processes(), (std::vector<AudioProcess>{record(11, 0, "", false, false, ""),
                                                            record(12, 2002, "", false, false, "")}));
}

TEST_F(AudioProcessMonitorTest, ADestroyedMonitorLeavesNoListenerTimerOrPendingWork) {
  addProcess(11, 2001, "org.example.Player", true);
  {
    AudioProcessMonitor monitor(rt, hw, grouping);
    monitor.start();
    hw.notify(11, AudioProperty::processIsRunningOutput);
    EXPECT_GT(rt.pendingMainWork(), 0u);
  }
  EXPECT_EQ(hw.listenerCount(), 0u);
  EXPECT_EQ(rt.pendingMainWork(), 0u);
  rt.advance(30);
}

}  // namespace
}  // namespace wh
