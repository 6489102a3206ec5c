// The Bluetooth stack against python-dbusmock's bluetoothd on a private system bus: the live copy
// of BlueZ's objects that answers the reads, connect and disconnect from the Bluetooth queue's
// kind of thread, BlueZ's errors, a call that never returns, and bluetoothd missing, restarting or
// losing a device.
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
using Strings = std::vector<std::string>;

constexpr const char* headphones = SystemBusRig::headphonesAddress;
constexpr const char* buds = "11:22:33:44:55:66";

class BluezStackTest : public test::SystemBusTest {
 protected:
  bool start(SystemBusRig::Options options = {}, std::chrono::milliseconds callTimeout = 3s) {
    if (!SystemBusTest::start(options)) return false;
    stack = std::make_unique<BluezStack>(mainQueue(), connection(), callTimeout);
    registration = stack->observeConnections([this](const std::string& a) { report("connected " + a); },
                                             [this](const std::string& a) { report("disconnected " + a); },
                                             [this] { ++readable; });
    return true;
  }
  void report(std::string line) {
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
    reports.push_back(std::move(line));
  }
  bool reported(std::size_t count) { return test::spinUntil([&] { return reports.size() >= count; }); }
  // The live copy catches up with bluetoothd.
  template <class Read, class Value>
  bool becomes(Read read, const Value& value) {
    return test::spinUntil([&] { return read() == value; });
  }
  bool linked(const char* address, BluetoothResult<bool> state) {
    return becomes([&] { return stack->isConnected(address); }, state);
  }
  BluetoothResult<BluetoothStatus> change(const char* address, bool connect) {
    return test::offMainThread([&] { return connect ? stack->openConnection(address) : stack->closeConnection(address); });
  }

  std::unique_ptr<BluezStack> stack;
  std::unique_ptr<Registration> registration;
  Strings reports;
  int readable = 0;
  std::thread::id mainThread = std::this_thread::get_id();
};

TEST_F(BluezStackTest, ReadsConnectsAndLinkReportsFollowBluezThroughTheLiveCopy) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(rig->addDevice({buds, "Buds Pro"}));
  ASSERT_TRUE(rig->addDevice({"22:33:44:55:66:77", "Pixel", SystemBusRig::phoneClass}));
  ASSERT_TRUE(rig->addDevice({"33:44:55:66:77:88", "Kitchen Speaker", 0x240414, false}));
  ASSERT_TRUE(rig->addDevice({"44:55:66:77:88:99", ""}));
  ASSERT_TRUE(rig->connectFromOutside(buds));
  const std::vector<PairedDevice> paired{{"aa-bb-cc-dd-ee-ff", "WH-1000XM4", false},
                                         {"11-22-33-44-55-66", "Buds Pro", true},
                                         {"44-55-66-77-88-99", "44-55-66-77-88-99", false}};
  EXPECT_TRUE(becomes([&] { return stack->pairedAudioDevices(); }, paired));
  const auto states = stack->connectionStates();
  ASSERT_TRUE(states);
  EXPECT_EQ(states->size(), 5u) << "every device BlueZ knows, paired or not, any class";
  EXPECT_EQ(stack->isConnected("99:99:99:99:99:99"), BluetoothError::unknownDevice);
  EXPECT_EQ(stack->openConnection("99:99:99:99:99:99"), BluetoothError::unknownDevice);

  EXPECT_EQ(change(headphones, true), BluetoothStatus::success);
  ASSERT_TRUE(linked(headphones, true));
  EXPECT_EQ(change(headphones, true), BluetoothStatus::success) << "already connected";
  EXPECT_EQ(rig->connectCalls(headphones), 1);
  EXPECT_EQ(change(headphones, false), BluetoothStatus::success);
  ASSERT_TRUE(linked(headphones, false));
  EXPECT_FALSE(rig->isConnected(headphones));
  // Links made and broken by someone else, a connected device removed; an unpaired one is not news.
  ASSERT_TRUE(rig->connectFromOutside("33:44:55:66:77:88"));
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(rig->disconnectFromOutside(headphones));
  ASSERT_TRUE(rig->removeDevice(buds));
  ASSERT_TRUE(reported(6));
  EXPECT_EQ(reports, (Strings{"connected 11-22-33-44-55-66", "connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff",
                              "connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff", "disconnected 11-22-33-44-55-66"}));
  // A device that disappears during the connect is out of range, then unknown.
  ASSERT_TRUE(rig->behave(headphones, "Connect", {"vanish"}));
  EXPECT_EQ(change(headphones, true), BluetoothStatus::notFound);
  EXPECT_TRUE(linked(headphones, BluetoothError::unknownDevice));
  // A dropped registration reports nothing more; what is connected when a stack first reads
  // BlueZ is its starting point, not news.
  registration.reset();
  ASSERT_TRUE(rig->connectFromOutside("44:55:66:77:88:99"));
  BluezStack later(mainQueue(), connection());
  auto quiet = later.observeConnections([](const std::string& a) { ADD_FAILURE() << a; }, nullptr);
  ASSERT_TRUE(becomes([&] { return later.isConnected("44:55:66:77:88:99"); }, BluetoothResult<bool>(true)));
  test::spinFor(50);
  EXPECT_EQ(reports.size(), 6u);
  // With no adapter on, a missing device means Bluetooth is off; the devices BlueZ keeps still read.
  ASSERT_TRUE(rig->setAdapterPowered(false));
  EXPECT_TRUE(linked("99:99:99:99:99:99", BluetoothError::bluetoothOff));
  EXPECT_EQ(stack->closeConnection("99:99:99:99:99:99"), BluetoothError::bluetoothOff);
  EXPECT_EQ(stack->isConnected("44:55:66:77:88:99"), true);
}

