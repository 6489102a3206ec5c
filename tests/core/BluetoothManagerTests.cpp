#include <gtest/gtest.h>

#include <algorithm>

#include "core/bluetooth/BluetoothManager.h"
#include "doubles/VirtualRuntime.h"
#include "doubles/MemoryStore.h"
#include "support/CapturedLog.h"
#include "doubles/FakeBluetooth.h"

namespace wh {
namespace {

using Kind = BluetoothManager::Phase::Kind;

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

  void editDevice(const char* address, const std::function<void(DeviceSetting&)>& edit) {
    auto devices = settings.devices();
    for (auto& device : devices) {
      if (device.address == address) edit(device);
    }
    settings.setDevices(devices);
  }
  Kind kind(const char* address) const {
    auto phase = manager.phaseOf(address);
    return phase ? phase->kind() : Kind::disconnected;
  }
  // Runs the Bluetooth queue and what it hands back.
  void settle() { rt.drainSerialQueues(); }

  VirtualRuntime rt;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  test::FakeBluetoothStack stack;
  test::FakeSleepWatcher sleep;
  BluetoothManager manager{rt, settings, stack, sleep};
  test::CapturedLog log;
  std::vector<std::string> events;
  int changes = 0;
};

TEST_F(BluetoothManagerTest, ToggleConnectsOnTheQueueAndIgnoresClicksWhileInFlight) {
  manager.start();
  changes = 0;
  manager.toggle("AA:BB:CC:DD:EE:FF");
  EXPECT_EQ(kind(buds), Kind::connecting);
  EXPECT_TRUE(stack.calls.empty()) << "the blocking call waits for the Bluetooth queue";
  manager.toggle(buds);  // second click while connecting
  settle();
  EXPECT_EQ(stack.calls, std::vector<std::string>{"open aa-bb-cc-dd-ee-ff"});
  EXPECT_EQ(kind(buds), Kind::connected);
  EXPECT_EQ(events, std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff user"});
  EXPECT_EQ(changes, 2);  // connecting, connected
  EXPECT_EQ(log->lines.front(), "connecting aa-bb-cc-dd-ee-ff (user, attempt 1)");
  EXPECT_NE(rt.serialQueue("wrenhaven.bluetooth"), nullptr);
}

TEST_F(BluetoothManagerTest, UserConnectRetriesOnceAfterOneAndAHalfSecondsThenFails) {
  stack.connectResults = {BluetoothStatus::timeout, BluetoothStatus::timeout};
  bool result = true;
  int completions = 0;
  manager.connect(buds, ConnectReason::user, 1, [&](bool connected) {
    result = connected;
    ++completions;
  });
  settle();
  EXPECT_EQ(stack.calls.size(), 1u);
  EXPECT_EQ(kind(buds), Kind::connecting) << "stays connecting between attempts";
  rt.advance(1.49);
  settle();
  EXPECT_EQ(stack.calls.size(), 1u);
  rt.advance(0.01);
  settle();
  EXPECT_EQ(stack.calls.size(), 2u);
  EXPECT_EQ(manager.phaseOf(buds), BluetoothManager::Phase::failed("The device did not answer"));
  EXPECT_EQ(manager.phaseOf(buds)->text(), "failed:The device did not answer");
  EXPECT_FALSE(result);
  EXPECT_EQ(completions, 1);
  EXPECT_EQ(log->lines.back(), "connect failed for aa-bb-cc-dd-ee-ff: 0xe00002d6");
  rt.advance(60);
  settle();
  EXPECT_EQ(stack.calls.size(), 2u);
}

TEST_F(BluetoothManagerTest, WakeConnectTriesFourTimesWaitingThreeSixAndNineSeconds) {
  stack.connectResults.assign(4, BluetoothStatus::bluetoothOff);
  std::vector<double> attemptsAt;
  manager.connect(buds, ConnectReason::wake, 1);
  for (int step = 0; step < 2000; ++step) {
    const auto before = stack.calls.size();
    settle();
    if (stack.calls.size() > before) attemptsAt.push_back(rt.clock().now());
    rt.advance(0.01);
  }
  ASSERT_EQ(attemptsAt.size(), 4u);
  EXPECT_NEAR(attemptsAt[1] - attemptsAt[0], 3.0, 0.011);
  EXPECT_NEAR(attemptsAt[2] - attemptsAt[1], 6.0, 0.011);
  EXPECT_NEAR(attemptsAt[3] - attemptsAt[2], 9.0, 0.011);
  EXPECT_EQ(manager.phaseOf(buds), BluetoothManager::Phase::failed("Bluetooth is off"));
}

TEST_F(BluetoothManagerTest, ExternalAndUnknownDevicesAreNeverRetried) {
  stack.connectResults = {BluetoothStatus::notFound};
  manager.connect(buds, ConnectReason::external, 1);
  settle();
  rt.advance(30);
  settle();
  EXPECT_EQ(stack.calls.size(), 1u);
  EXPECT_EQ(manager.phaseOf(buds), BluetoothManager::Phase::failed("The device is out of range"));

  bool result = true;
  manager.connect("99-99-99-99-99-99", ConnectReason::user, 1, [&](bool connected) { result = connected; });
  settle();
  rt.advance(30);
  settle();
  EXPECT_EQ(manager.phaseOf("99-99-99-99-99-99"), BluetoothManager::Phase::failed("Unknown device"));
  EXPECT_FALSE(result);
  EXPECT_EQ(stack.calls.size(), 1u);
}

TEST_F(BluetoothManagerTest, ConnectingAnAlreadyConnectedDeviceSucceedsAtOnceWithItsReason) {
  stack.devices[buds].connected = true;
  bool result = false;
  manager.connect(buds, ConnectReason::repair, 1, [&](bool connected) { result = connected; });
  settle();
  EXPECT_TRUE(stack.calls.empty());
  EXPECT_TRUE(result);
  EXPECT_EQ(events, std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff repair"});
}

TEST_F(BluetoothManagerTest, StatusTextsFollowTheStatus) {
  EXPECT_EQ(BluetoothManager::describe(BluetoothStatus::bluetoothOff), "Bluetooth is off");
  EXPECT_EQ(BluetoothManager::describe(BluetoothStatus::timeout), "The device did not answer");
  EXPECT_EQ(BluetoothManager::describe(BluetoothStatus::notFound), "The device is out of range");
  EXPECT_EQ(BluetoothManager::describe(BluetoothStatus::failed), "Could not connect");
  EXPECT_EQ(BluetoothManager::describe(static_cast<BluetoothStatus>(0x1234)), "Could not connect");
}

TEST_F(BluetoothManagerTest, ToggleOnConnectedDisconnectsAndSettlesASecondLater) {
  manager.start();
  manager.connect(buds, ConnectReason::user, 1);
  settle();
  events.clear();
  manager.toggle(buds);
  EXPECT_EQ(kind(buds), Kind::disconnecting);
  settle();
  EXPECT_EQ(stack.calls.back(), "close aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(kind(buds), Kind::disconnecting) << "the phase settles a second later";
  rt.advance(1.0);
  EXPECT_EQ(kind(buds), Kind::disconnected);
  EXPECT_EQ(events, std::vector<std::string>{"disconnected aa-bb-cc-dd-ee-ff"});
}

TEST_F(BluetoothManagerTest, AFailedDisconnectIsLoggedAndSettlesBackToConnected) {
  manager.connect(buds, ConnectReason::user, 1);
  settle();
  stack.closeResult = BluetoothStatus::failed;
  events.clear();
  manager.toggle(buds);
  settle();
  rt.advance(1.0);
  EXPECT_EQ(kind(buds), Kind::connected);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(log->lines.back(), "disconnect failed for aa-bb-cc-dd-ee-ff: 0xe00002bc");
}

TEST_F(BluetoothManagerTest, ConnectOnlyHeadphonesStayConnectedAndGetTheSoundAgain) {
  editDevice(buds, [](DeviceSetting& device) { device.connectOnly = true; });
  manager.connect(buds, ConnectReason::user, 1);
  settle();
  events.clear();
  manager.toggle(buds);
  settle();
  rt.advance(2);
  EXPECT_EQ(kind(buds), Kind::connected);
  EXPECT_EQ(events, std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff user"});
  EXPECT_EQ(std::count(stack.calls.begin(), stack.calls.end(), "close aa-bb-cc-dd-ee-ff"), 0);
}

TEST_F(BluetoothManagerTest, NotificationsFollowRememberedHeadphonesOnly) {
  manager.start();
  stack.add("99-99-99-99-99-99", "Someone Else's");
  stack.connectFromOutside("99:99:99:99:99:99");
  EXPECT_FALSE(manager.phaseOf("99-99-99-99-99-99"));
  EXPECT_TRUE(events.empty());

  stack.connectFromOutside("AA:BB:CC:DD:EE:FF");
  EXPECT_EQ(kind(buds), Kind::connected);
  EXPECT_EQ(events, std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff external"});
  stack.connectFromOutside(buds);  // already connected: nothing new
  EXPECT_EQ(events.size(), 1u);

  stack.disconnectFromOutside(buds);
  EXPECT_EQ(kind(buds), Kind::disconnected);
  EXPECT_EQ(events.back(), "disconnected aa-bb-cc-dd-ee-ff");

  // Headphones never seen connected have no disconnect registration: a failure stays on show.
  manager.set(cans, BluetoothManager::Phase::failed("Could not connect"));
  stack.disconnectFromOutside(cans);
  EXPECT_EQ(kind(cans), Kind::failed);
  EXPECT_EQ(events.size(), 2u);
}

TEST_F(BluetoothManagerTest, ADisconnectNotificationDuringAConnectLeavesItConnecting) {
  manager.start();
  stack.connectFromOutside(buds);  // registers the disconnect notification
  manager.set(buds, BluetoothManager::Phase::connecting());
  stack.disconnectFromOutside(buds);
  EXPECT_EQ(kind(buds), Kind::connecting);
}

TEST_F(BluetoothManagerTest, SettingTheSamePhaseTwiceCallsOnChangeOnce) {
  manager.set(buds, BluetoothManager::Phase::failed("Could not connect"));
  manager.set("AA:BB:CC:DD:EE:FF", BluetoothManager::Phase::failed("Could not connect"));
  EXPECT_EQ(changes, 1);
  manager.set(buds, BluetoothManager::Phase::failed("Bluetooth is off"));
  EXPECT_EQ(changes, 2);
}

TEST_F(BluetoothManagerTest, PollsFastForTenSecondsAfterActivityThenEveryThirtySeconds) {
  manager.start();
  manager.connect(buds, ConnectReason::user, 1);
  settle();
  // The headphones drop without a notification: the fast poll notices within a second.
  stack.devices[buds].connected = false;
  rt.advance(1.0);
  EXPECT_EQ(kind(buds), Kind::disconnected);

  // Ten quiet seconds later the fast poll has stopped; only the 30-second poll remains.
  rt.advance(12);
  const double quietSince = rt.clock().now();
  stack.devices[buds].connected = true;
  rt.advance(2);
  EXPECT_EQ(kind(buds), Kind::disconnected);
  const double nextSlowTick = 30.0 * (static_cast<int>(quietSince / 30.0) + 1);
  rt.advance(nextSlowTick - rt.clock().now() + 0.001);
  EXPECT_EQ(kind(buds), Kind::connected);
}

TEST_F(BluetoothManagerTest, ARefreshReadsTheStackOnceForAllHeadphones) {
  stack.devices[cans].connected = true;
  manager.refresh();
  EXPECT_EQ(stack.stateReads, 1);
  EXPECT_EQ(kind(buds), Kind::disconnected);
  EXPECT_EQ(kind(cans), Kind::connected);
}

TEST_F(BluetoothManagerTest, RefreshKeepsAFailureWhileDisconnectedAndLeavesOperationsInFlightAlone) {
  manager.set(buds, BluetoothManager::Phase::failed("Could not connect"));
  manager.set(cans, BluetoothManager::Phase::disconnecting());
  stack.devices[cans].connected = true;
  manager.refresh();
  EXPECT_EQ(kind(buds), Kind::failed);
  EXPECT_EQ(kind(cans), Kind::disconnecting);
  stack.devices[buds].connected = true;
  manager.refresh();
  EXPECT_EQ(kind(buds), Kind::connected);
}

TEST_F(BluetoothManagerTest, SleepDisconnectsAtOnceAndWakeReconnectsThreeSecondsLater) {
  editDevice(buds, [](DeviceSetting& device) {
    device.disconnectOnSleep = true;
    device.connectOnWake = true;
  });
  manager.start();
  manager.connect(buds, ConnectReason::user, 1);
  manager.connect(cans, ConnectReason::user, 1);
  settle();
  stack.calls.clear();

  sleep.sleep();
  EXPECT_EQ(stack.calls, std::vector<std::string>{"close aa-bb-cc-dd-ee-ff"}) << "closed before returning";
  EXPECT_EQ(log->lines.back(), "disconnecting Sleep Buds for sleep");
  EXPECT_FALSE(stack.devices[buds].connected);
  EXPECT_TRUE(stack.devices[cans].connected);

  rt.advance(1);  // the fast poll sees the buds gone
  sleep.wake();
  rt.advance(2.9);
  settle();
  EXPECT_EQ(stack.calls.size(), 1u);
  rt.advance(0.1);
  settle();
  EXPECT_EQ(stack.calls.back(), "open aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(kind(buds), Kind::connected);
  EXPECT_EQ(events.back(), "connected aa-bb-cc-dd-ee-ff wake");
}

TEST_F(BluetoothManagerTest, SleepingAgainWithinThreeSecondsOfWakeCancelsTheReconnect) {
  editDevice(buds, [](DeviceSetting& device) { device.connectOnWake = true; });
  manager.start();
  sleep.wake();
  rt.advance(2);
  sleep.sleep();
  rt.advance(10);
  settle();
  EXPECT_TRUE(stack.calls.empty());
}

TEST_F(BluetoothManagerTest, WorkComingBackAfterTheManagerIsGoneDoesNothing) {
  auto shortLived = std::make_unique<BluetoothManager>(rt, settings, stack, sleep);
  int connected = 0;
  shortLived->onConnected = [&](const std::string&, ConnectReason) { ++connected; };
  shortLived->connect(buds, ConnectReason::user, 1);
  shortLived.reset();
  settle();
  rt.advance(5);
  EXPECT_EQ(connected, 0);
}

}  // namespace
}  // namespace wh
