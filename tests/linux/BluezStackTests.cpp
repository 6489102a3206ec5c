// The Bluetooth stack against python-dbusmock's bluetoothd on a private system bus: which devices
// count as paired headphones, connect and disconnect from the Bluetooth queue's kind of thread,
// BlueZ's errors, a call that never returns, and bluetoothd missing, restarting or losing a device.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SystemBusTest.h"
#include "platform/linux/bluetooth/BluezStack.h"

namespace wh::platform {
namespace {

using namespace std::chrono_literals;
using test::SystemBusRig;

constexpr const char* headphones = SystemBusRig::headphonesAddress;
constexpr const char* headphonesNormal = "aa-bb-cc-dd-ee-ff";

SystemBusRig::Device device(const std::string& address, const std::string& name, std::uint32_t deviceClass,
                            bool paired = true) {
  SystemBusRig::Device made;
  made.address = address;
  made.name = name;
  made.deviceClass = deviceClass;
  made.paired = paired;
  return made;
}

// What the stack reported, in order, and whether it all came on the main thread.
struct Reports {
  std::vector<std::string> lines;
  bool allOnMain = true;
  std::thread::id mainThread = std::this_thread::get_id();

  std::unique_ptr<Registration> observe(BluetoothStack& stack) {
    return stack.observeConnections([this](const std::string& a) { add("connected " + a); },
                                    [this](const std::string& a) { add("disconnected " + a); });
  }
  void add(std::string line) {
    allOnMain = allOnMain && std::this_thread::get_id() == mainThread;
    lines.push_back(std::move(line));
  }
  bool reach(std::size_t count) { return test::spinUntil([&] { return lines.size() >= count; }); }
};

class BluezStackTest : public test::SystemBusTest {
 protected:
  bool start(SystemBusRig::Options options = {}, std::chrono::milliseconds callTimeout = 3s) {
    if (!SystemBusTest::start(options)) return false;
    stack = std::make_unique<BluezStack>(mainQueue(), connection(), callTimeout);
    return true;
  }
  // Every call of the stack goes out on one connection, so once this answers, bluetoothd has also
  // answered the observation's first read, which went out before it.
  void settle() { stack->pairedAudioDevices(); }

  std::unique_ptr<BluezStack> stack;
};

TEST_F(BluezStackTest, ListsOnlyPairedAudioDevicesWithTheirNamesAndState) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(rig->addDevice(device("11:22:33:44:55:66", "Buds Pro", SystemBusRig::headphonesClass)));
  ASSERT_TRUE(rig->addDevice(device("22:33:44:55:66:77", "Pixel", SystemBusRig::phoneClass)));
  ASSERT_TRUE(rig->addDevice(device("33:44:55:66:77:88", "Kitchen Speaker", 0x240414, false)));
  ASSERT_TRUE(rig->addDevice(device("44:55:66:77:88:99", "", SystemBusRig::headphonesClass)));
  ASSERT_TRUE(rig->connectFromOutside("11:22:33:44:55:66"));

  EXPECT_EQ(stack->pairedAudioDevices(), (std::vector<PairedDevice>{
                                             {headphonesNormal, "WH-1000XM4", false},
                                             {"11-22-33-44-55-66", "Buds Pro", true},
                                             {"44-55-66-77-88-99", "44-55-66-77-88-99", false},
                                         }));
  // Either form of the address is accepted.
  EXPECT_EQ(stack->isConnected("11:22:33:44:55:66"), true);
  EXPECT_EQ(stack->isConnected("11-22-33-44-55-66"), true);
  EXPECT_EQ(stack->isConnected(headphonesNormal), false);
  // All link states in one reading, for every device BlueZ knows (paired or not, any class).
  const auto states = stack->connectionStates();
  EXPECT_EQ(states.size(), 5u);
  EXPECT_EQ(states.at("11-22-33-44-55-66"), true);
  EXPECT_EQ(states.at(headphonesNormal), false);
  EXPECT_EQ(states.count("99-99-99-99-99-99"), 0u);
  // A device BlueZ does not know is nothing, not a failure.
  EXPECT_EQ(stack->isConnected("99:99:99:99:99:99"), std::nullopt);
  EXPECT_EQ(stack->openConnection("99:99:99:99:99:99"), std::nullopt);
  EXPECT_EQ(stack->closeConnection("99:99:99:99:99:99"), std::nullopt);
}

TEST_F(BluezStackTest, ConnectsAndDisconnectsFromAnotherThreadAndReportsItOnTheMainThread) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(rig->addDevice(device("33:44:55:66:77:88", "Kitchen Speaker", 0x240414, false)));
  // Connected before anyone watched: where the reports start from, not news.
  ASSERT_TRUE(rig->addDevice(device("11:22:33:44:55:66", "Buds Pro", SystemBusRig::headphonesClass)));
  ASSERT_TRUE(rig->connectFromOutside("11:22:33:44:55:66"));
  Reports reports;
  auto registration = reports.observe(*stack);
  settle();

