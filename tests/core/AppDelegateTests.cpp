#include "core/app/AppDelegate.h"
#include "core/app/LaunchGate.h"
#include "core/AgentWorld.h"
#include "core/ui/DeviceMenu.h"

namespace wh {
namespace {

using Kind = BluetoothManager::Phase::Kind;

class AppDelegateTest : public test::AgentWorld {
 protected:
  void launch(bool allowed = true) {
    if (allowed) authority.state = BluetoothAuthorization::allowedAlways;
    delegate.applicationDidFinishLaunching();
    rt.drainSerialQueues();
  }
  // Runs the clock in small steps, running the queues as they fill.
  void run(double seconds) {
    for (double done = 0; done < seconds - 1e-9; done += 0.1) {
      rt.advance(0.1);
      rt.drainSerialQueues();
    }
  }

  AppDelegate delegate{rt,       settings, notifications, host, BuildInfo{"com.quintelbarrows.wrenhaven", "0.1.0", "7"},
                       services, access,   status,        monitor, {move, launcher}};
};

TEST(LaunchGateTest, ATestRunnerOrAnotherInstanceStopsTheLaunchBeforeTheClaimOrAfterIt) {
  struct Case { bool testRunner, otherInstance; LaunchGate::Decision decision; int claims; };
  for (const auto& c : {Case{true, true, LaunchGate::Decision::hostedByTestRunner, 0},
                        Case{false, true, LaunchGate::Decision::anotherInstanceRuns, 1},
                        Case{false, false, LaunchGate::Decision::run, 1}}) {
    test::FakeAppHost host;
    if (c.testRunner) host.variables.insert("XCTestConfigurationFilePath");
    host.otherInstance = c.otherInstance;
    LaunchGate gate(host);
    EXPECT_EQ(gate.decide(), c.decision) << c.testRunner << c.otherInstance;
    EXPECT_EQ(host.claims, c.claims) << c.testRunner << c.otherInstance;
    if (c.decision != LaunchGate::Decision::run) continue;
    int reopens = 0;
    host.reopen();  // before the agent is built: nothing to do yet
    gate.onReopen = [&] { ++reopens; };
    host.reopen();
    EXPECT_EQ(reopens, 1);
  }
}

TEST_F(AppDelegateTest, LaunchListensPublishesAndLogsTheStartLineOnceAccessibilityIsKnown) {
  remember();
  settings.addDevice("11:22:33:44:55:66", "Studio Max");
  host.trusted = true;
  delegate.applicationDidFinishLaunching();
  EXPECT_GT(hardware.listenerCount(), 0u) << "the audio process monitor follows the sound server";
  EXPECT_TRUE(channel.handler) << "listening for commands";
  EXPECT_EQ(channel.statusPosts, 1) << "the first status is published";
  EXPECT_EQ(host.accessChecks, 0) << "asked on the check's queue, not here";
  rt.drainSerialQueues();
  ASSERT_GE(log->lines.size(), 2u);
  EXPECT_EQ(log->lines[log->lines.size() - 2], "Wrenhaven 0.1.0 (7) started on Debian GNU/Linux 12 (bookworm), "
                                               "accessibility true, 2 saved devices");
  EXPECT_EQ(log->lines.back(), "updates: off, no Sparkle public key in this build") << "after the start line";
}

TEST_F(AppDelegateTest, BluetoothIsTouchedOnlyForRememberedHeadphonesAndStartsOnceWhenAllowed) {
  launch(false);
  EXPECT_EQ(authority.watchStarts, 0) << "nobody is asked for Bluetooth access";
  remember();  // a settings change: now there is something to start
  EXPECT_EQ(authority.watchStarts, 1);
  EXPECT_FALSE(services.bluetooth.started());
  authority.change(BluetoothAuthorization::allowedAlways);
  EXPECT_TRUE(stack.observing);
  // Another change refreshes the running manager instead of starting it again.
  stack.devices[buds].connected = true;
  settings.setCallMode(CallModeOption::alwaysPinned);
  EXPECT_EQ(services.bluetooth.phaseOf(buds)->kind(), Kind::connected);
}

TEST_F(AppDelegateTest, ChangesInOneTurnGiveOneRefreshThatEndsByPublishingAndNoneOnceTheDelegateIsGone) {
  remember();
  launch();
  rt.runReady();
  std::vector<std::string> steps;
  delegate.addRefreshStep([&] { steps.push_back("status menu"); });
  delegate.addRefreshStep([&] { steps.push_back("device items"); });
  const int posts = channel.statusPosts;
  for (int i = 0; i < 10; ++i) delegate.refreshAction()();
  services.bluetooth.set(buds, BluetoothManager::Phase::connecting());  // onChange is the refresh action
  settings.setAppVolumes({{"org.videolan.vlc", AppVolumeSetting{0.5F, false}}});  // not the delegate's
  EXPECT_TRUE(steps.empty()) << "the refresh waits for the next turn";
  rt.runReady();
  EXPECT_EQ(steps, (std::vector<std::string>{"status menu", "device items"}));
  EXPECT_EQ(channel.statusPosts, posts + 1);
  EXPECT_EQ(stored(StatusKeys::bluetooth), (nlohmann::json{{buds, "connecting"}}));
  channel.send("reload");
  rt.runReady();
  EXPECT_EQ(steps.size(), 4u) << "a reload refreshes";

  int late = 0;
  std::function<void()> action;
  {
    AppDelegate shortLived{rt, settings, notifications, host, BuildInfo{}, services, access, status, monitor,
                           {move, launcher}};
    shortLived.addRefreshStep([&] { ++late; });
    action = shortLived.refreshAction();
    action();  // queued while alive
  }
  action();
  rt.runReady();
  EXPECT_EQ(late, 0);
}

TEST_F(AppDelegateTest, OnlyUserConnectsMoveTheOutputAndBatteriesAreReadAfterEveryConnectAndEveryFiveMinutes) {
  remember();
  launch();
  rt.advance(AppDelegate::batteryInterval);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.liveReads, 0) << "nothing connected, nothing to read";
  sources.live = {{std::nullopt, std::string(buds), {.single = 64}}};
  for (const bool user : {false, true}) {
    services.switcher.repairUsed.insert(buds);
    if (user) channel.send("toggle:AA:BB:CC:DD:EE:FF");
    if (!user) stack.connectFromOutside(buds);
    rt.drainSerialQueues();
    EXPECT_EQ(defaultOutput, user ? 7u : 1u) << user;
    EXPECT_EQ(services.switcher.repairUsed.count(buds), user ? 0u : 1u) << "a user connect grants a new repair";
    const int reads = sources.liveReads;
    rt.advance(2.9);
    rt.drainSerialQueues();
    EXPECT_EQ(sources.liveReads, reads) << user;
    rt.advance(0.1);
    rt.drainSerialQueues();
    EXPECT_EQ(sources.liveReads, reads + 1) << user;
    if (!user) stack.disconnectFromOutside(buds);
  }
  EXPECT_EQ(services.battery.levels().at(buds).single, 64);
  const int reads = sources.liveReads;
  rt.advance(2 * AppDelegate::batteryInterval - rt.clock().now());
  rt.drainSerialQueues();
  EXPECT_EQ(sources.liveReads, reads + 1) << "the timer reads the connected headphones";
}

TEST_F(AppDelegateTest, HeadphonesWhoseOutputNeverAppearsAreReconnectedOnceWithReasonRepair) {
  remember();
  launch();
  std::optional<bool> result;
  services.switcher.reconnect(buds, [&](bool connected) { result = connected; });
  EXPECT_EQ(result, false) << "nothing to repair while not connected";
  outputPresent = false;
  channel.send("toggle:" + std::string(buds));
  rt.drainSerialQueues();
  stack.calls.clear();
  run(12);
  EXPECT_EQ(stack.calls, (std::vector<std::string>{"close aa-bb-cc-dd-ee-ff", "open aa-bb-cc-dd-ee-ff"}));
  EXPECT_NE(std::find(log->lines.begin(), log->lines.end(), "connecting aa-bb-cc-dd-ee-ff (repair, attempt 1)"),
            log->lines.end());
}

TEST_F(AppDelegateTest, ReopenShowsAHiddenMenuIconAgainThroughTheChangeStep) {
  launch();
  std::vector<std::string> changes;
  auto watch = notifications.observe(Settings::changedName, [&](const std::string& key) { changes.push_back(key); });
  EXPECT_TRUE(delegate.applicationShouldHandleReopen());
  EXPECT_TRUE(changes.empty()) << "nothing to change while the icon is shown";
  store.set(Keys::hideMenuIcon, StoreValue::boolean(true));
  EXPECT_TRUE(delegate.applicationShouldHandleReopen());
  EXPECT_EQ(store.object(Keys::hideMenuIcon), StoreValue::boolean(false));
  EXPECT_EQ(changes, std::vector<std::string>{""});
}

TEST_F(AppDelegateTest, TheSettingsProgramOpensInItsGuideUntilOnboardingIsDoneAndARunningCopyEndsFirst) {
  launch();
  EXPECT_EQ(settingsProgram.ended, 1);
  EXPECT_TRUE(settingsProgram.starts.empty()) << "not before the running copy has gone";
  settingsProgram.finishEnding();
  store.set(Keys::onboardingDone, StoreValue::boolean(true));
  delegate.applicationShouldHandleReopen();
  settingsProgram.startError = "No such file or directory";
  settingsProgram.finishEnding();
  EXPECT_EQ(settingsProgram.starts, (std::vector<bool>{true, false}));
  EXPECT_EQ(log->lines.back(), "could not open settings: No such file or directory");
  settingsProgram.present = false;
  delegate.applicationShouldHandleReopen();
  EXPECT_EQ(log->lines.back(), "settings app missing at /usr/bin/wrenhaven-settings");
  EXPECT_EQ(settingsProgram.ended, 2);
}

TEST_F(AppDelegateTest, AMoveIsOfferedOnlyWhereItHelpsAndTheQuestionWaitsBesideTheServices) {
  using Choice = ProgramInstaller::Choice;
  struct Case {
    std::string path;
    bool appImage, buildTree;
    Choice choice;
    std::string existing, failing;
    std::vector<std::string> done;  // what was asked of the desktop; "quit": this instance ends
  };
  const std::string apps = "/home/ada/Applications";
  for (const auto& c : std::vector<Case>{
           {"/usr/bin", false, false, Choice::move, "", "", {}},
           {"/tmp/w", false, false, Choice::move, "", "", {}},  // a plain folder: nothing to gain
           {"/tmp/ci checkout/build/src/app", false, true, Choice::move, "", "", {}},
           {"/media/ada/stick/build/src/app", false, true, Choice::move, "", "", {}},
           {apps + "/Wrenhaven.AppImage", true, false, Choice::move, "", "", {}},
           {"/home/ada/Downloads/Wrenhaven.AppImage", true, false, Choice::notNow, "", "", {"ask"}},
           {"/tmp/Wrenhaven.AppImage", true, false, Choice::move, "", "",
            {"ask", "copy /tmp/Wrenhaven.AppImage " + apps + "/Wrenhaven.AppImage",
             "launch " + apps + "/Wrenhaven.AppImage", "quit"}},
           {"/media/ada/stick/wrenhaven", false, false, Choice::move, apps + "/Wrenhaven", "",
            {"ask", "trash " + apps + "/Wrenhaven", "copy /media/ada/stick/wrenhaven " + apps + "/Wrenhaven",
             "launch " + apps + "/Wrenhaven", "quit"}},
           {"/media/w", false, false, Choice::move, "", "copy",
            {"ask", "copy /media/w " + apps + "/Wrenhaven", "alert Could not move the app"}},
           {"/run/media/w", false, false, Choice::move, apps + "/Wrenhaven", "trash",
            {"ask", "trash " + apps + "/Wrenhaven", "alert Could not move the app"}}}) {
    test::FakeInstaller fake;
    fake.path = c.path, fake.appImage = c.appImage, fake.buildTree = c.buildTree, fake.existing = c.existing;
    fake.failing = c.failing;
    MoveToApplications(fake).offerIfNeeded();  // gone before the answer: the answer does nothing
    fake.answer(c.choice);
    EXPECT_TRUE(fake.done.empty() || fake.done == std::vector<std::string>{"ask"}) << c.path;
    fake.done.clear();
    MoveToApplications offer(fake);
    offer.offerIfNeeded();
    // The question says where the copy goes, and that an older one there is replaced.
    for (const std::string& step : c.done) {
      if (step.starts_with("copy ")) {
        EXPECT_NE(fake.detail.find(step.substr(step.rfind(' ') + 1)), std::string::npos) << fake.detail;
      }
    }
    EXPECT_EQ(fake.detail.find("trash") != std::string::npos, !c.existing.empty()) << fake.detail;
    fake.answer(c.choice);
    EXPECT_EQ(fake.done, c.done) << c.path;
  }
  installer.path = "/media/ada/stick/wrenhaven";
  launch();
  EXPECT_EQ(installer.done, std::vector<std::string>{"ask"});
  EXPECT_GT(hardware.listenerCount(), 0u) << "the services started while the question waits";
  EXPECT_TRUE(channel.handler);
  installer.answer(ProgramInstaller::Choice::move);
  EXPECT_EQ(installer.done.back(), "quit");
}

TEST_F(AppDelegateTest, RecordedHotkeysAreRegisteredOnlyWhenChangedAndTogglesTheHeadphonesOnceAllowed) {
  remember();
  ui::DeviceMenu::update(settings, buds, [](DeviceSetting& record) { record.hotkey = HotkeyCombo{0, HotkeyModifier::control}; });
  Hotkeys hotkeys{hotkeyService, &hotkeyService};
  delegate.setHotkeys(&hotkeys);
  delegate.applicationDidFinishLaunching();
  const auto handle = hotkeyService.grabs.at(100).second;
  settings.setCallMode(CallModeOption::alwaysPinned);
  EXPECT_EQ(hotkeyService.grabs.at(100).second, handle) << "no unregister and register for an unrelated change";

  hotkeyService.press({0, HotkeyModifier::control});
  EXPECT_FALSE(services.bluetooth.started()) << "not before Bluetooth access is allowed";
  authority.change(BluetoothAuthorization::allowedAlways);
  rt.drainSerialQueues();
  rt.advance(1);
  EXPECT_TRUE(stack.devices[buds].connected);
  ui::DeviceMenu::update(settings, buds, [](DeviceSetting& record) { record.hotkey = HotkeyCombo{96, HotkeyModifier::command}; });
  EXPECT_TRUE((hotkeyService.grabs.size() == 1 && hotkeyService.grabs.begin()->second.first == HotkeyCombo{96, HotkeyModifier::command}));
}

}  // namespace
}  // namespace wh
