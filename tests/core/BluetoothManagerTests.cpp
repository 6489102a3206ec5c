// The headphones manager on the virtual clock. Every scenario plays a script of events against two
// remembered headphones (b, c) and a stranger (z), then checks their phases, a trace of what
// happened (attempts with their time, link calls, notifications, completions) and the last log line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "core/bluetooth/BluetoothManager.h"
#include "doubles/FakeBluetooth.h"
#include "doubles/MemoryStore.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

struct Scenario {
  std::string script;
  std::string phases;  // of b, c and z; "-" for disconnected
  std::string trace;
  std::string lastLog = {};
};

void PrintTo(const Scenario& s, std::ostream* out) { *out << s.script; }

class BluetoothManagerTest : public testing::TestWithParam<Scenario> {
 protected:
  BluetoothManagerTest() {
    settings.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
    settings.addDevice("11:22:33:44:55:66", "Studio Cans");
    stack.add(named.at("b"), "Sleep Buds");
    stack.add(named.at("c"), "Studio Cans");
    manager.onChange = [this] { snapshots.push_back(phases(true)); };
    manager.onConnected = [this](const std::string& a, ConnectReason r) { note("+" + token(a) + ":" + caseName(r)); };
    manager.onDisconnected = [this](const std::string& a) { note("-" + token(a)); };
  }

  // Events: "start"; "+S": S seconds pass, the Bluetooth queue running; "toggle x"; "user x",
  // "wake x", "repair x", "external x": a connect for that reason; "B": b's address as BlueZ writes
  // it; "results=a,b": the next connects' results; "read=e": reads fail with e ("ok" ends it);
  // "close=failed"; "up x"/"down x": a link made or broken outside, reported; "linked x"/"unlinked x":
  // the same, unreported; "set x=phase"; "refresh"; "readable"; "sleep"; "woke"; "quiet x"
  // (connectOnly); "sleepy x" (disconnectOnSleep, connectOnWake); "stranger": z is paired.
  void play(const std::string& script) {
    std::istringstream events(script);
    for (std::string event, arg; events >> event;) {
      const auto value = event.substr(event.find_first_of("=+") + 1);
      const auto reason = std::ranges::find(reasons, event);
      if (event[0] == '+') {
        steps(std::stod(value));
      } else if (reason != reasons.end()) {
        events >> arg;
        manager.connect(address(arg), ConnectReason(reason - reasons.begin()), 1,
                        [this, arg](bool ok) { note((ok ? "ok " : "no ") + arg); });
      } else if (event == "woke") {
        sleep.wake();
      } else if (event == "sleep") {
        sleep.sleep([this] { note("slept"); });
      } else if (event.starts_with("results=")) {
        for (std::istringstream list(value); std::getline(list, arg, ',');) stack.connectResults.push_back(statuses.at(arg));
      } else if (event.starts_with("read=")) {
        stack.readError = value == "ok" ? std::nullopt : std::optional(errors.at(value));
      } else if (event == "close=failed") {
        stack.closeResult = BluetoothStatus::failed;
      } else if (event.starts_with("set=")) {
        const auto phase = value.substr(2);
        manager.set(address(value.substr(0, 1)), phase.starts_with("failed:") ? Phase::failed(phase.substr(7)) : settled.at(phase));
      } else if (event == "start" || event == "refresh" || event == "readable" || event == "stranger") {
        if (event == "start") manager.start();
        if (event == "refresh") manager.refresh();
        if (event == "readable") stack.onReadable();
        if (event == "stranger") stack.add(named.at("z"), "Someone Else's");
      } else {
        ASSERT_TRUE(event == "toggle" || event == "up" || event == "down" || event == "linked" ||
                    event == "unlinked" || event == "quiet" || event == "sleepy")
            << "unknown script word: " << event;
        events >> arg;
        if (event == "toggle") manager.toggle(address(arg));
        if (event == "up" || event == "down") (event == "up" ? stack.connectFromOutside(address(arg)) : stack.disconnectFromOutside(address(arg)));
        if (event == "linked" || event == "unlinked") stack.devices[address(arg)].connected = event == "linked";
        if (event == "quiet" || event == "sleepy") edit(event == "quiet");
      }
      catchUp();
    }
  }
  void steps(double seconds) {
    const double start = rt.clock().now();
    for (int step = 0; step <= static_cast<int>(seconds * 100 + 0.5); ++step) {
      rt.advance(start + step / 100.0 - rt.clock().now());
      rt.drainSerialQueues();
      catchUp();
    }
  }
  void edit(bool connectOnly) {
    auto devices = settings.devices();
    if (connectOnly) devices.front().connectOnly = true;
    else devices.front().disconnectOnSleep = devices.front().connectOnWake = true;
    settings.setDevices(devices);
  }
  std::string address(const std::string& name) const { return name == "B" ? "AA:BB:CC:DD:EE:FF" : named.at(name); }
  std::string token(const std::string& address) const {
    for (const auto& [name, known] : named) {
      if (known == address) return name;
    }
    return address;
  }
  // Attempts and link calls made since the last look go into the trace before what follows them.
  void catchUp() {
    for (; logSeen < log->lines.size(); ++logSeen) {
      const auto& line = log->lines[logSeen];
      if (!line.starts_with("connecting ")) continue;
      char at[16];
      std::snprintf(at, sizeof at, "@%.1f", rt.clock().now());
      trace.push_back("try " + token(line.substr(11, 17)) + at);
    }
    for (; callsSeen < stack.calls.size(); ++callsSeen) {
      const auto& call = stack.calls[callsSeen];
      const auto space = call.find(' ') + 1;
      trace.push_back(call.substr(0, space) + token(call.substr(space)));
    }
  }
  void note(const std::string& line) {
    catchUp();
    trace.push_back(line);
  }
  // With `raw`, as onChange sees them; otherwise disconnected reads as none.
  std::string phases(bool raw = false) const {
    std::string out;
    for (const char* name : {"b", "c", "z"}) {
      const auto phase = manager.phaseOf(named.at(name));
      const bool shown = phase && (raw || phase->kind() != Phase::Kind::disconnected);
      out += (out.empty() ? "" : " ") + (shown ? phase->text() : "-");
    }
    return out;
  }

