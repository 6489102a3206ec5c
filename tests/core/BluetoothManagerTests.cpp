#include <gtest/gtest.h>

#include <algorithm>

#include "core/bluetooth/BluetoothManager.h"
#include "doubles/FakeBluetooth.h"
#include "doubles/MemoryStore.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

using Kind = BluetoothManager::Phase::Kind;
using Phase = BluetoothManager::Phase;
using Strings = std::vector<std::string>;

class BluetoothManagerTest : public testing::Test {
 protected:
  static constexpr const char* buds = "aa-bb-cc-dd-ee-ff";
  static constexpr const char* cans = "11-22-33-44-55-66";

  BluetoothManagerTest() {
    settings.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
    settings.addDevice("11:22:33:44:55:66", "Studio Cans");
    stack.add(buds, "Sleep Buds");
    stack.add(cans, "Studio Cans");
    manager.onChange = [this] { ++changes; };
    manager.onConnected = [this](const std::string& address, ConnectReason reason) {
      events.push_back("connected " + address + " " + caseName(reason));
    };
    manager.onDisconnected = [this](const std::string& address) { events.push_back("disconnected " + address); };
  }

  void editBuds(const std::function<void(DeviceSetting&)>& edit) {
    auto devices = settings.devices();
    edit(devices.front());
    settings.setDevices(devices);
  }
  Kind kind(const char* address) const {
    auto phase = manager.phaseOf(address);
    return phase ? phase->kind() : Kind::disconnected;
  }
  // Runs the Bluetooth queue and what it hands back.
  void drain() { rt.drainSerialQueues(); }
  // Connects and returns the times of the attempts and the final result.
  std::pair<std::vector<double>, bool> attempts(const char* address, ConnectReason reason) {
    std::vector<double> at;
    bool result = true;
    int completions = 0;
    manager.connect(address, reason, 1, [&](bool connected) { result = connected, ++completions; });
    at.push_back(rt.clock().now());
    const auto tries = [&] { return std::count_if(log->lines.begin(), log->lines.end(), [](const auto& line) {
      return line.starts_with("connecting");
    }); };
    const double end = rt.clock().now() + 30;
    for (auto seen = tries(); rt.clock().now() < end; rt.advance(0.01)) {
      drain();
      if (tries() > seen) at.push_back(rt.clock().now());
      seen = tries();
    }
    EXPECT_EQ(completions, 1);
    return {at, result};
  }

  VirtualRuntime rt;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  test::FakeBluetoothStack stack;
  test::FakeSleepWatcher sleep;
  BluetoothManager manager{rt, settings, stack, sleep};
  test::CapturedLog log;
  Strings events;
  int changes = 0;
};

TEST_F(BluetoothManagerTest, ToggleConnectsOnTheQueueAndIgnoresClicksWhileInFlight) {
  manager.start();
  changes = 0;
  manager.toggle("AA:BB:CC:DD:EE:FF");
  EXPECT_EQ(kind(buds), Kind::connecting);
  EXPECT_TRUE(stack.calls.empty()) << "the blocking call waits for the Bluetooth queue";
  manager.toggle(buds);
  drain();
  EXPECT_EQ(stack.calls, Strings{"open aa-bb-cc-dd-ee-ff"});
  EXPECT_EQ(events, Strings{"connected aa-bb-cc-dd-ee-ff user"});
  EXPECT_EQ(changes, 2);  // connecting, connected
  EXPECT_EQ(log->lines.front(), "connecting aa-bb-cc-dd-ee-ff (user, attempt 1)");
}

