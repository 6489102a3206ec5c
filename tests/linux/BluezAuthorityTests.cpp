// The Bluetooth permission read from BlueZ's presence on a private system bus: it follows
// org.bluez's owner, tells a refusing bus policy apart, and a missing system bus.
#include <gtest/gtest.h>

#include <QDBusConnection>

#include <memory>
#include <thread>

#include "SystemBusTest.h"
#include "platform/linux/bluetooth/BluezAuthority.h"

namespace wh::platform {
namespace {

using test::SystemBusRig;

class BluezAuthorityTest : public test::SystemBusTest {
 protected:
  bool start(SystemBusRig::Options options) {
    if (!SystemBusTest::start(options)) return false;
    authority = std::make_unique<BluezAuthority>(mainQueue(), connection());
    return true;
  }
  // Starts watching; counts the updates and checks they arrive on the main thread.
  void watch() {
    authority->startWatching([this] {
      onMain = onMain && std::this_thread::get_id() == mainThread;
      ++updates;
    });
  }
  bool reaches(BluetoothAuthorization state, int count) {
    return test::spinUntil([&] { return updates == count && authority->authorization() == state; });
  }

  std::unique_ptr<BluezAuthority> authority;
  int updates = 0;
  bool onMain = true;
  std::thread::id mainThread = std::this_thread::get_id();
};

TEST_F(BluezAuthorityTest, IsAllowedWhileBluezIsOnTheBusAndFollowsItComingAndGoing) {
  if (!start({.bluez = false})) return;
  EXPECT_EQ(authority->authorization(), BluetoothAuthorization::undetermined);
  watch();
  ASSERT_TRUE(reaches(BluetoothAuthorization::undetermined, 1));
  // Watching twice changes nothing.
  authority->startWatching([] { ADD_FAILURE() << "a second watcher was installed"; });

  ASSERT_TRUE(rig->startBluez());
  ASSERT_TRUE(reaches(BluetoothAuthorization::allowedAlways, 2));
  rig->stopBluez();
  ASSERT_TRUE(reaches(BluetoothAuthorization::undetermined, 3));
  ASSERT_TRUE(rig->startBluez());
  ASSERT_TRUE(reaches(BluetoothAuthorization::allowedAlways, 4));
  EXPECT_TRUE(onMain);
}

TEST_F(BluezAuthorityTest, KnowsAtOnceWhenBluezIsAlreadyThere) {
  if (!start({})) return;
  EXPECT_EQ(authority->authorization(), BluetoothAuthorization::allowedAlways);
  watch();
  // The first answer is given even though nothing changed.
  ASSERT_TRUE(reaches(BluetoothAuthorization::allowedAlways, 1));
}

TEST_F(BluezAuthorityTest, ABusThatRefusesBluezIsDenied) {
  if (!start({.denyBluez = true})) return;
  EXPECT_EQ(authority->authorization(), BluetoothAuthorization::denied);
  watch();
  ASSERT_TRUE(reaches(BluetoothAuthorization::denied, 1));
}

TEST(BluezAuthority, NoSystemBusIsRestricted) {
  test::qtApplication();
  QtRuntime runtime;
  const QString name = QStringLiteral("wrenhaven-test-no-bus");
  {
    BluezAuthority authority(runtime.main(), QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent"), name));
    EXPECT_EQ(authority.authorization(), BluetoothAuthorization::restricted);
    int updates = 0;
    authority.startWatching([&] { ++updates; });
    EXPECT_TRUE(test::spinUntil([&] { return updates == 1; }));
  }
  QDBusConnection::disconnectFromBus(name);
}

}  // namespace
}  // namespace wh::platform
