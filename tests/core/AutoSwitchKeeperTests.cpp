// The server's automatic headset switch kept off while music quality is kept, and the person's
// setting put back, also by the next run after one that ended without putting it back.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "core/quality/AutoSwitchKeeper.h"
#include "doubles/MemoryStore.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

const std::string policy = "PulseAudio's module-bluetooth-policy";

// The server's switch: a setting text; "auto_switch=0" is off.
class MemoryAutoSwitch final : public HeadsetAutoSwitch {
 public:
  bool present = true;
  bool refuse = false;
  std::string setting = "auto_switch=2";

  int reads = 0;

  std::optional<AutoSwitchReading> read() override {
    ++reads;
    if (!present) return std::nullopt;
    return AutoSwitchReading{policy, setting != "auto_switch=0", setting};
  }
  WriteAnswer turnOff() override { return write("auto_switch=0"); }
  WriteAnswer putBack(const std::string& value) override { return write(value); }

 private:
  WriteAnswer write(const std::string& value) {
    if (!present) return WriteAnswer::refuse("No such entity");
    if (refuse) return WriteAnswer::refuse("Access denied");
    setting = value;
    return WriteAnswer::accept();
  }
};

struct Scenario {
  std::string script;
  std::string setting;  // the server's at the end
  bool offByAgent;
  std::string describe;
};
void PrintTo(const Scenario& s, std::ostream* out) { *out << '"' << s.script << '"'; }

class AutoSwitchKeeperTest : public testing::TestWithParam<Scenario> {
 protected:
  // "start", "stop"; "crash": the run ends without stop and a new one begins with the same state
  // store; "pinOff"/"pinOn": the "pinInput" setting; "restart": the server starts again with the
  // person's setting; "person0": the person had it off from the start; "refuse" (again: accept)
  // writes; "gone"/"back": the server's switch goes or comes back. After each, the keeper evaluates.
  void play(const std::string& script) {
    std::istringstream events(script);
    for (std::string event; events >> event;) {
      if (event == "start") {
        keeper->start();
      } else if (event == "stop") {
        keeper->stop();
      } else if (event == "crash") {
        keeper = std::make_unique<AutoSwitchKeeper>(rt, settings, server, state);
        keeper->start();
      } else if (event == "pinOff" || event == "pinOn") {
        store.set(Keys::pinInput, StoreValue::boolean(event == "pinOn"));
      } else if (event == "restart") {
        server.setting = "auto_switch=2";
      } else if (event == "person0") {
        server.setting = "auto_switch=0";
      } else if (event == "refuse") {
        server.refuse = !server.refuse;
      } else {
        ASSERT_TRUE(event == "gone" || event == "back") << "unknown script word: " << event;
        server.present = event == "back";
      }
      keeper->evaluate();
      rt.drainSerialQueues();
    }
  }

  VirtualRuntime rt;
  test::CapturedLog log;
  MemoryStore store, state;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  MemoryAutoSwitch server;
  std::unique_ptr<AutoSwitchKeeper> keeper = std::make_unique<AutoSwitchKeeper>(rt, settings, server, state);
};

TEST_P(AutoSwitchKeeperTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ(server.setting, s.setting);
  EXPECT_EQ(keeper->offByAgent(), s.offByAgent);
  EXPECT_EQ(keeper->describe(), s.describe);
  if (s.describe.find("could not") == std::string::npos) {
    EXPECT_EQ(keeper->lookNow(), s.describe) << "read afresh, as \"--diagnose\" does";
  }
  const bool waiting = s.describe.rfind("none now", 0) == 0;  // for the server's switch to come back
  EXPECT_EQ(state.object(AutoSwitchKeeper::recordKey).has_value(), s.offByAgent || waiting)
      << "the person's setting is on record exactly while the agent has it off";
}

const std::string off = policy + ": off, by Wrenhaven (the person's setting: auto_switch=2)";
const std::string on = policy + ": on, as the person set it";

INSTANTIATE_TEST_SUITE_P(Keeping, AutoSwitchKeeperTest, testing::Values(
    Scenario{"start", "auto_switch=0", true, off},
    Scenario{"start stop", "auto_switch=2", false, on},
    Scenario{"start pinOff", "auto_switch=2", false, on},
    Scenario{"pinOff start pinOn", "auto_switch=0", true, off},
    // The server restarts with the person's setting: off again, the record unchanged.
    Scenario{"start restart", "auto_switch=0", true, off},
    Scenario{"start restart stop", "auto_switch=2", false, on},
    // A run that ends without putting it back: the next one knows it is off by the agent, and puts
    // the person's setting back when it stops or music quality is no longer kept.
    Scenario{"start crash", "auto_switch=0", true, off},
    Scenario{"start crash pinOff", "auto_switch=2", false, on},
    Scenario{"start crash stop", "auto_switch=2", false, on},
    // The person's own "off" is theirs: left alone, and not claimed.
    Scenario{"person0 start", "auto_switch=0", false, policy + ": off, as the person set it"},
    Scenario{"person0 start stop", "auto_switch=0", false, policy + ": off, as the person set it"},
    // Refusals: nothing is on record when turning off fails; a failed put back keeps the record.
    Scenario{"refuse start", "auto_switch=2", false,
             policy + ": on, as the person set it (could not turn it off: Access denied)"},
    Scenario{"start refuse stop", "auto_switch=0", true,
             policy + ": off, by Wrenhaven (could not put back auto_switch=2: Access denied)"},
    Scenario{"start refuse stop refuse stop", "auto_switch=2", false, on},
    // No such switch (no module, or another server): nothing to do; the record waits for it.
    Scenario{"gone start", "auto_switch=2", false, "none"},
    Scenario{"start gone", "auto_switch=0", false, "none now (the person's setting to put back: auto_switch=2)"},
    Scenario{"start gone stop back", "auto_switch=2", false, on}));

// The server is asked on the keeper's queue, never on the main thread; what is asked for while an
// evaluation is on its way makes one more evaluation after it, not one each.
TEST(AutoSwitchKeeperQueue, TheServerIsAskedOffTheMainThreadAndEvaluationsOnTheirWayAreJoined) {
  VirtualRuntime rt;
  MemoryStore store, state;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  MemoryAutoSwitch server;
  server.setting = "auto_switch=0";  // off by the person: each evaluation reads once
  AutoSwitchKeeper keeper(rt, settings, server, state);
  keeper.start();
  keeper.evaluate();
  keeper.evaluate();
  EXPECT_EQ(server.reads, 0) << "nothing asked on the main thread";
  rt.drainSerialQueues();
  EXPECT_EQ(server.reads, 2);
  EXPECT_EQ(keeper.describe(), policy + ": off, as the person set it");
  keeper.stop();  // at exit: waits for its answer
  EXPECT_EQ(server.reads, 3);
}

}  // namespace
}  // namespace wh