TEST_F(BluetoothManagerTest, RetriesFollowTheReasonAndEndInTheStatusText) {
  struct Case {
    ConnectReason reason;
    std::vector<BluetoothStatus> results;
    std::optional<BluetoothError> readError;
    std::vector<double> gaps;
    std::string failure;
  };
  const std::vector<Case> cases{
      {ConnectReason::user, {BluetoothStatus::timeout, BluetoothStatus::timeout}, {}, {1.5}, "The device did not answer"},
      {ConnectReason::repair, {BluetoothStatus::notFound, BluetoothStatus::success}, {}, {1.5}, ""},
      {ConnectReason::wake, std::vector(4, BluetoothStatus::bluetoothOff), {}, {3, 6, 9}, "Bluetooth is off"},
      {ConnectReason::external, {BluetoothStatus::notFound}, {}, {}, "The device is out of range"},
      {ConnectReason::user, {static_cast<BluetoothStatus>(0x1234), BluetoothStatus::failed}, {}, {1.5}, "Could not connect"},
      // A stack that could not be asked is asked again on the same schedule.
      {ConnectReason::wake, {}, BluetoothError::unreachable, {3, 6, 9}, "Could not connect"},
      {ConnectReason::user, {}, BluetoothError::bluetoothOff, {1.5}, "Bluetooth is off"},
      {ConnectReason::user, {}, BluetoothError::unknownDevice, {}, "Unknown device"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(caseName(c.reason)) + " " + c.failure);
    stack.calls.clear();
    stack.devices[buds].connected = false;
    stack.connectResults.assign(c.results.begin(), c.results.end());
    stack.readError = c.readError;
    log->lines.clear();
    const auto [at, connected] = attempts(buds, c.reason);
    ASSERT_EQ(at.size(), c.gaps.size() + 1);
    for (size_t i = 0; i < c.gaps.size(); ++i) EXPECT_NEAR(at[i + 1] - at[i], c.gaps[i], 0.011);
    EXPECT_EQ(connected, c.failure.empty());
    EXPECT_EQ(manager.phaseOf(buds), c.failure.empty() ? Phase::connected() : Phase::failed(c.failure));
    if (c.reason == ConnectReason::external) {
      EXPECT_EQ(log->lines.back(), "connect failed for aa-bb-cc-dd-ee-ff: 0xe00002f0");
    }
  }
}

TEST_F(BluetoothManagerTest, UnknownDevicesFailAtOnceAndConnectedOnesSucceedWithTheirReason) {
  manager.connect("99-99-99-99-99-99", ConnectReason::wake, 1);
  stack.devices[buds].connected = true;
  manager.connect(buds, ConnectReason::repair, 1);
  drain();
  EXPECT_EQ(manager.phaseOf("99-99-99-99-99-99"), Phase::failed("Unknown device"));
  EXPECT_EQ(stack.calls, Strings{}) << "neither needed the link opened";
  EXPECT_EQ(events, Strings{"connected aa-bb-cc-dd-ee-ff repair"});
}

