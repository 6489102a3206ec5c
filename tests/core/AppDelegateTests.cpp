#include <gtest/gtest.h>

#include <set>

#include "core/app/AppDelegate.h"
#include "core/log/Log.h"
#include "core/runtime/VirtualRuntime.h"
#include "core/settings/MemoryStore.h"

namespace wh {
namespace {

class FakeHost : public AppHost {
 public:
  bool environmentHas(const std::string& name) const override { return variables.count(name) > 0; }
  bool claimSingleInstance(std::function<void()> handler) override {
    ++claims;
    reopen = std::move(handler);
    return !otherInstance;
  }
  void terminate() override { ++terminations; }
  std::string systemVersion() const override { return "Debian GNU/Linux 12 (bookworm)"; }
  bool accessibilityTrusted() const override { return trusted; }
  void openBluetoothSettings() override { ++bluetoothSettingsOpened; }

  std::set<std::string> variables;
  bool otherInstance = false;
  bool trusted = false;
  int claims = 0;
  int terminations = 0;
  int bluetoothSettingsOpened = 0;
  std::function<void()> reopen;
};

class RecordingLog : public SystemLog {
 public:
  void write(LogLevel, const std::string& message) override { lines.push_back(message); }
  std::vector<std::string> lines;
};

class AppDelegateTest : public testing::Test {
 protected:
  AppDelegateTest() { Log::install(log, nullptr); }
  ~AppDelegateTest() override { Log::install(nullptr, nullptr); }

  VirtualRuntime rt;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  FakeHost host;
  std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
  AppDelegate delegate{rt, settings, notifications, host, BuildInfo{"com.quintelbarrows.wrenhaven", "0.1.0", "7"}};
};

TEST_F(AppDelegateTest, UnderATestRunnerNothingStarts) {
  host.variables.insert("XCTestConfigurationFilePath");
  delegate.applicationDidFinishLaunching();
  EXPECT_FALSE(delegate.started());
  EXPECT_EQ(host.claims, 0);
  EXPECT_TRUE(log->lines.empty());
}

TEST_F(AppDelegateTest, ASecondInstanceTerminatesWithoutStartingAnything) {
  host.otherInstance = true;
  delegate.applicationDidFinishLaunching();
  EXPECT_EQ(host.terminations, 1);
  EXPECT_FALSE(delegate.started());
  EXPECT_TRUE(log->lines.empty());
  // It no longer reacts to settings changes either.
  int refreshes = 0;
  delegate.addRefreshStep([&] { ++refreshes; });
  settings.changed("");
  rt.runReady();
  EXPECT_EQ(refreshes, 0);
}

TEST_F(AppDelegateTest, LogsTheStartLineWithVersionSystemAccessAndDeviceCount) {
  settings.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
  settings.addDevice("11:22:33:44:55:66", "Studio Max");
  host.trusted = true;
  delegate.applicationDidFinishLaunching();
  ASSERT_TRUE(delegate.started());
  EXPECT_EQ(log->lines, std::vector<std::string>{"Wrenhaven 0.1.0 (7) started on Debian GNU/Linux 12 (bookworm), "
                                                 "accessibility true, 2 saved devices"});
  AppDelegate unknown{rt, settings, notifications, host, BuildInfo{"x", "", ""}};
  host.trusted = false;
  EXPECT_EQ(unknown.startLine(),
            "Wrenhaven ? (?) started on Debian GNU/Linux 12 (bookworm), accessibility false, 2 saved devices");
}

TEST_F(AppDelegateTest, AnyNumberOfChangesInOneTurnGiveExactlyOneRefreshWithItsStepsInOrder) {
  std::vector<std::string> steps;
  delegate.addRefreshStep([&] { steps.push_back("status menu"); });
  delegate.addRefreshStep([&] { steps.push_back("device items"); });
  delegate.addRefreshStep([&] { steps.push_back("publish"); });
  for (int i = 0; i < 10; ++i) delegate.refreshAction()();
  EXPECT_TRUE(steps.empty()) << "the refresh waits for the next turn";
  rt.runReady();
  EXPECT_EQ(steps, (std::vector<std::string>{"status menu", "device items", "publish"}));

  // A change during the refresh asks for a new one, on the following turn.
  steps.clear();
  delegate.addRefreshStep([&, asked = false]() mutable {
    if (!asked) delegate.refreshAction()();
    asked = true;
  });
  delegate.refreshAction()();
  rt.runReady();
  EXPECT_EQ(steps.size(), 6u);
}

TEST_F(AppDelegateTest, SettingsChangesRefreshExceptAppVolumes) {
  delegate.applicationDidFinishLaunching();
  int refreshes = 0;
  delegate.addRefreshStep([&] { ++refreshes; });
  settings.setAppVolumes({{"org.videolan.vlc", AppVolumeSetting{0.5F, false}}});
  rt.runReady();
  EXPECT_EQ(refreshes, 0);
  settings.setCallMode(CallModeOption::alwaysPinned);
  notifications.post(Settings::changedName, "reload");
  rt.runReady();
  EXPECT_EQ(refreshes, 1);
}

TEST_F(AppDelegateTest, RefreshAskedForAfterTheDelegateIsGoneDoesNothing) {
  int refreshes = 0;
  std::function<void()> action;
  {
    AppDelegate shortLived{rt, settings, notifications, host, BuildInfo{}};
    shortLived.addRefreshStep([&] { ++refreshes; });
    action = shortLived.refreshAction();
    action();  // queued while alive
  }
  action();
  rt.runReady();
  EXPECT_EQ(refreshes, 0);
}

TEST_F(AppDelegateTest, ReopenShowsAHiddenMenuIconAgainThroughTheChangeStep) {
  delegate.applicationDidFinishLaunching();
  std::vector<std::string> changes;
  auto watch = notifications.observe(Settings::changedName, [&](const std::string& key) { changes.push_back(key); });

  EXPECT_TRUE(delegate.applicationShouldHandleReopen());
  EXPECT_TRUE(changes.empty()) << "nothing to change while the icon is shown";

  store.set(Keys::hideMenuIcon, StoreValue::boolean(true));
  ASSERT_TRUE(host.reopen) << "a later instance's reopen reaches this delegate";
  host.reopen();
  EXPECT_EQ(store.object(Keys::hideMenuIcon), StoreValue::boolean(false));
  EXPECT_EQ(changes, std::vector<std::string>{""});
}

}  // namespace
}  // namespace wh
