// Battery levels from python-dbusmock's bluetoothd (Battery1) and UPower on a private system bus,
// and the reading of a Bluetooth address out of UPower's device identification.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "SystemBusTest.h"
#include "platform/linux/bluetooth/BluezUPowerBatterySources.h"

namespace wh::platform {
namespace {

using namespace std::chrono_literals;
using test::SystemBusRig;

TEST(UPowerDeviceAddress, ComesFromTheSerialOrElseTheNativePath) {
  const std::vector<std::tuple<const char*, const char*, std::optional<std::string>>> cases{
      {"AA:BB:CC:DD:EE:FF", "", "aa-bb-cc-dd-ee-ff"},
      {"aa-bb-cc-dd-ee-0f", "/org/bluez/hci0/dev_11_22_33_44_55_66", "aa-bb-cc-dd-ee-0f"},
      {"", "/org/bluez/hci0/dev_11_22_33_44_55_66", "11-22-33-44-55-66"},
      {"", "hid-a1:b2:c3:d4:e5:f6-battery", "a1-b2-c3-d4-e5-f6"},
      {"12345", "/sys/devices/LNXSYSTM:00/PNP0C0A:00/power_supply/BAT0", std::nullopt},
      // Mixed separators, a group that is not hex, and a longer run of hex digits are no address.
      {"AA:BB-CC:DD:EE:FF", "", std::nullopt},
      {"AA:BB:CC:DD:EE:GG", "", std::nullopt},
      {"0AA:BB:CC:DD:EE:FF", "", std::nullopt},
  };
  for (const auto& [serial, nativePath, address] : cases) EXPECT_EQ(upowerDeviceAddress(serial, nativePath), address);
}

class BatterySourcesTest : public test::SystemBusTest {
 protected:
  bool start(SystemBusRig::Options options) {
    if (!SystemBusTest::start(options)) return false;
    sources = std::make_unique<BluezUPowerBatterySources>(connection(), 1s);
    return true;
  }
  std::unique_ptr<BluezUPowerBatterySources> sources;
};

TEST_F(BatterySourcesTest, LiveLevelsAreBattery1OfEachDevice) {
  if (!start({})) return;
  ASSERT_TRUE(rig->addDevice({SystemBusRig::headphonesAddress, "WH-1000XM4", SystemBusRig::headphonesClass, true, 35}));
  ASSERT_TRUE(rig->addDevice({"11:22:33:44:55:66", "Buds Pro", SystemBusRig::headphonesClass, true, 55}));
  ASSERT_TRUE(rig->addDevice({"22:33:44:55:66:77", "Pixel", SystemBusRig::phoneClass, true, std::nullopt}));
  const auto before = std::chrono::system_clock::now();
  const auto entries = test::offMainThread([&] { return sources->readLive(); });
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "WH-1000XM4");
  EXPECT_EQ(entries[0].address, "aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(entries[0].levels.single, 35);
  EXPECT_FALSE(entries[0].levels.left || entries[0].levels.right || entries[0].levels.caseLevel);
  EXPECT_GE(entries[0].levels.readAt, before);
  EXPECT_EQ(entries[1].address, "11-22-33-44-55-66");
  EXPECT_EQ(entries[1].levels.single, 55);
  // No UPower on this bus, and then no bluetoothd either: nothing.
  EXPECT_TRUE(sources->readSlow().empty());
  rig->stopBluez();
  EXPECT_TRUE(sources->readLive().empty());
}

TEST_F(BatterySourcesTest, SlowLevelsAreUPowersAudioDevicesByAddress) {
  if (!start({.bluez = false, .upower = true})) return;
  const SystemBusRig::PowerDevice devices[] = {
      {"headphones_dev_AA_BB", 19, "WH-1000XM4", "AA:BB:CC:DD:EE:FF", "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF", 66.6},
      {"headset_dev_11_22", 17, "Buds Pro", "", "/org/bluez/hci0/dev_11_22_33_44_55_66", 40},
      {"hid_22_33", 21, "Speaker", "", "hid-22:33:44:55:66:77-battery", 90},
      // Not audio, or no address: left out.
      {"mouse_dev_33", 5, "Mouse", "33:44:55:66:77:88", "", 50},
      {"BAT0", 2, "Laptop", "12345", "/sys/class/power_supply/BAT0", 70},
      {"headphones_wired", 19, "Wired", "", "/sys/devices/usb1/power_supply/x", 20},
  };
  for (const auto& device : devices) ASSERT_TRUE(rig->addPowerDevice(device));
  const auto levels = test::offMainThread([&] { return sources->readSlow(); });
  ASSERT_EQ(levels.size(), 3u);
  EXPECT_EQ(levels.at("aa-bb-cc-dd-ee-ff").single, 67);
  EXPECT_EQ(levels.at("11-22-33-44-55-66").single, 40);
  EXPECT_EQ(levels.at("22-33-44-55-66-77").single, 90);
}

}  // namespace
}  // namespace wh::platform