TEST_F(BluezStackTest, BluezErrorsBecomeTheStatusesShownToTheUser) {
  if (!start()) return;
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(linked(headphones, false));
  const std::tuple<const char*, const char*, const char*, BluetoothStatus> cases[] = {
      {"Connect", "org.bluez.Error.NotReady", "Resource Not Ready", BluetoothStatus::bluetoothOff},
      {"Connect", "org.bluez.Error.Failed", "br-connection-adapter-not-powered", BluetoothStatus::bluetoothOff},
      {"Connect", "org.bluez.Error.Failed", "br-connection-page-timeout", BluetoothStatus::timeout},
      {"Connect", "org.bluez.Error.ConnectionAttemptFailed", "Page Timeout", BluetoothStatus::timeout},
      {"Connect", "org.freedesktop.DBus.Error.Timeout", "Timed out", BluetoothStatus::timeout},
      {"Connect", "org.bluez.Error.DoesNotExist", "Does Not Exist", BluetoothStatus::notFound},
      {"Connect", "org.bluez.Error.Failed", "Host is down", BluetoothStatus::notFound},
      {"Connect", "org.bluez.Error.InProgress", "In Progress", BluetoothStatus::failed},
      {"Disconnect", "org.bluez.Error.Failed", "Input/output error", BluetoothStatus::failed},
  };
  for (const auto& [method, error, message, status] : cases) {
    SCOPED_TRACE(std::string(method) + " " + error + ": " + message);
    const bool connect = method == std::string("Connect");
    if (!connect && !rig->isConnected(headphones)) { ASSERT_TRUE(rig->connectFromOutside(headphones)); }
    ASSERT_TRUE(linked(headphones, !connect));
    ASSERT_TRUE(rig->behave(headphones, method, {"fail", error, message}));
    EXPECT_EQ(change(headphones, connect), status);
  }
  // An adapter that is switched off is "Bluetooth is off" without asking the device.
  ASSERT_TRUE(rig->disconnectFromOutside(headphones));
  ASSERT_TRUE(rig->behave(headphones, "Connect", {"normal"}));
  ASSERT_TRUE(rig->setAdapterPowered(false));
  ASSERT_TRUE(linked("99:99:99:99:99:99", BluetoothError::bluetoothOff));
  const int calls = rig->connectCalls(headphones);
  EXPECT_EQ(change(headphones, true), BluetoothStatus::bluetoothOff);
  EXPECT_EQ(rig->connectCalls(headphones), calls);
}

