// The recorder's window on an X display with the display's own keyboard map: every key pressed
// gets an answer, a combination or a hint.
#include <QKeyEvent>
#include <QLabel>

#include "core/hotkeys/HotkeyRecorder.h"
#include "platform/linux/hotkeys/X11Hotkeys.h"
#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"
#include "ui/hotkeys/HotkeyRecorderPanel.h"

namespace wh::test {
namespace {

TEST(HotkeyRecorderPanelTest, KeysWithoutACodeAndTheSystemsOwnCombinationsEarnAHint) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  platform::X11Hotkeys keyboard;
  hotkeys::HotkeyRecorderPanel panel(&keyboard);
  HotkeyRecorder recorder({panel, &keyboard, nullptr});
  std::optional<HotkeyCombo> taken;
  recorder.record("Sleep Buds", [&](std::optional<HotkeyCombo> combo) { taken = combo; });
  const auto hint = [&] {
    QString text;
    for (auto* label : panel.window()->findChildren<QLabel*>()) text = label->text();  // the hint is the last label
    return text.toStdString();
  };
  const auto pressKey = [&](int key, quint32 nativeCode, Qt::KeyboardModifiers modifiers) {
    QKeyEvent event(QEvent::KeyPress, key, modifiers, nativeCode, 0, 0);
    QApplication::sendEvent(panel.window(), &event);
  };
  struct Case {
    int key;
    quint32 nativeCode;  // 0: no key of this map gives it (a German or Russian layout's key)
    Qt::KeyboardModifiers modifiers;
    std::string hint;
  };
  for (const auto& c : std::vector<Case>{
           {Qt::Key_Odiaeresis, 0, Qt::ControlModifier | Qt::AltModifier,
            "Ö cannot be a hotkey here. Use a letter A–Z, a digit or a function key."},
           {0x0424 /* Ф */, 0, Qt::ControlModifier, "Ф cannot be a hotkey here. Use a letter A–Z, a digit or a function key."},
           {Qt::Key_F1, 67, Qt::ControlModifier | Qt::AltModifier,
            "⌃⌥F1 switches to a text console on Linux. Choose another combination."},
           {Qt::Key_A, 38, Qt::NoModifier, "Add ⌘, ⌥ or ⌃ to A"}}) {
    pressKey(c.key, c.nativeCode, c.modifiers);
    EXPECT_EQ(hint(), c.hint);
    ASSERT_FALSE(taken);
  }
  pressKey(Qt::Key_Print, 107, Qt::ControlModifier);  // Print: a combination or a hint, never nothing
  EXPECT_TRUE(taken || hint().find("Print") != std::string::npos) << hint();
}

}  // namespace
}  // namespace wh::test
