#pragma once
// The small panel in which the user presses the combination for one pair of headphones: Escape
// cancels, a combination without ⌘ (Super), ⌥ (Alt) or ⌃ (Ctrl), one the system keeps for itself
// and a key that cannot be stored earn a hint, anything else is taken. Every key gets an answer.

#include <functional>
#include <optional>
#include <string>

#include "core/hotkeys/HotkeyDisplay.h"
#include "core/hotkeys/Hotkeys.h"

namespace wh {

// The recorder's window, drawn by the toolkit.
class RecorderPanel {
 public:
  struct Handlers {
    std::function<void(const HotkeyCombo&)> keyDown;  // a key pressed while the panel is open
    std::function<void()> closed;                      // the user closed the panel
    // A key pressed that has no stored key code (ö on a German layout, Print, a Cyrillic letter),
    // with the name the desktop gives it ("Ö", "Print").
    std::function<void(const std::string& keyName)> unknownKey;
  };
  virtual ~RecorderPanel() = default;
  virtual void open(const std::string& title, const std::string& message, Handlers handlers) = 0;
  virtual void setHint(const std::string& hint) = 0;
  // Closes the panel without reporting `closed`.
  virtual void close() = 0;
};

class HotkeyRecorder {
 public:
  using Completion = std::function<void(std::optional<HotkeyCombo>)>;
  struct Ports {
    RecorderPanel& panel;
    const KeyboardLayout* layout;
    const HotkeyService* service;  // asked whether hotkeys work in this session
  };

  explicit HotkeyRecorder(Ports ports) : ports_(ports) {}
  HotkeyRecorder(const HotkeyRecorder&) = delete;
  HotkeyRecorder& operator=(const HotkeyRecorder&) = delete;

  // Opens the panel for the headphones called `name`, cancelling one that is open; `completion`
  // gets the new combination, or nothing when the user cancels. `taken` is their combination when
  // the system or another program keeps it from working: the panel says so first.
  void record(const std::string& name, Completion completion, std::optional<HotkeyCombo> taken = std::nullopt);
  bool isOpen() const { return static_cast<bool>(completion_); }
  // Why the system keeps the combination for itself, or nothing when it does not.
  std::optional<std::string> reservedBySystem(const HotkeyCombo& combo) const;
  // The one display text of a combination, named with the current layout.
  std::string display(const HotkeyCombo& combo) const { return hotkeyText(combo, ports_.layout); }
  const KeyboardLayout* layout() const { return ports_.layout; }

 private:
  void keyDown(const HotkeyCombo& combo);
  void finish(std::optional<HotkeyCombo> combo, bool closePanel);

  Ports ports_;
  Completion completion_;
  std::uint64_t session_ = 0;  // which opening the panel's reports belong to
};

}  // namespace wh
