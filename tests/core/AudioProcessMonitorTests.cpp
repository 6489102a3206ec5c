// The audio process monitor on the virtual clock, over the in-memory audio port, process table
// and desktop entries.
#include <gtest/gtest.h>

#include "AudioWorld.h"
#include "core/audio/AudioProcesses.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

using List = std::vector<AudioProcess>;

class AudioProcessMonitorTest : public testing::Test, protected test::AudioWorld {
 protected:
  AudioProcessMonitorTest() { monitor.addObserver([this](const auto&) { ++published; }); }
  void add(AudioObjectID id, std::int32_t pid, std::string bundleID, bool output = false) {
    hw.processList.push_back({id, pid, std::move(bundleID), false, output});
  }
  test::CapturedLog log;
  AudioProcessMonitor monitor{rt, hw, grouping};
  int published = 0;
};

TEST_F(AudioProcessMonitorTest, EveryProcessButTheAgentIsPublishedOnEachChangeAndOutputChangesAreLogged) {
  runApp("org.example.Player", 2001);
  add(10, table.own, "com.quintelbarrows.wrenhaven", true);
  add(11, 2001, "org.example.Player", true);
  add(12, 2002, "");  // the server knows no id: the process table names the program
  table.processes[2002] = {1, "/usr/bin/recorder", "/user.slice/session-2.scope", {}};
  monitor.start();
  monitor.start();
  monitor.refresh();
  EXPECT_EQ(monitor.processes(), (List{{11, 2001, "org.example.Player", false, true, "org.example.Player"},
                                       {12, 2002, "recorder", false, false, "recorder"}}));
  EXPECT_EQ(published, 1) << "an unchanged list is not published";
  EXPECT_EQ(hw.processListReads, 2u) << "starting again does nothing";
  std::swap(hw.processList[1], hw.processList[2]);
  hw.processList[2].runningOutput = false;
  monitor.refresh();
  hw.processList[2].runningOutput = true;
  add(14, 2004, "org.example.Newcomer", true);
  monitor.refresh();
  EXPECT_EQ(published, 3);
  EXPECT_EQ(log->lines, (std::vector<std::string>{"org.example.Player stopped output",
                                                  "org.example.Player started output"}));
}

TEST_F(AudioProcessMonitorTest, EachProcessAndTheListAreHeardAndBurstsWithinFiftyMillisecondsCostOneRefresh) {
  add(10, table.own, "com.quintelbarrows.wrenhaven");
  add(11, 2001, "org.example.Player");
  add(12, 2002, "org.example.Gone");
  monitor.start();
  hw.processList.pop_back();
  monitor.refresh();
  const auto refreshesAfter = [&](AudioObjectID object, AudioProperty property, double wait) {
    const std::size_t before = hw.processListReads;
    hw.notify(object, property);
    rt.advance(wait);
    return hw.processListReads - before;
  };
  EXPECT_EQ(refreshesAfter(audioSystemObject, AudioProperty::processObjectList, 0.05), 1u);
  for (auto property : {AudioProperty::processIsRunning, AudioProperty::processIsRunningInput,
                        AudioProperty::processIsRunningOutput}) {
    const auto heard = [&](AudioObjectID object) { return refreshesAfter(object, property, 0.05); };
    EXPECT_EQ(heard(11) + heard(10) + heard(12), 1u) << "neither the agent's own process nor one that left is heard";
  }
  std::size_t burst = 0;
  for (int i = 0; i < 5; ++i) {
    burst += refreshesAfter(11, AudioProperty::processIsRunningOutput, 0.0049);
    burst += refreshesAfter(audioSystemObject, AudioProperty::processObjectList, 0.0049);
  }
  EXPECT_EQ(burst, 0u) << "nothing before 50 ms have passed";
  EXPECT_EQ(refreshesAfter(11, AudioProperty::processIsRunning, 0.002), 1u) << "then one refresh";
}

TEST_F(AudioProcessMonitorTest, ThePollRunsEveryTwoSecondsWhileAnythingPlaysOrRecordsAndEveryFifteenOtherwise) {
  add(11, 2001, "org.example.Player");
  monitor.start();
  hw.processList[0].runningOutput = true;  // nobody is told
  rt.advance(14.9);
  EXPECT_EQ(published, 1);
  rt.advance(0.1);
  EXPECT_EQ(published, 2);
  hw.processList[0] = {11, 2001, std::string("org.example.Player"), true, false};
  rt.advance(2.0);
  EXPECT_EQ(published, 3);
  hw.processList.clear();
  rt.advance(2.0);
  EXPECT_EQ(published, 4);
  EXPECT_EQ(monitor.pollInterval(), 15.0) << "an empty list is idle";
}

TEST_F(AudioProcessMonitorTest, IdentitiesAreReadOnceWhileListedAndAnOwnerNotFoundIsTriedOnThreeRefreshes) {
  table.processes[3000] = {2999, "/opt/example/helper", {}, {}};
  table.processes[2999] = {1, "/usr/bin/bash", {}, {}};
  add(11, 3000, "com.example.helper");
  add(12, 5000, "org.example.Player");
  monitor.start();
  hw.processList[1] = {12, 5001, std::string("org.example.Changed"), true, true};
  add(13, 3000, "com.example.helper");
  monitor.refresh();
  monitor.refresh();  // the third try of the first helper
  runApp("com.example", 4000);
  monitor.refresh();  // the third try of the second one
  EXPECT_EQ(monitor.processes(), (List{{11, 3000, "com.example.helper", false, false, "com.example.helper"},
                                       {12, 5000, "org.example.Player", true, true, "org.example.Player"},
                                       {13, 3000, "com.example.helper", false, false, "com.example"}}));
  const auto back = hw.processList[1];
  hw.processList = {};
  monitor.refresh();
  hw.processList = {back};
  monitor.refresh();
  EXPECT_EQ(monitor.processes()[0].pid, 5001) << "an object that comes back is resolved anew";
}

TEST_F(AudioProcessMonitorTest, AGoneMonitorLeavesNoListenerTimerOrPendingWork) {
  add(11, 2001, "org.example.Player", true);
  auto gone = std::make_unique<AudioProcessMonitor>(rt, hw, grouping);
  gone->start();
  hw.notify(11, AudioProperty::processIsRunningOutput);
  gone.reset();
  EXPECT_EQ(hw.listenerCount(), 0u);
  EXPECT_EQ(rt.pendingMainWork(), 0u);
}

}  // namespace
}  // namespace wh
