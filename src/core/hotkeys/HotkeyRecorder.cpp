#include "core/hotkeys/HotkeyRecorder.h"

namespace wh {

void HotkeyRecorder::record(const std::string& name, Completion completion) {
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
                     }});
  if (ports_.service != nullptr) {
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
  finish(combo, true);
}

void HotkeyRecorder::finish(std::optional<HotkeyCombo> combo, bool closePanel) {
  auto completion = std::move(completion_);
  completion_ = nullptr;
  if (closePanel) ports_.panel.close();
  if (completion) completion(combo);
}

}  // namespace wh
