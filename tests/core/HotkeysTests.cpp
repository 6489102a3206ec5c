#include <gtest/gtest.h>

#include "core/hotkeys/HotkeyRecorder.h"
#include "doubles/FakeHotkeys.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

using namespace HotkeyModifier;
constexpr std::uint32_t ctrl = control, alt = option, super = command;

TEST(Hotkeys, IdsGoOnAfterRemoveAllTakenAndImpossibleKeysAreLoggedAndOnlyOwnIdsRunActions) {
  test::CapturedLog log;
  FakeHotkeyService service;
  service.takenKeys = {96};
  std::vector<std::string> ran;
  {
    Hotkeys hotkeys(service, &service);
    const std::tuple<HotkeyCombo, const char*> rows[] = {
        {{0, ctrl | alt}, nullptr},
        {{96, ctrl | shift}, "hotkey ⌃⇧F5 is taken (10)"},
        {{0, 1u << 20}, "hotkey A has modifiers that no key has (1048576); skipped"},
        {{300, super}, "hotkey ⌘#300 has a key code no key has here; skipped"},
        {{27, super | alt}, nullptr},
    };
    for (const auto& [combo, line] : rows) {
      hotkeys.registerKey(combo, [&ran, combo = combo] { ran.push_back(hotkeyText(combo, nullptr)); });
      EXPECT_EQ(log->lines.empty() ? "" : log->lines.back(), line ? line : "") << hotkeyText(combo, nullptr);
      log->lines.clear();
    }
    EXPECT_TRUE(hotkeys.isTaken({96, ctrl | shift})) << "a grab another program holds";
    EXPECT_FALSE(hotkeys.isTaken({300, super})) << "a key that does not exist is not taken";
    service.press({0, ctrl | alt});
    service.pressed(Hotkeys::signature + 1, 1);  // another program's key that happens to carry id 1
    service.pressed(Hotkeys::signature, 99);     // an id never handed out
    hotkeys.removeAll();
    service.pressed(Hotkeys::signature, 5);      // a late report of the key removed with id 5
    hotkeys.registerKey({27, super | alt}, [] {});
    ASSERT_EQ(service.grabs.size(), 1u);
    EXPECT_EQ(service.grabs.begin()->second.second, 5u) << "ids 1 to 4 went before, also to keys that failed";
  }
  EXPECT_EQ(ran, std::vector<std::string>{"⌃⌥#0"});
  EXPECT_TRUE(service.grabs.empty() && !service.pressed) << "gone with their owner";
}

TEST(Hotkeys, AKeyTheServiceRefusesLaterIsTakenInTheSameWordsAndItsActionGoes) {
  test::CapturedLog log;
  FakeHotkeyService service;
  int ran = 0;
  {
    Hotkeys hotkeys(service, &service);
    hotkeys.registerKey({96, ctrl | shift}, [&ran] { ++ran; });
    hotkeys.registerKey({0, ctrl}, [] {});
    ASSERT_EQ(service.grabs.size(), 2u);
    ASSERT_TRUE(service.refused);
    EXPECT_FALSE(hotkeys.isTaken({96, ctrl | shift}));
    service.refused(1, -2);  // the desktop refused the first key after binding it
    EXPECT_EQ(log->lines.back(), "hotkey ⌃⇧F5 is taken (-2)");
    EXPECT_TRUE(hotkeys.isTaken({96, ctrl | shift})) << "kept for the recorder to say";
    EXPECT_FALSE(hotkeys.isTaken({0, ctrl}));
    EXPECT_EQ(service.grabs.size(), 1u) << "given back to the service";
    service.pressed(Hotkeys::signature, 1);
    EXPECT_EQ(ran, 0);
    log->lines.clear();
    service.refused(1, -2);  // told twice, or of a key removed meanwhile: nothing more
    service.refused(77, -2);
    EXPECT_TRUE(log->lines.empty());
  }
  EXPECT_FALSE(service.refused) << "gone with their owner";
}