  EXPECT_EQ(test::offMainThread([&] { return stack->openConnection(headphones); }), BluetoothStatus::success);
  ASSERT_TRUE(reports.reach(1));
  EXPECT_TRUE(rig->isConnected(headphones));
  EXPECT_EQ(stack->isConnected(headphonesNormal), true);
  // Connecting a connected device succeeds without asking BlueZ again.
  EXPECT_EQ(test::offMainThread([&] { return stack->openConnection(headphonesNormal); }), BluetoothStatus::success);
  EXPECT_EQ(rig->connectCalls(headphones), 1);

  EXPECT_EQ(test::offMainThread([&] { return stack->closeConnection(headphones); }), BluetoothStatus::success);
  ASSERT_TRUE(reports.reach(2));
  EXPECT_FALSE(rig->isConnected(headphones));
  EXPECT_EQ(test::offMainThread([&] { return stack->closeConnection(headphones); }), BluetoothStatus::success);

  // Links made and broken by someone else; a device that is not paired is not reported.
  ASSERT_TRUE(rig->connectFromOutside("33:44:55:66:77:88"));
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(reports.reach(3));
  ASSERT_TRUE(rig->disconnectFromOutside(headphones));
  ASSERT_TRUE(reports.reach(4));
  EXPECT_EQ(reports.lines, (std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff",
                                                     "connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff"}));
  EXPECT_TRUE(reports.allOnMain);

  // A dropped registration reports nothing more, while a newer one does.
  registration.reset();
  Reports later;
  auto laterRegistration = later.observe(*stack);
  settle();
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(later.reach(1));
  test::spinFor(50);
  EXPECT_EQ(reports.lines.size(), 4u);
}

TEST_F(BluezStackTest, BluezErrorsBecomeTheStatusesShownToTheUser) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  struct Case {
    const char* error;
    const char* message;
    BluetoothStatus status;
  };
  const Case cases[] = {
      {"org.bluez.Error.NotReady", "Resource Not Ready", BluetoothStatus::bluetoothOff},
      {"org.bluez.Error.Failed", "br-connection-adapter-not-powered", BluetoothStatus::bluetoothOff},
      {"org.bluez.Error.Failed", "br-connection-page-timeout", BluetoothStatus::timeout},
      {"org.bluez.Error.ConnectionAttemptFailed", "Page Timeout", BluetoothStatus::timeout},
      {"org.freedesktop.DBus.Error.Timeout", "Timed out", BluetoothStatus::timeout},
      {"org.bluez.Error.DoesNotExist", "Does Not Exist", BluetoothStatus::notFound},
      {"org.bluez.Error.Failed", "Host is down", BluetoothStatus::notFound},
      {"org.freedesktop.DBus.Error.UnknownObject", "No such object", BluetoothStatus::notFound},
      {"org.bluez.Error.InProgress", "In Progress", BluetoothStatus::failed},
      {"org.bluez.Error.Failed", "br-connection-refused", BluetoothStatus::failed},
      {"org.bluez.Error.AuthenticationFailed", "Authentication Failed", BluetoothStatus::failed},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.error) + ": " + c.message);
    ASSERT_TRUE(rig->failConnect(headphones, c.error, c.message));
    EXPECT_EQ(stack->openConnection(headphones), c.status);
  }

  // An adapter that is switched off is "Bluetooth is off" without asking the device.
  ASSERT_TRUE(rig->connectNormally(headphones));
  const int callsBefore = rig->connectCalls(headphones);
  ASSERT_TRUE(rig->setAdapterPowered("hci0", false));
  EXPECT_EQ(stack->openConnection(headphones), BluetoothStatus::bluetoothOff);
  EXPECT_EQ(rig->connectCalls(headphones), callsBefore);
  ASSERT_TRUE(rig->setAdapterPowered("hci0", true));
  EXPECT_EQ(stack->openConnection(headphones), BluetoothStatus::success);

  // Disconnect's errors are mapped the same way.
  ASSERT_TRUE(rig->failDisconnect(headphones, "org.bluez.Error.Failed", "Input/output error"));
  EXPECT_EQ(stack->closeConnection(headphones), BluetoothStatus::failed);
  ASSERT_TRUE(rig->failDisconnect(headphones, "org.bluez.Error.NotReady", "Resource Not Ready"));
  EXPECT_EQ(stack->closeConnection(headphones), BluetoothStatus::bluetoothOff);
}

