// Hotkeys grabbed, pressed and given back on a real X server (Xvfb, keys pressed with XTest).
#include <gtest/gtest.h>

#include "QtLoop.h"
#include "platform/linux/hotkeys/X11Hotkeys.h"
#include "support/CapturedLog.h"
#include "support/RigRequired.h"
#include "support/XvfbDisplay.h"

namespace wh::platform {
namespace {

TEST(X11Hotkeys, GrabsWorkWithLockKeysAKeyHeldElsewhereIsReportedAndNamesComeFromTheLayout) {
  test::XvfbDisplay display;
  REQUIRE_RIG(display.available, "no Xvfb with xdotool");
  test::qtApplication();
  test::CapturedLog log;
  X11Hotkeys other(display.name.c_str()), service(display.name.c_str());
  Hotkeys held(other, &other), hotkeys(service, &service);
  held.registerKey({0x60, HotkeyModifier::control}, [] {});  // ⌃F5 belongs to another program
  std::vector<std::string> pressed;
  for (const HotkeyCombo combo : {HotkeyCombo{0x00, HotkeyModifier::control | HotkeyModifier::option},
                                  HotkeyCombo{0x1B, HotkeyModifier::command | HotkeyModifier::shift},
                                  HotkeyCombo{0x60, HotkeyModifier::control}, HotkeyCombo{0x6E, 0}}) {
    hotkeys.registerKey(combo, [&pressed, combo] { pressed.push_back(hotkeyText(combo, nullptr)); });
  }
  EXPECT_EQ(log->lines, std::vector<std::string>{"hotkey ⌃F5 is taken (10)"});

  const std::vector<std::pair<const char*, std::vector<std::string>>> presses{
      {"ctrl+alt+a", {"⌃⌥#0"}}, {"a", {}}, {"ctrl+a", {}}, {"Caps_Lock ctrl+alt+a Caps_Lock", {"⌃⌥#0"}},
      {"Num_Lock super+shift+minus Num_Lock", {"⇧⌘#27"}}, {"Menu", {"#110"}}};
  for (const auto& [keys, expected] : presses) {
    pressed.clear();
    test::runCommand({"/bin/sh", "-c", std::string("xdotool key ") + keys}, {{"DISPLAY", display.name}});
    test::spinUntil([&] { return !pressed.empty(); }, expected.empty() ? 300 : 5000);
    EXPECT_EQ(pressed, expected) << keys;
  }
  EXPECT_EQ((std::vector{hotkeyText({0x00, HotkeyModifier::shift}, &service), hotkeyText({0x1B, 0}, &service),
                         hotkeyText({0x6E, 0}, &service), hotkeyText({0x0A, 0}, &service)}),
            (std::vector<std::string>{"⇧A", "-", "#110", "#10"})) << "Menu has no character, the layout no section key";
  hotkeys.removeAll();
  pressed.clear();
  display.xdotool("key", "ctrl+alt+a");
  test::spinFor(300);
  EXPECT_TRUE(pressed.empty());
}

// A new keyboard layout moves symbols to other keys: a hotkey goes on working by its symbol. On a
// German layout Y is where Z is on a US one.
TEST(X11Hotkeys, GrabsFollowTheirSymbolsToTheKeysOfANewLayout) {
  test::XvfbDisplay display;
  REQUIRE_RIG(display.available && !test::findExecutable("setxkbmap").empty(), "no Xvfb with xdotool and setxkbmap");
  test::qtApplication();
  X11Hotkeys service(display.name.c_str());
  Hotkeys hotkeys(service, &service);
  int pressed = 0;
  hotkeys.registerKey({0x10, HotkeyModifier::control | HotkeyModifier::option}, [&] { ++pressed; });  // ⌃⌥Y
  const auto press = [&](const char* keys) {
    pressed = 0;
    test::runCommand({"xdotool", "key", keys}, {{"DISPLAY", display.name}});
    return test::spinUntil([&] { return pressed > 0; }, 3000);
  };
  // xdotool types a symbol on the key that carries it in the layout of the moment.
  ASSERT_TRUE(press("ctrl+alt+y"));
  ASSERT_EQ(test::runCommand({"setxkbmap", "-display", display.name, "de"}).status, 0);
  test::spinFor(300);  // the server's notice of the new map
  EXPECT_TRUE(press("ctrl+alt+y")) << "the grab followed Y to its German key";
}

}  // namespace
}  // namespace wh::platform
