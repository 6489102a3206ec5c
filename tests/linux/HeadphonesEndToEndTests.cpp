// The real agent process with the whole path real: bluetoothd, logind and UPower stand-ins on a
// private system bus, a private session bus for the command channel, a private PulseAudio daemon
// whose headphones' nodes appear when the headphones connect, and the agent's own settings file.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include <nlohmann/json.hpp>

#include "support/AgentHome.h"
#include "support/AudioBridge.h"
#include "support/ChildProcess.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"
#include "support/SystemBusRig.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;

constexpr const char* kAddress = "aa-bb-cc-dd-ee-ff";
constexpr const char* kOutput = "bluez_output.AA_BB_CC_DD_EE_FF.1";
constexpr const char* kHeadphones = test::SystemBusRig::headphonesAddress;

std::vector<test::PulseRig::Device> laptopOnly() {
  auto devices = test::PulseRig::laptopWithHeadphones();
  std::erase_if(devices, [](const auto& device) {
    return device.name != test::PulseRig::laptopSpeakers && device.name != test::PulseRig::laptopMicrophone;
  });
  return devices;
}

class HeadphonesEndToEndTest : public testing::Test {
 protected:
  explicit HeadphonesEndToEndTest(test::SoundServer server = test::SoundServer::pulseAudio) : pulse{laptopOnly(), server} {}

  // Starts the rigs, remembers the headphones in the settings file and starts the agent; with
  // `bluetoothdRunning` false, bluetoothd is not on the bus when the agent starts.
  void start(double bridgeDelay, bool bluetoothdRunning = true) {
    REQUIRE_RIG(bus.available(), bus.whyNot());
    REQUIRE_RIG(pulse.available(), pulse.whyNot());
    ASSERT_TRUE(bus.addHeadphones());
    if (!bluetoothdRunning) bus.stopBluez();
    bridge = std::make_unique<test::AudioBridge>(bus, pulse, bridgeDelay);
    ASSERT_TRUE(bridge->available()) << bridge->whyNot();

    const nlohmann::json devices = nlohmann::json::array(
        {{{"address", kAddress}, {"name", "WH-1000XM4"}, {"connectOnWake", true}, {"disconnectOnSleep", true}}});
    home.writeSettings({{"devices", test::AgentHome::devicesValue(devices)}});

    statusSignals = std::make_unique<ChildProcess>(std::vector<std::string>{
        "dbus-monitor", "--address", bus.sessionBusAddress(),
        "type='signal',interface='com.quintelbarrows.wrenhaven',member='status'"});

    auto environment = home.environment(bus.environment());
    for (const auto& [name, value] : pulse.clientEnvironment()) environment[name] = value;
    std::string failure;
    agent = home.launch(environment, failure);
    ASSERT_TRUE(agent) << failure;
    if (!bluetoothdRunning) return;
    // Started through the access gate once bluetoothd answered: the first refresh reads the phase.
    ASSERT_TRUE(test::eventually([&] { return status("agent.bluetooth").contains(kAddress); }, 15s)) << log();
  }

  std::string log() const { return home.log(); }
  bool logged(const std::string& line) const { return log().find(line) != std::string::npos; }
  nlohmann::json status(const std::string& key) const { return home.status(key); }
  std::string phase() const {
    auto phases = status("agent.bluetooth");
    return phases.contains(kAddress) ? phases[kAddress].get<std::string>() : std::string();
  }
  // Sends a command signal as the settings program does: from a connection registered on the bus.
  test::CommandResult emit(const std::vector<std::string>& arguments) const {
    return test::AgentHome::command(bus.sessionBusAddress(), arguments);
  }
  void toggle() { ASSERT_EQ(emit({std::string("'toggle:") + kAddress + "'", "@a{sv} {}"}).status, 0); }
  std::string defaultSink() const { return pulse.pactlLine({"get-default-sink"}); }

  test::AgentHome home;
  test::SystemBusRig bus{{.bluez = true, .logind = true, .upower = true, .sessionBus = true, .denyBluez = false}};
  test::PulseRig pulse;
  std::unique_ptr<test::AudioBridge> bridge;
  std::unique_ptr<ChildProcess> statusSignals, agent;
};

// The toggle's whole path on each sound server.
class HeadphonesOutputEndToEndTest : public HeadphonesEndToEndTest, public testing::WithParamInterface<test::SoundServer> {
 protected:
  HeadphonesOutputEndToEndTest() : HeadphonesEndToEndTest(GetParam()) {}
};