TEST_F(BluetoothManagerTest, DisconnectSettlesASecondLaterOnWhatTheStackSays) {
  struct Case {
    BluetoothStatus close;
    std::optional<BluetoothError> readError;  // while settling
    double settleTime;
    Kind after;
    Strings events;
  };
  const std::vector<Case> cases{
      {BluetoothStatus::success, {}, 1, Kind::disconnected, {"disconnected aa-bb-cc-dd-ee-ff"}},
      {BluetoothStatus::failed, {}, 1, Kind::connected, {}},
      // Unanswered reads are repeated; the link counts as closed when none is ever answered.
      {BluetoothStatus::success, BluetoothError::unreachable, BluetoothManager::settleReads,
       Kind::disconnected, {"disconnected aa-bb-cc-dd-ee-ff"}},
  };
  for (const auto& c : cases) {
    stack.readError.reset();
    manager.connect(buds, ConnectReason::user, 1);
    drain();
    events.clear();
    stack.closeResult = c.close;
    manager.toggle(buds);
    drain();
    stack.readError = c.readError;
    rt.advance(c.settleTime - 0.01);
    EXPECT_EQ(kind(buds), Kind::disconnecting);
    rt.advance(0.01);
    EXPECT_EQ(kind(buds), c.after);
    EXPECT_EQ(events, c.events);
  }
  EXPECT_EQ(stack.calls.back(), "close aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(std::ranges::count(log->lines, "disconnect failed for aa-bb-cc-dd-ee-ff: 0xe00002bc"), 1);
}

TEST_F(BluetoothManagerTest, ConnectOnlyHeadphonesStayConnectedAndGetTheSoundAgain) {
  editBuds([](DeviceSetting& device) { device.connectOnly = true; });
  manager.connect(buds, ConnectReason::user, 1);
  drain();
  events.clear();
  manager.toggle(buds);
  drain();
  rt.advance(2);
  EXPECT_EQ(kind(buds), Kind::connected);
  EXPECT_EQ(events, Strings{"connected aa-bb-cc-dd-ee-ff user"});
  EXPECT_EQ(stack.calls, Strings{"open aa-bb-cc-dd-ee-ff"});
}

TEST_F(BluetoothManagerTest, NotificationsFollowRememberedHeadphonesOnly) {
  manager.start();
  stack.add("99-99-99-99-99-99", "Someone Else's");
  stack.connectFromOutside("99:99:99:99:99:99");
  stack.connectFromOutside("AA:BB:CC:DD:EE:FF");
  stack.connectFromOutside(buds);  // already connected: nothing new
  manager.set(buds, Phase::connecting());
  stack.disconnectFromOutside(buds);  // the connect in flight decides
  EXPECT_EQ(kind(buds), Kind::connecting);
  manager.set(buds, Phase::connected());
  stack.connectFromOutside(buds);
  stack.disconnectFromOutside(buds);
  // Headphones never seen connected have no disconnect registration: a failure stays on show.
  manager.set(cans, Phase::failed("Could not connect"));
  stack.disconnectFromOutside(cans);
  EXPECT_EQ(kind(cans), Kind::failed);
  EXPECT_FALSE(manager.phaseOf("99-99-99-99-99-99"));
  EXPECT_EQ(events, (Strings{"connected aa-bb-cc-dd-ee-ff external", "disconnected aa-bb-cc-dd-ee-ff"}));
}

TEST_F(BluetoothManagerTest, SettingTheSamePhaseTwiceCallsOnChangeOnce) {
  manager.set(buds, Phase::failed("Could not connect"));
  manager.set("AA:BB:CC:DD:EE:FF", Phase::failed("Could not connect"));
  manager.set(buds, Phase::failed("Bluetooth is off"));
  EXPECT_EQ(changes, 2);
}

TEST_F(BluetoothManagerTest, PollsFastForTenSecondsAfterActivityThenEveryThirtySeconds) {
  manager.start();
  manager.connect(buds, ConnectReason::user, 1);
  drain();
  stack.devices[buds].connected = false;  // dropped without a notification
  rt.advance(1.0);
  EXPECT_EQ(kind(buds), Kind::disconnected);
  rt.advance(12);
  const double quietSince = rt.clock().now();
  stack.devices[buds].connected = true;
  rt.advance(2);
  EXPECT_EQ(kind(buds), Kind::disconnected);
  rt.advance(30.0 * (static_cast<int>(quietSince / 30.0) + 1) - rt.clock().now() + 0.001);
  EXPECT_EQ(kind(buds), Kind::connected);
}

TEST_F(BluetoothManagerTest, RefreshBringsSettledPhasesInLineAndNothingWhenTheStackCannotBeAsked) {
  manager.start();
  stack.connectFromOutside(buds);
  manager.set(cans, Phase::disconnecting());
  // Could not ask: phases and disconnect registrations stay as they are.
  stack.devices[buds].connected = false;
  stack.readError = BluetoothError::unreachable;
  manager.refresh();
  EXPECT_EQ(kind(buds), Kind::connected);
  stack.readError.reset();
  stack.disconnectFromOutside(buds);
  EXPECT_EQ(events.back(), "disconnected aa-bb-cc-dd-ee-ff");
  // A failure stays on show while disconnected; an operation in flight is left alone.
  manager.set(buds, Phase::failed("Could not connect"));
  stack.devices[cans].connected = true;
  manager.refresh();
  EXPECT_EQ(kind(buds), Kind::failed);
  EXPECT_EQ(kind(cans), Kind::disconnecting);
  stack.devices[buds].connected = true;
  stack.onReadable();  // the stack can be read again: it is read at once
  EXPECT_EQ(kind(buds), Kind::connected);
}

TEST_F(BluetoothManagerTest, SleepClosesOnTheQueueBeforeItIsDoneAndWakeReconnectsThreeSecondsLater) {
  editBuds([](DeviceSetting& device) { device.disconnectOnSleep = device.connectOnWake = true; });
  manager.start();
  manager.connect(buds, ConnectReason::user, 1);
  manager.connect(cans, ConnectReason::user, 1);
  drain();
  stack.calls.clear();
  std::optional<Strings> closedWhenDone;
  sleep.sleep([&] { closedWhenDone = stack.calls; });
  EXPECT_FALSE(closedWhenDone) << "the main thread does not block";
  EXPECT_EQ(log->lines.back(), "disconnecting Sleep Buds for sleep");
  drain();
  EXPECT_EQ(closedWhenDone, Strings{"close aa-bb-cc-dd-ee-ff"});
  rt.advance(1);
  sleep.wake();
  rt.advance(2);
  sleep.sleep(nullptr);  // sleeping again within three seconds cancels the reconnect
  sleep.wake();
  rt.advance(2.9);
  drain();
  EXPECT_EQ(stack.calls.size(), 1u);
  rt.advance(0.1);
  drain();
  EXPECT_EQ(events.back(), "connected aa-bb-cc-dd-ee-ff wake");
  EXPECT_EQ(stack.calls.size(), 2u);
}

TEST_F(BluetoothManagerTest, WorkComingBackAfterTheManagerIsGoneDoesNothing) {
  auto shortLived = std::make_unique<BluetoothManager>(rt, settings, stack, sleep);
  shortLived->onConnected = [&](const std::string&, ConnectReason) { ADD_FAILURE(); };
  shortLived->connect(buds, ConnectReason::user, 1);
  shortLived.reset();
  drain();
  rt.advance(5);
}

}  // namespace
}  // namespace wh
