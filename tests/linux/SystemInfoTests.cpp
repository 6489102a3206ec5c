#include <gtest/gtest.h>

#include <fstream>

#include "platform/linux/app/SystemInfo.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

// A sysfs input class and a /dev with the devices named, each with its key capability bitmap.
class FakeInputTree {
 public:
  void addDevice(const std::string& event, const std::string& keyBitmap) const {
    const auto capabilities = sys() / event / "device" / "capabilities";
    std::filesystem::create_directories(capabilities);
    std::ofstream(capabilities / "key") << keyBitmap << "\n";
    std::filesystem::create_directories(dev() / "input");
    std::ofstream(dev() / "input" / event) << "";
  }
  void addUinput() const { std::ofstream(dev() / "uinput") << ""; }
  std::filesystem::path sys() const { return folder.path() / "sys"; }
  std::filesystem::path dev() const { return folder.path() / "dev"; }

 private:
  test::TempDir folder{"wrenhaven-input"};
};

TEST(InputAccess, NeedsAReadableDeviceWithMediaKeysAndAWritableUinput) {
  FakeInputTree tree;
  EXPECT_FALSE(inputAccess(tree.sys(), tree.dev()).trusted());

  tree.addDevice("event0", "0");                      // a power button
  tree.addDevice("event1", "10000 0 0 e0b0ffdf01cfffff fffffffffffffffe");  // keys, but no media keys
  tree.addUinput();
  auto access = inputAccess(tree.sys(), tree.dev());
  EXPECT_FALSE(access.mediaKeyDevicesReadable);
  EXPECT_TRUE(access.uinputWritable);

  tree.addDevice("event2", "3803078f800d001 feffffdfffefffff fffffffffffffffe");
  access = inputAccess(tree.sys(), tree.dev());
  EXPECT_TRUE(access.mediaKeyDevicesReadable);
  EXPECT_TRUE(access.trusted());

  std::filesystem::remove(tree.dev() / "input" / "event2");  // listed, but no device node to read
  EXPECT_FALSE(inputAccess(tree.sys(), tree.dev()).mediaKeyDevicesReadable);
}

TEST(SystemVersion, ComesFromOsRelease) {
  EXPECT_FALSE(systemVersion().empty());
  EXPECT_NE(systemVersion(), "Linux") << "this machine has an os-release with a name";
}

}  // namespace
}  // namespace wh::platform