TEST_F(BluezStackTest, AConnectThatNeverAnswersEndsAsATimeoutWithinTheBound) {
  if (!start({}, 400ms)) return;
  ASSERT_TRUE(rig->addHeadphones());
  constexpr double hang = 5.0;
  ASSERT_TRUE(rig->hangConnect(headphones, hang));
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(test::offMainThread([&] { return stack->openConnection(headphones); }), BluetoothStatus::timeout);
  // It gave up on its own: bluetoothd would only have answered (with success) after `hang`.
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::duration<double>(hang - 1.0));
}

TEST_F(BluezStackTest, BluetoothdAbsentAtStartIsFollowedOnceItAppears) {
  if (!start({.bluez = false})) return;
  Reports reports;
  auto registration = reports.observe(*stack);
  EXPECT_TRUE(stack->pairedAudioDevices().empty());
  EXPECT_EQ(stack->isConnected(headphones), std::nullopt);
  EXPECT_EQ(stack->openConnection(headphones), BluetoothStatus::notFound);

  ASSERT_TRUE(rig->startBluez());
  ASSERT_TRUE(rig->addHeadphones());
  EXPECT_EQ(stack->pairedAudioDevices(), (std::vector<PairedDevice>{{headphonesNormal, "WH-1000XM4", false}}));
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(reports.reach(1));
  EXPECT_EQ(stack->closeConnection(headphones), BluetoothStatus::success);
  ASSERT_TRUE(reports.reach(2));
  EXPECT_EQ(reports.lines,
            (std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff"}));
}

TEST_F(BluezStackTest, BluetoothdRestartingWhileConnectedReportsTheLossAndKeepsReporting) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  Reports reports;
  auto registration = reports.observe(*stack);
  settle();
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(reports.reach(1));

  rig->stopBluez(true);
  ASSERT_TRUE(reports.reach(2));
  EXPECT_EQ(stack->openConnection(headphones), BluetoothStatus::notFound);

  ASSERT_TRUE(rig->startBluez());
  EXPECT_EQ(stack->isConnected(headphones), false);
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(reports.reach(3));
  EXPECT_EQ(test::offMainThread([&] { return stack->closeConnection(headphones); }), BluetoothStatus::success);
  ASSERT_TRUE(reports.reach(4));
  EXPECT_EQ(reports.lines, (std::vector<std::string>{"connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff",
                                                     "connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff"}));
}

TEST_F(BluezStackTest, ADeviceThatDisappearsIsOutOfRangeAndNoLongerConnected) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(rig->addDevice(device("11:22:33:44:55:66", "Buds Pro", SystemBusRig::headphonesClass)));
  Reports reports;
  auto registration = reports.observe(*stack);
  settle();

  // Removed while the connect runs.
  ASSERT_TRUE(rig->removeDuringConnect(headphones));
  EXPECT_EQ(test::offMainThread([&] { return stack->openConnection(headphones); }), BluetoothStatus::notFound);
  EXPECT_EQ(stack->isConnected(headphones), std::nullopt);

  // Removed while connected.
  ASSERT_TRUE(rig->connectFromOutside("11:22:33:44:55:66"));
  ASSERT_TRUE(reports.reach(1));
  ASSERT_TRUE(rig->removeDevice("11:22:33:44:55:66"));
  ASSERT_TRUE(reports.reach(2));
  EXPECT_EQ(reports.lines,
            (std::vector<std::string>{"connected 11-22-33-44-55-66", "disconnected 11-22-33-44-55-66"}));
  EXPECT_TRUE(stack->pairedAudioDevices().empty());
}

}  // namespace
}  // namespace wh::platform