  const std::map<std::string, std::string> named{{"b", "aa-bb-cc-dd-ee-ff"}, {"c", "11-22-33-44-55-66"}, {"z", "99-99-99-99-99-99"}};
  using Phase = BluetoothManager::Phase;
  const std::map<std::string, Phase> settled{
      {"connected", Phase::connected()}, {"connecting", Phase::connecting()}, {"disconnecting", Phase::disconnecting()}};
  const std::vector<std::string> reasons{"user", "wake", "repair", "external"};  // ConnectReason's order
  const std::map<std::string, BluetoothStatus> statuses{
      {"timeout", BluetoothStatus::timeout}, {"notFound", BluetoothStatus::notFound}, {"off", BluetoothStatus::bluetoothOff},
      {"failed", BluetoothStatus::failed}, {"odd", static_cast<BluetoothStatus>(0x1234)}};
  const std::map<std::string, BluetoothError> errors{
      {"unreachable", BluetoothError::unreachable}, {"off", BluetoothError::bluetoothOff}, {"unknown", BluetoothError::unknownDevice}};
  VirtualRuntime rt;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  test::FakeBluetoothStack stack;
  test::FakeSleepWatcher sleep;
  BluetoothManager manager{rt, settings, stack, sleep};
  test::CapturedLog log;
  std::vector<std::string> trace, snapshots{"- - -"};
  std::size_t logSeen = 0, callsSeen = 0;
};

TEST_P(BluetoothManagerTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ(phases(), s.phases);
  std::string joined;
  for (const auto& line : trace) joined += (joined.empty() ? "" : ", ") + line;
  EXPECT_EQ(joined, s.trace);
  if (!s.lastLog.empty()) {
    EXPECT_EQ(log->lines.back(), s.lastLog);
  }
  EXPECT_EQ(std::adjacent_find(snapshots.begin(), snapshots.end()), snapshots.end()) << "onChange without a change";
  EXPECT_EQ(snapshots.back(), phases(true)) << "the last change was reported";
}