TEST_F(BluezStackTest, AConnectThatNeverAnswersEndsAsATimeoutWithinTheBound) {
  if (!start({}, 400ms)) return;
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(linked(headphones, false));
  constexpr double hang = 5.0;
  ASSERT_TRUE(rig->behave(headphones, "Connect", {"hang", std::to_string(hang)}));
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(change(headphones, true), BluetoothStatus::timeout);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::duration<double>(hang - 1.0));
}

TEST_F(BluezStackTest, WhileBluetoothdIsAbsentNothingIsAnsweredAndItIsFollowedWhenItComes) {
  if (!start({.bluez = false})) return;
  test::spinFor(100);
  EXPECT_EQ(stack->pairedAudioDevices(), BluetoothError::unreachable);
  EXPECT_EQ(stack->connectionStates(), BluetoothError::unreachable);
  EXPECT_EQ(change(headphones, true), BluetoothError::unreachable);
  EXPECT_EQ(readable, 0);
  ASSERT_TRUE(rig->startBluez());
  EXPECT_TRUE(test::spinUntil([&] { return readable == 1; }));
  ASSERT_TRUE(rig->addHeadphones());
  ASSERT_TRUE(rig->connectFromOutside(headphones));
  ASSERT_TRUE(reported(1));
  // A crash takes every link with it, and the copy is gone until bluetoothd is back.
  rig->stopBluez(true);
  ASSERT_TRUE(reported(2));
  EXPECT_TRUE(linked(headphones, BluetoothError::unreachable));
  ASSERT_TRUE(rig->startBluez());
  EXPECT_TRUE(linked(headphones, false));
  EXPECT_TRUE(test::spinUntil([&] { return readable == 2; }));
  EXPECT_EQ(change(headphones, true), BluetoothStatus::success);
  ASSERT_TRUE(reported(3));
  EXPECT_EQ(reports, (Strings{"connected aa-bb-cc-dd-ee-ff", "disconnected aa-bb-cc-dd-ee-ff",
                              "connected aa-bb-cc-dd-ee-ff"}));
}

TEST_F(BluezStackTest, TheAdapterStateFollowsBluetoothdItsAdapterAndItsPowerAndEachChangeIsReported) {
  if (!start({.bluez = false})) return;
  std::vector<BluetoothAdapterState> told;  // the state at each report
  const auto adapterNote = stack->observeAdapter([&] {
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
    told.push_back(stack->adapterState());
  });
  const auto becomesState = [&](BluetoothAdapterState state) { return becomes([&] { return stack->adapterState(); }, state); };
  EXPECT_TRUE(becomesState(BluetoothAdapterState::noService)) << "bluetoothd is not on the bus";
  ASSERT_TRUE(rig->startBluez());
  EXPECT_TRUE(becomesState(BluetoothAdapterState::noAdapter));
  ASSERT_TRUE(rig->addHeadphones());  // brings a powered adapter
  EXPECT_TRUE(becomesState(BluetoothAdapterState::on));
  ASSERT_TRUE(rig->setAdapterPowered(false));
  EXPECT_TRUE(becomesState(BluetoothAdapterState::off));
  EXPECT_EQ(change(headphones, true), BluetoothStatus::bluetoothOff);
  ASSERT_TRUE(rig->setAdapterPowered(true));
  EXPECT_TRUE(becomesState(BluetoothAdapterState::on));
  rig->stopBluez();
  EXPECT_TRUE(becomesState(BluetoothAdapterState::noService));
  using enum BluetoothAdapterState;
  EXPECT_TRUE(test::spinUntil([&] { return !told.empty() && told.back() == noService && told.size() >= 6; }));
  // Each change is reported once (the mock's new adapter may show unpowered for a moment first).
  EXPECT_EQ(std::adjacent_find(told.begin(), told.end()), told.end()) << "no report without a change";
  std::vector<BluetoothAdapterState> seen = told;
  std::erase(seen, unknown);
  if (seen.size() == 7 && seen[2] == off) seen.erase(seen.begin() + 2);
  EXPECT_EQ(seen, (std::vector<BluetoothAdapterState>{noService, noAdapter, on, off, on, noService}));
}

}  // namespace
}  // namespace wh::platform
