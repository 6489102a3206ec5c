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

using Authorization = BluetoothAuthorization;

class BluezAuthorityTest : public test::SystemBusTest {
 protected:
  // Makes the authority, waits for its first answer, starts watching and counts the updates.
  bool start(test::SystemBusRig::Options options, Authorization first) {
    if (!SystemBusTest::start(options)) return false;
    learned = 0;
    authority = std::make_unique<BluezAuthority>(mainQueue(), connection(), [&] { ++learned; });
    EXPECT_EQ(authority->authorization(), Authorization::undetermined) << "nothing is waited for";
    EXPECT_TRUE(test::spinUntil([&] { return learned == 1 && authority->authorization() == first; }));
    authority->startWatching([this] {
      EXPECT_EQ(std::this_thread::get_id(), mainThread);
      ++updates;
    });
    // Watching twice changes nothing; the first answer comes even though nothing changed.
    authority->startWatching([] { ADD_FAILURE() << "a second watcher was installed"; });
    return reaches(first, 1);
  }
  bool reaches(Authorization state, int count) {
    return test::spinUntil([&] { return updates == count && authority->authorization() == state; });
  }

  std::unique_ptr<BluezAuthority> authority;
  int learned = 0, updates = 0;
  std::thread::id mainThread = std::this_thread::get_id();
};

TEST_F(BluezAuthorityTest, LearnsWithoutWaitingWhetherBluezIsThereOrRefusedAndFollowsItComingAndGoing) {
  for (const bool deny : {false, true}) {
    updates = 0;
    EXPECT_TRUE(start({.denyBluez = deny}, deny ? Authorization::denied : Authorization::allowedAlways));
    authority.reset();
  }
  updates = 0;
  if (!start({.bluez = false}, Authorization::undetermined)) return;
  ASSERT_TRUE(rig->startBluez());
  ASSERT_TRUE(reaches(Authorization::allowedAlways, 2));
  rig->stopBluez();
  ASSERT_TRUE(reaches(Authorization::undetermined, 3));
}

TEST(BluezAuthority, NoSystemBusIsRestricted) {
  test::qtApplication();
  QtRuntime runtime;
  const QString name = QStringLiteral("wrenhaven-test-no-bus");
  {
    BluezAuthority authority(runtime.main(), QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent"), name));
    EXPECT_EQ(authority.authorization(), Authorization::restricted);
    int updates = 0;
    authority.startWatching([&] { ++updates; });
    EXPECT_TRUE(test::spinUntil([&] { return updates == 1; }));
  }
  QDBusConnection::disconnectFromBus(name);
}

}  // namespace
}  // namespace wh::platform