TEST(HotkeyRecorder, ATakenCombinationIsSaidFirstOverTheSessionsLimitation) {
  FakeHotkeyService service;
  service.limit = "hotkeys work only while an X11 window is focused";
  FakeRecorderPanel panel;
  HotkeyRecorder recorder({panel, &service, &service});
  recorder.record("Sleep Buds", [](auto) {}, HotkeyCombo{96, ctrl | shift});
  EXPECT_EQ(panel.hint, "⌃⇧F5 is taken: the desktop or another program keeps it. Press another combination.");
  recorder.record("Sleep Buds", [](auto) {});
  EXPECT_EQ(panel.hint, *service.limit);
}

TEST(HotkeyRecorder, EscapeCancelsModifierlessKeysEarnAHintOthersAreTakenAndASecondOpeningCancelsTheFirst) {
  FakeHotkeyService layout;
  FakeRecorderPanel panel;
  HotkeyRecorder recorder({panel, &layout, &layout});
  std::vector<std::string> results;
  auto keep = [&](std::optional<HotkeyCombo> combo) { results.push_back(combo ? recorder.display(*combo) : "cancelled"); };

  recorder.record("Sleep Buds", keep);
  EXPECT_EQ(panel.title, "Hotkey for Sleep Buds");
  EXPECT_EQ(panel.message, "Press the keys that should connect or disconnect Sleep Buds. Use ⌘, ⌥ or ⌃. Esc cancels.");
  const std::tuple<HotkeyCombo, const char*, std::size_t> keys[] = {
      {{0, shift}, "Add ⌘, ⌥ or ⌃ to ⇧A", 0},  // shift alone does not count
      {{110, 0}, "Add ⌘, ⌥ or ⌃ to #110", 0},
      // What the system keeps for itself is refused with the reason, Shift or not.
      {{122, ctrl | option}, "⌃⌥F1 switches to a text console on Linux. Choose another combination.", 0},
      {{111, ctrl | option | shift}, "⌃⌥⇧F12 switches to a text console on Linux. Choose another combination.", 0},
      {{51, ctrl | option}, "⌃⌥⌫ can end the graphical session. Choose another combination.", 0},
      {{117, ctrl | option}, "⌃⌥⌦ can restart the computer. Choose another combination.", 0},
      {{96, ctrl | shift}, "⌃⌥⌦ can restart the computer. Choose another combination.", 1},
  };
  for (const auto& [combo, hint, count] : keys) {
    panel.handlers.keyDown(combo);
    EXPECT_EQ(panel.hint, hint);
    EXPECT_EQ(results.size(), count);
  }
  EXPECT_FALSE(panel.shown);
  recorder.record("Sleep Buds", keep);
  panel.handlers.unknownKey("Ö");
  EXPECT_EQ(panel.hint, "Ö cannot be a hotkey here. Use a letter A–Z, a digit or a function key.");
  panel.handlers.keyDown({122, ctrl | option | super});  // with ⌘ it is the person's own
  EXPECT_EQ(results.back(), "⌃⌥⌘F1");
  results.pop_back();
  recorder.record("Sleep Buds", keep);
  auto first = panel.handlers;
  recorder.record("Desk Speaker", keep);  // cancels the first
  first.keyDown({27, super});             // a late report of the first panel
  panel.handlers.keyDown({escapeKeyCode, ctrl});
  recorder.record("Desk Speaker", keep);
  panel.handlers.closed();
  panel.handlers.closed();
  EXPECT_EQ(results, (std::vector<std::string>{"⌃⇧F5", "cancelled", "cancelled", "cancelled"}));

  layout.limit = "keys reach only X11 windows";  // what keeps the keys from working is said at once
  panel.hint.clear();
  recorder.record("Sleep Buds", keep);
  EXPECT_EQ(panel.hint, "keys reach only X11 windows");
}

}  // namespace
}  // namespace wh