TEST_P(HeadphonesOutputEndToEndTest, ToggleConnectsMovesTheOutputAndPublishesPhaseAndBatteryPastMalformedCommands) {
  start(0.5);
  EXPECT_EQ(phase(), "disconnected");
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"'toggle:'", "@a{sv} {}"}, {"'no such command'", "@a{sv} {}"}, {"'toggle'", "@a{sv} {'address': <42>}"}, {"42"}}) {
    EXPECT_EQ(emit(arguments).status, 0);
  }
  EXPECT_EQ(defaultSink(), test::PulseRig::laptopSpeakers);
  toggle();
  ASSERT_TRUE(test::eventually([&] { return bridge->appearedAt().has_value(); }, 20s)) << log() << bridge->output();
  // From here the default is asked again as soon as each answer is in: the output had moved by the
  // time of the answer that shows it, and not yet when the one before it was asked.
  const auto seconds = [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); };
  double askedBefore = seconds(), asked = askedBefore;
  const double deadline = asked + 20;
  while (defaultSink() != kOutput) {  // the question of this turn was asked at `asked`
    ASSERT_LT(asked, deadline) << log() << bridge->output();
    askedBefore = asked;
    asked = seconds();
  }
  const double answered = seconds();
  RecordProperty("sink_to_default_output_ms", static_cast<int>((answered - *bridge->appearedAt()) * 1000));
  RecordProperty("poll_step_ms", static_cast<int>((answered - askedBefore) * 1000));
  EXPECT_EQ(bus.connectCalls(kHeadphones), 1);
  EXPECT_TRUE(test::eventually([&] { return phase() == "connected"; }, 10s)) << phase();
  EXPECT_TRUE(logged("output set to WH-1000XM4")) << log();
  EXPECT_NE(statusSignals->output().find("member=status"), std::string::npos) << statusSignals->output();
  // Three seconds after the connection the battery is read from BlueZ.
  EXPECT_TRUE(test::eventually([&] { return status("agent.battery").contains(kAddress); }, 15s));
  EXPECT_EQ(status("agent.battery")[kAddress]["single"], 80);
  toggle();
  EXPECT_TRUE(test::eventually([&] { return phase() == "disconnected"; }, 15s)) << phase();
  EXPECT_FALSE(bus.isConnected(kHeadphones));
  EXPECT_TRUE(agent->running());
  EXPECT_EQ(status("agent.bluetooth").size(), 1u) << status("agent.bluetooth").dump();
}

INSTANTIATE_TEST_SUITE_P(Servers, HeadphonesOutputEndToEndTest, test::bothSoundServers(), test::soundServerTestName);

TEST_F(HeadphonesEndToEndTest, HeadphonesWhoseSoundNeverArrivesAreReconnectedOnceThenGivenUp) {
  start(-1);
  toggle();
  ASSERT_TRUE(test::eventually([&] { return logged("gave up setting output for aa-bb-cc-dd-ee-ff"); }, 40s)) << log();
  EXPECT_TRUE(logged("connecting aa-bb-cc-dd-ee-ff (repair, attempt 1)"));
  EXPECT_EQ(bus.connectCalls(kHeadphones), 2);
  EXPECT_EQ(phase(), "connected");
}

TEST_F(HeadphonesEndToEndTest, SleepDisconnectsBeforeTheInhibitorIsReleasedAndWakeReconnects) {
  start(0.2);
  toggle();
  ASSERT_TRUE(test::eventually([&] { return phase() == "connected"; }, 20s)) << log();
  const auto held = [&] {
    const auto locks = bus.inhibitors();
    return std::any_of(locks.begin(), locks.end(), [](const auto& lock) { return lock.starts_with("sleep Wrenhaven"); });
  };
  ASSERT_TRUE(held());
  ASSERT_TRUE(bus.emitPrepareForSleep(true));
  // Whenever the lock is seen gone, the headphones must already be disconnected.
  ASSERT_TRUE(test::eventually([&] { return !held(); }, 10s)) << "the delay lock was never released";
  EXPECT_FALSE(bus.isConnected(kHeadphones));
  ASSERT_TRUE(bus.emitPrepareForSleep(false));
  EXPECT_TRUE(test::eventually([&] { return bus.isConnected(kHeadphones); }, 20s)) << log();
  EXPECT_TRUE(logged("connecting aa-bb-cc-dd-ee-ff (wake, attempt 1)")) << log();
  EXPECT_TRUE(test::eventually(held, 10s)) << "a new lock is taken after wake";
}

TEST_F(HeadphonesEndToEndTest, BluetoothStartsWhenBluetoothdAppearsAndConnectFailuresEndInTheirText) {
  start(0.2, false);
  ASSERT_TRUE(test::eventually([&] { return logged(" started on "); }, 15s)) << "launching has finished: " << log();
  EXPECT_TRUE(status("agent.bluetooth").empty()) << "the manager waits for access";
  EXPECT_TRUE(test::eventually([&] { return status("agent.bluetoothAdapter") == "noService"; }, 15s))
      << "what stops Bluetooth is published for the surfaces to say";
  ASSERT_TRUE(bus.startBluez());
  ASSERT_TRUE(test::eventually([&] { return phase() == "disconnected"; }, 15s)) << log();
  EXPECT_TRUE(test::eventually([&] { return status("agent.bluetoothAdapter") == "on"; }, 15s));
  ASSERT_TRUE(bus.setAdapterPowered(false));
  EXPECT_TRUE(test::eventually([&] { return status("agent.bluetoothAdapter") == "off"; }, 15s));
  ASSERT_TRUE(bus.setAdapterPowered(true));
  ASSERT_TRUE(bus.behave(kHeadphones, "Connect", {"fail", "org.bluez.Error.Failed", "Page Timeout"}));
  toggle();
  ASSERT_TRUE(test::eventually([&] { return phase().starts_with("failed:"); }, 20s)) << log();
  EXPECT_EQ(phase(), "failed:The device did not answer");
  EXPECT_EQ(bus.connectCalls(kHeadphones), 2) << "the user's retry";
}

}  // namespace
}  // namespace wh
