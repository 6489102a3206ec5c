#include "core/hotkeys/HotkeyRecorder.h"

#include <algorithm>
#include <iterator>

#include "core/texts/PlatformTexts.h"

namespace wh {

void HotkeyRecorder::record(const std::string& name, Completion completion, std::optional<HotkeyCombo> taken) {
  if (isOpen()) finish(std::nullopt, true);
  completion_ = std::move(completion);
  const std::uint64_t session = ++session_;
  auto current = [this, session] { return session == session_ && isOpen(); };
  ports_.panel.open("Hotkey for " + name,
                    "Press the keys that should connect or disconnect " + name + ". Use ⌘, ⌥ or ⌃. Esc cancels.",
                    {[this, current](const HotkeyCombo& combo) {
                       if (current()) keyDown(combo);
                     },
                     [this, current] {
                       if (current()) finish(std::nullopt, false);
                     },
                     [this, current](const std::string& keyName) {
                       if (current()) ports_.panel.setHint(texts::unusableKey(keyName));
                     }});
  if (taken) {
    ports_.panel.setHint(display(*taken) + texts::kHotkeyTaken);
  } else if (ports_.service != nullptr) {
    if (auto reason = ports_.service->unavailableReason()) {
      ports_.panel.setHint(*reason);
    } else if (auto limit = ports_.service->limitation()) {
      ports_.panel.setHint(*limit);
    }
  }
}

void HotkeyRecorder::keyDown(const HotkeyCombo& combo) {
  if (combo.keyCode == escapeKeyCode) {
    finish(std::nullopt, true);
    return;
  }
  constexpr std::uint32_t required = HotkeyModifier::command | HotkeyModifier::option | HotkeyModifier::control;
  if ((combo.modifiers & required) == 0) {
    ports_.panel.setHint("Add ⌘, ⌥ or ⌃ to " + display(combo));
    return;
  }
  if (auto reserved = reservedBySystem(combo)) {
    ports_.panel.setHint(*reserved);
    return;
  }
  finish(combo, true);
}

std::optional<std::string> HotkeyRecorder::reservedBySystem(const HotkeyCombo& combo) const {
  // Control with Option, Shift or not: the console switches and the kernel's and display
  // server's own keys react before any grab sees them.
  constexpr std::uint32_t controlOption = HotkeyModifier::control | HotkeyModifier::option;
  if ((combo.modifiers & (controlOption | HotkeyModifier::command)) != controlOption) return std::nullopt;
  constexpr std::uint32_t functionKeys[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};  // F1…F12
  const std::string shown = display(combo);
  if (std::find(std::begin(functionKeys), std::end(functionKeys), combo.keyCode) != std::end(functionKeys)) {
    return shown + texts::kReservedConsoleSwitch;
  }
  if (combo.keyCode == backspaceKeyCode) return shown + texts::kReservedEndSession;
  if (combo.keyCode == forwardDeleteKeyCode) {
    // Forward Delete has no name of its own in the key names: its symbol follows the modifiers.
    const std::string prefix = shown.substr(0, shown.size() - hotkeyKeyName(combo.keyCode, ports_.layout).size());
    return prefix + "⌦" + texts::kReservedRestart;
  }
  return std::nullopt;
}

void HotkeyRecorder::finish(std::optional<HotkeyCombo> combo, bool closePanel) {
  auto completion = std::move(completion_);
  completion_ = nullptr;
  if (closePanel) ports_.panel.close();
  if (completion) completion(combo);
}

}  // namespace wh
