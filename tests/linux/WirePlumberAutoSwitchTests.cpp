// WirePlumber's automatic headset switch setting on the rig's PipeWire. The rig runs WirePlumber
// 0.4, which has no settings metadata: the test makes "sm-settings" itself as WirePlumber 0.5
// does (a metadata store of its own process, exported to the daemon), holds it for the test, and
// reads it back with pw-metadata, a client of its own. That WirePlumber 0.5 then leaves a card alone is not proven
// here (no WirePlumber 0.5 on the rig).
#include <gtest/gtest.h>

#include <pipewire/impl-metadata.h>

#include <string>

#include "platform/linux/audio/WirePlumberAutoSwitch.h"
#include "platform/linux/pipewire/PipeWireConnection.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

using test::PulseRig;
using Switch = WirePlumberAutoSwitch;

// The settings metadata as WirePlumber 0.5 makes it, for as long as this object lives.
class SettingsStandIn {
 public:
  explicit SettingsStandIn(const std::string& socket) {
    auto opened = PipeWireConnection::open({.remote = socket, .threadName = "test.settings"});
    if (auto* failure = std::get_if<PipeWireConnection::Failure>(&opened)) {
      ADD_FAILURE() << failure->text();
      return;
    }
    connection_ = std::move(std::get<std::unique_ptr<PipeWireConnection>>(opened));
    connection_->locked([&] {
      const spa_dict_item items[] = {{PW_KEY_METADATA_NAME, Switch::metadataName}};
      const spa_dict properties = SPA_DICT_INIT_ARRAY(items);
      store_ = pw_context_create_metadata(connection_->context(), Switch::metadataName,
                                          pw_properties_new_dict(&properties), 0);
      exported_ = pw_core_export(connection_->core(), PW_TYPE_INTERFACE_Metadata, &properties,
                                 pw_impl_metadata_get_implementation(store_), 0);
    });
    EXPECT_EQ(connection_->roundtrip(), std::nullopt);
  }
  ~SettingsStandIn() {
    if (!connection_) return;
    connection_->locked([&] {
      pw_proxy_destroy(exported_);
      pw_impl_metadata_destroy(store_);
    });
  }
  void set(const char* value) {
    connection_->locked([&] { pw_impl_metadata_set_property(store_, 0, Switch::key, "Spa:String:JSON", value); });
    EXPECT_EQ(connection_->roundtrip(), std::nullopt);
  }

 private:
  std::unique_ptr<PipeWireConnection> connection_;
  pw_impl_metadata* store_ = nullptr;
  pw_proxy* exported_ = nullptr;
};

class WirePlumberAutoSwitchTest : public testing::Test {
 protected:
  PulseRig rig{test::SoundServer::pipeWire};
  void SetUp() override { REQUIRE_RIG(rig.available(), rig.whyNot()); }

  // The key's line as another client of the daemon lists the metadata; empty when it has none.
  std::string listed() const {
    const auto output = test::runCommand({"pw-metadata", "-r", rig.pipeWireSocket(), "-n", Switch::metadataName},
                                         rig.clientEnvironment())
                            .output;
    const auto at = output.find(std::string("key:'") + Switch::key + "'");
    return at == std::string::npos ? std::string() : output.substr(at, output.find('\n', at) - at);
  }
};

TEST_F(WirePlumberAutoSwitchTest, WithoutTheSettingsMetadataThereIsNoSwitchAndPulseAnswersForTheServer) {
  Switch wirePlumber(rig.pipeWireSocket(), 1.0);
  EXPECT_EQ(wirePlumber.read(), std::nullopt) << "WirePlumber 0.4 has no settings metadata";
  EXPECT_FALSE(wirePlumber.turnOff().accepted);
  PulseBluetoothPolicy pulse(rig.server(), 1.0);
  EitherAutoSwitch either(wirePlumber, pulse);
  EXPECT_EQ(either.read(), std::nullopt);
  EXPECT_FALSE(either.turnOff().accepted);
}

TEST_F(WirePlumberAutoSwitchTest, TurnsTheRunningSettingOffAndPutsBackWhatThePersonHad) {
  SettingsStandIn settings(rig.pipeWireSocket());
  Switch wirePlumber(rig.pipeWireSocket(), 1.0);
  PulseBluetoothPolicy pulse(rig.server(), 1.0);
  EitherAutoSwitch either(wirePlumber, pulse);
  struct Case {
    const char* value;  // the person's setting; null: none, WirePlumber's default
    bool on;
  };
  for (const Case c : {Case{nullptr, true}, Case{"true", true}, Case{"false", false}}) {
    SCOPED_TRACE(c.value != nullptr ? c.value : "no setting");
    if (c.value != nullptr) settings.set(c.value);
    const std::string setting = std::string(Switch::settingMark) + (c.value != nullptr ? c.value : "");
    const auto before = listed();
    EXPECT_EQ(either.read(), (AutoSwitchReading{Switch::owner, c.on, setting}));

    const WriteAnswer off = either.turnOff();
    ASSERT_TRUE(off.accepted) << off.reason << " listed: " << listed();
    EXPECT_NE(listed().find("value:'false' type:'Spa:String:JSON'"), std::string::npos) << listed();
    EXPECT_EQ(wirePlumber.read(), (AutoSwitchReading{Switch::owner, false, std::string(Switch::settingMark) + "false"}));

    ASSERT_TRUE(either.putBack(setting).accepted);
    EXPECT_EQ(listed(), before) << "the person's setting is back as it was";
    EXPECT_EQ(wirePlumber.read(), (AutoSwitchReading{Switch::owner, c.on, setting}));
  }
  EXPECT_FALSE(wirePlumber.putBack("auto_switch=1").accepted) << "a PulseAudio setting is not WirePlumber's";
}

TEST_F(WirePlumberAutoSwitchTest, NoDaemonAnswersNothingWithinTheTimeOut) {
  Switch wirePlumber(rig.pipeWireSocket() + ".absent", 0.5);
  EXPECT_EQ(wirePlumber.read(), std::nullopt);
  EXPECT_FALSE(wirePlumber.putBack(std::string(Switch::settingMark) + "true").accepted);
}

}  // namespace
}  // namespace wh::platform
