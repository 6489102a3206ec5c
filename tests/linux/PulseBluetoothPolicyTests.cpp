// The server's automatic headset switch on the rig's servers: PulseAudio loads module-bluetooth-policy
// without a card, so turning its auto_switch off and putting the argument back are real; PipeWire's
// pulse server has no such module. No card exists without hardware, so that the switched-off
// module indeed leaves a card alone when a phone-role recording starts is not proven here.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/audio/PulseBluetoothPolicy.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

using test::PulseRig;

class PulseBluetoothPolicyTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  PulseRig rig{GetParam()};

  void SetUp() override { REQUIRE_RIG(rig.available(), rig.whyNot()); }
  std::vector<std::string> loaded() const { return rig.moduleArguments("module-bluetooth-policy"); }
  bool pulseAudio() const { return GetParam() == test::SoundServer::pulseAudio; }
};

TEST_P(PulseBluetoothPolicyTest, TurnsTheModulesSwitchOffAndPutsTheArgumentBack) {
  PulseBluetoothPolicy policy(rig.server());
  EXPECT_EQ(policy.read(), std::nullopt) << "no module loaded";
  EXPECT_FALSE(policy.turnOff().accepted);

  // The argument as the person's configuration may give it: none (the default, 1), a number, a word.
  for (const std::string argument : {"", "auto_switch=2", "auto_switch=true a2dp_source=false"}) {
    SCOPED_TRACE("argument \"" + argument + "\"");
    const auto load = rig.pactl({"load-module", "module-bluetooth-policy", argument});
    if (!pulseAudio()) {
      EXPECT_NE(load.status, 0) << "PipeWire's pulse server has no such module";
      EXPECT_EQ(policy.read(), std::nullopt);
      continue;
    }
    ASSERT_EQ(load.status, 0) << load.output;
    EXPECT_EQ(policy.read(), (AutoSwitchReading{PulseBluetoothPolicy::owner, true, argument}));

    EXPECT_TRUE(policy.turnOff().accepted);
    const std::string off = PulseBluetoothPolicy::withSwitchOff(argument);
    EXPECT_EQ(loaded(), std::vector<std::string>{off}) << "one copy, switched off, the rest kept";
    EXPECT_EQ(policy.read(), (AutoSwitchReading{PulseBluetoothPolicy::owner, false, off}));

    EXPECT_TRUE(policy.putBack(argument).accepted);
    EXPECT_EQ(loaded(), std::vector<std::string>{argument});
    EXPECT_EQ(policy.read(), (AutoSwitchReading{PulseBluetoothPolicy::owner, true, argument}));
    rig.pactl({"unload-module", "module-bluetooth-policy"});
  }
}

class PulseBluetoothPolicyRefusalTest : public PulseBluetoothPolicyTest {};

TEST_P(PulseBluetoothPolicyRefusalTest, RefusedArgumentsLeaveThePersonsModuleLoaded) {
  ASSERT_EQ(rig.pactl({"load-module", "module-bluetooth-policy", "auto_switch=2"}).status, 0);
  PulseBluetoothPolicy policy(rig.server());
  const WriteAnswer answer = policy.putBack("auto_switch=1 no_such_argument=1");
  EXPECT_FALSE(answer.accepted);
  EXPECT_FALSE(answer.reason.empty());
  EXPECT_EQ(loaded(), std::vector<std::string>{"auto_switch=2"});
}

TEST_P(PulseBluetoothPolicyTest, NoServerAnswersNothingWithinTheTimeOut) {
  PulseBluetoothPolicy policy("unix:" + rig.server().substr(5) + ".absent", 0.5);
  EXPECT_EQ(policy.read(), std::nullopt);
  EXPECT_FALSE(policy.putBack("auto_switch=1").accepted);
}

INSTANTIATE_TEST_SUITE_P(Servers, PulseBluetoothPolicyTest, test::bothSoundServers(), test::soundServerTestName);
INSTANTIATE_TEST_SUITE_P(Servers, PulseBluetoothPolicyRefusalTest, testing::Values(test::SoundServer::pulseAudio),
                         test::soundServerTestName);

}  // namespace
}  // namespace wh::platform
