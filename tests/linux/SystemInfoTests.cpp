#include <gtest/gtest.h>

#include <fstream>

#include "platform/linux/app/SystemInfo.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

TEST(InputAccess, NeedsAReadableDeviceWithMediaKeysAndAWritableUinput) {
  test::TempDir folder{"wrenhaven-input"};
  const auto sys = folder.path() / "sys", dev = folder.path() / "dev";
  // A sysfs input class and a /dev with the device named, with its key capability bitmap.
  const auto addDevice = [&](const std::string& event, const std::string& keyBitmap) {
    test::writeFile(sys / event / "device" / "capabilities" / "key", keyBitmap + "\n");
    test::writeFile(dev / "input" / event, "");
  };
  EXPECT_FALSE(inputAccess(sys, dev).trusted());
  addDevice("event0", "0");                                             // a power button
  addDevice("event1", "10000 0 0 e0b0ffdf01cfffff fffffffffffffffe");  // keys, but no media keys
  std::ofstream(dev / "uinput") << "";
  EXPECT_FALSE(inputAccess(sys, dev).mediaKeyDevicesReadable);
  EXPECT_TRUE(inputAccess(sys, dev).uinputWritable);
  addDevice("event2", "3803078f800d001 feffffdfffefffff fffffffffffffffe");
  EXPECT_TRUE(inputAccess(sys, dev).trusted());
  std::filesystem::remove(dev / "input" / "event2");  // listed, but no device node to read
  EXPECT_FALSE(inputAccess(sys, dev).mediaKeyDevicesReadable);
  EXPECT_NE(systemVersion(), "Linux") << "this machine has an os-release with a name";
}

TEST(KeyAccessSystem, NamesTheRuleBesideTheProgramAndSeesACopyInTheRulesFolder) {
  test::TempDir folder{"wrenhaven-rule"};
  const auto program = folder.path() / "opt" / "bin" / "wrenhaven";
  const auto rules = folder.path() / "rules.d";
  auto system = keyAccessSystem(program, rules);
  EXPECT_EQ(system.ruleFile, "/usr/share/wrenhaven/udev/70-wrenhaven-input.rules") << "none beside it: the package's";
  EXPECT_FALSE(system.ruleInstalled);
  EXPECT_FALSE(system.userName.empty());
  test::writeFile(folder.path() / "opt" / "share" / "wrenhaven" / "udev" / "70-wrenhaven-input.rules", "");
  test::writeFile(rules / "70-wrenhaven-input.rules", "");
  system = keyAccessSystem(program, rules);
  EXPECT_EQ(system.ruleFile, (folder.path() / "opt" / "share" / "wrenhaven" / "udev" / "70-wrenhaven-input.rules").string());
  EXPECT_TRUE(system.ruleInstalled);
}

}  // namespace
}  // namespace wh::platform