INSTANTIATE_TEST_SUITE_P(Headphones, BluetoothManagerTest, testing::Values(
    // Toggling connects on the Bluetooth queue; clicks while in flight are ignored.
    Scenario{"start toggle B", "connecting - -", "try b@0.0"},
    Scenario{"start toggle B toggle b +0", "connected - -", "try b@0.0, open b, +b:user"},
    // Retries follow the reason and end in the status text; unanswered reads are retried alike.
    Scenario{"results=timeout,timeout user b +30", "failed:The device did not answer - -", "try b@0.0, open b, try b@1.5, open b, no b"},
    Scenario{"results=notFound repair b +30", "connected - -", "try b@0.0, open b, try b@1.5, open b, +b:repair, ok b"},
    Scenario{"results=off,off,off,off wake b +30", "failed:Bluetooth is off - -",
             "try b@0.0, open b, try b@3.0, open b, try b@9.0, open b, try b@18.0, open b, no b"},
    Scenario{"results=notFound external b +30", "failed:The device is out of range - -", "try b@0.0, open b, no b",
             "connect failed for aa-bb-cc-dd-ee-ff: 0xe00002f0"},
    Scenario{"results=odd,failed user b +30", "failed:Could not connect - -", "try b@0.0, open b, try b@1.5, open b, no b"},
    Scenario{"read=unreachable wake b +30", "failed:Could not connect - -", "try b@0.0, try b@3.0, try b@9.0, try b@18.0, no b"},
    Scenario{"read=off user b +30", "failed:Bluetooth is off - -", "try b@0.0, try b@1.5, no b"},
    Scenario{"read=unknown user b +30", "failed:Unknown device - -", "try b@0.0, no b"},
    Scenario{"wake z +30", "- - failed:Unknown device", "try z@0.0, no z"},
    Scenario{"linked c repair c +0", "- connected -", "try c@0.0, +c:repair, ok c"},
    // A disconnect settles a second later on what the stack says; unanswered reads are repeated.
    Scenario{"user b +0 toggle b +0.9", "disconnecting - -", "try b@0.0, open b, +b:user, ok b, close b"},
    Scenario{"user b +0 toggle b +1", "- - -", "try b@0.0, open b, +b:user, ok b, close b, -b"},
    Scenario{"close=failed user b +0 toggle b +1", "connected - -", "try b@0.0, open b, +b:user, ok b, close b",
             "disconnect failed for aa-bb-cc-dd-ee-ff: 0xe00002bc"},
    Scenario{"user b +0 toggle b +0 read=unreachable +9.9", "disconnecting - -", "try b@0.0, open b, +b:user, ok b, close b"},
    Scenario{"user b +0 toggle b +0 read=unreachable +10", "- - -", "try b@0.0, open b, +b:user, ok b, close b, -b"},
    // Connect-only headphones stay connected and get the sound again.
    Scenario{"quiet b user b +0 toggle b +2", "connected - -", "try b@0.0, open b, +b:user, ok b, +b:user"},
    // Notifications follow remembered headphones seen connected; a connect in flight decides.
    Scenario{"start stranger up z up B up b", "connected - -", "+b:external"},
    Scenario{"start up b set=b:connecting down b", "connecting - -", "+b:external"},
    Scenario{"start up b up b down b", "- - -", "+b:external, -b"},
    Scenario{"start set=c:failed:Could_not_connect down c", "- failed:Could_not_connect -", ""},
    Scenario{"set=b:failed:X set=b:failed:X set=b:failed:Y", "failed:Y - -", ""},
    // Polls every second for ten seconds after activity, then every thirty.
    Scenario{"start user b +0 unlinked b +1", "- - -", "try b@0.0, open b, +b:user, ok b"},
    Scenario{"start user b +0 unlinked b +13 linked b +2", "- - -", "try b@0.0, open b, +b:user, ok b"},
    Scenario{"start user b +0 unlinked b +13 linked b +17.1", "connected - -", "try b@0.0, open b, +b:user, ok b"},
    // A refresh that could not ask changes nothing; failures and work in flight stay; readable reads.
    Scenario{"start up b read=unreachable unlinked b refresh read=ok down b", "- - -", "+b:external, -b"},
    Scenario{"start set=b:failed:X set=c:disconnecting linked c refresh", "failed:X disconnecting -", ""},
    Scenario{"start set=b:failed:X linked b readable", "connected - -", ""},
    // Sleep closes on the queue before it is done; wake reconnects three seconds later.
    Scenario{"sleepy b start user b user c +0 sleep", "connected connected -",
             "try b@0.0, try c@0.0, open b, open c, +b:user, ok b, +c:user, ok c", "disconnecting Sleep Buds for sleep"},
    Scenario{"sleepy b start user b user c +0 sleep +0", "connected connected -",
             "try b@0.0, try c@0.0, open b, open c, +b:user, ok b, +c:user, ok c, close b, slept"},
    // A connect still running does not hold the close back (queues drain in the order they were made).
    Scenario{"sleepy b start user b +0 user c sleep +0", "connected connected -",
             "try b@0.0, open b, +b:user, ok b, try c@0.0, close b, slept, open c, +c:user, ok c"},
    Scenario{"sleepy b start user b +0 sleep +1 woke +2 sleep woke +2.9", "- - -",
             "try b@0.0, open b, +b:user, ok b, close b, slept, slept"},
    Scenario{"sleepy b start user b +0 sleep +1 woke +2 sleep woke +3", "connected - -",
             "try b@0.0, open b, +b:user, ok b, close b, slept, slept, try b@6.0, open b, +b:wake"}));

TEST_F(BluetoothManagerTest, WorkComingBackAfterTheManagerIsGoneDoesNothing) {
  auto shortLived = std::make_unique<BluetoothManager>(rt, settings, stack, sleep);
  shortLived->onConnected = [&](const std::string&, ConnectReason) { ADD_FAILURE(); };
  shortLived->connect(named.at("b"), ConnectReason::user, 1);
  shortLived.reset();
  steps(5);
}

}  // namespace
}  // namespace wh
