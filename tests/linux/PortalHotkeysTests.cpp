// Hotkeys through the desktop portal: the real xdg-desktop-portal frontend on a private session bus,
// with a stand-in desktop behind it that binds, refuses or rebinds triggers and presses keys.
#include <gtest/gtest.h>

#include <QDBusConnection>

#include "QtLoop.h"
#include "platform/linux/hotkeys/PortalHotkeys.h"
#include "support/DBusDaemon.h"
#include "support/PortalRig.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

// Stored key codes: F5 and the letter A.
constexpr std::uint32_t kF5 = 96, kA = 0;

TEST(PortalHotkeys, TriggersAreWrittenAsFreedesktopShortcutsWriteThem) {
  struct Case {
    HotkeyCombo combo;
    std::optional<std::string> trigger;
  };
  for (const Case& c : {Case{{kF5, HotkeyModifier::control | HotkeyModifier::shift}, "CTRL+SHIFT+F5"},
                        Case{{kA, HotkeyModifier::command | HotkeyModifier::option}, "ALT+LOGO+a"},
                        Case{{kF5, 0}, "F5"}, Case{{9999, HotkeyModifier::control}, std::nullopt}}) {
    EXPECT_EQ(PortalHotkeys::trigger(c.combo), c.trigger) << c.combo.keyCode;
  }
}

class PortalHotkeysTest : public testing::Test {
 protected:
  void SetUp() override {
    test::qtApplication();
    REQUIRE_RIG(bus.available(), bus.whyNot());
  }
  void TearDown() override { QDBusConnection::disconnectFromBus("portal-hotkeys-test"); }
  QDBusConnection connection() const {
    return QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "portal-hotkeys-test");
  }
  test::DBusDaemon bus;
};

TEST_F(PortalHotkeysTest, WithoutAPortalHotkeysAreOffWithTheReason) {
  PortalHotkeys hotkeys(connection());
  ASSERT_TRUE(hotkeys.unavailableReason());
  EXPECT_NE(hotkeys.unavailableReason()->find("global shortcuts"), std::string::npos);
  EXPECT_FALSE(hotkeys.registerKey({kF5, HotkeyModifier::control}, Hotkeys::signature, 1).handle);
}

TEST_F(PortalHotkeysTest, KeysAreBoundTogetherPressedThroughTheDesktopAndRefusalsAreKept) {
  test::PortalRig portal({.sessionBus = bus.address(), .taken = {"CTRL+ALT+t"}, .rebind = {"LOGO+a=LOGO+b"}});
  REQUIRE_RIG(portal.available(), portal.whyNot());
  PortalHotkeys hotkeys(connection());
  ASSERT_EQ(hotkeys.unavailableReason(), std::nullopt);
  std::vector<std::uint32_t> pressed;
  hotkeys.installHandler([&](std::uint32_t signature, std::uint32_t id) {
    EXPECT_EQ(signature, Hotkeys::signature);
    pressed.push_back(id);
  });
  int answers = 0;
  hotkeys.onBound = [&] { ++answers; };
  std::vector<std::pair<std::uint32_t, int>> refused;
  hotkeys.installRefusedHandler([&](std::uint32_t id, int status) { refused.emplace_back(id, status); });
  const auto f5 = hotkeys.registerKey({kF5, HotkeyModifier::control | HotkeyModifier::shift}, Hotkeys::signature, 1);
  hotkeys.registerKey({17, HotkeyModifier::control | HotkeyModifier::option}, Hotkeys::signature, 2);  // T
  hotkeys.registerKey({kA, HotkeyModifier::command}, Hotkeys::signature, 3);
  ASSERT_TRUE(f5.handle);
  ASSERT_TRUE(test::spinUntil([&] { return answers == 1; }));
  ASSERT_EQ(portal.bindings().size(), 1u) << "three registrations, one binding";
  EXPECT_EQ(portal.bindings()[0]["bound"].size(), 3u);

  std::map<std::string, std::string> given;
  for (const auto& [id, binding] : hotkeys.bindings()) given[binding.preferred] = binding.given;
  EXPECT_EQ(given, (std::map<std::string, std::string>{
                       {"CTRL+SHIFT+F5", "CTRL+SHIFT+F5"}, {"CTRL+ALT+t", ""}, {"LOGO+a", "LOGO+b"}}));

  EXPECT_EQ(refused, (std::vector<std::pair<std::uint32_t, int>>{{2, PortalHotkeys::refusedByDesktop}}));

  ASSERT_TRUE(portal.press("CTRL+SHIFT+F5"));
  ASSERT_TRUE(portal.press("LOGO+b"));
  EXPECT_TRUE(test::spinUntil([&] { return pressed.size() == 2; })) << portal.log();
  EXPECT_EQ(pressed, (std::vector<std::uint32_t>{1, 3}));

  // A key taken away is bound anew without it; the old session's keys no longer reach the agent.
  hotkeys.unregisterKey(*f5.handle);
  ASSERT_TRUE(test::spinUntil([&] { return answers == 2; }));
  EXPECT_EQ(portal.bindings().back()["bound"].size(), 2u);
  pressed.clear();
  portal.press("CTRL+SHIFT+F5");
  ASSERT_TRUE(portal.press("LOGO+b"));
  EXPECT_TRUE(test::spinUntil([&] { return pressed.size() == 1; }));
  EXPECT_EQ(pressed, std::vector<std::uint32_t>{3});
}

}  // namespace
}  // namespace wh::platform
