#pragma once
// The text of a hotkey as menus and the recorder show it, and the keyboard layout that names the
// keys the fixed table does not.

#include <cstdint>
#include <optional>
#include <string>

#include "core/settings/Records.h"

namespace wh {

// Modifier bits of a stored HotkeyCombo. On Linux command is Super, option is Alt.
namespace HotkeyModifier {
inline constexpr std::uint32_t command = 256;
inline constexpr std::uint32_t shift = 512;
inline constexpr std::uint32_t option = 2048;
inline constexpr std::uint32_t control = 4096;
inline constexpr std::uint32_t all = command | shift | option | control;
}  // namespace HotkeyModifier

// The stored key code of the Escape key.
inline constexpr std::uint32_t escapeKeyCode = 53;
inline constexpr std::uint32_t backspaceKeyCode = 51;
inline constexpr std::uint32_t forwardDeleteKeyCode = 117;

// The keyboard layout in use, as the hotkeys see it.
class KeyboardLayout {
 public:
  virtual ~KeyboardLayout() = default;
  // The character the key gives without modifiers, or nothing for a key without one.
  virtual std::optional<std::string> character(std::uint32_t keyCode) const = 0;
  // The stored key code of a key the display server reports by its own (native) code.
  virtual std::optional<std::uint32_t> keyCode(std::uint32_t nativeKeyCode) const = 0;
};

// The name of one stored key code: the fixed names of the special keys, else the layout's
// character in upper case, else "#" and the number.
std::string hotkeyKeyName(std::uint32_t keyCode, const KeyboardLayout* layout);
// "⌃⌥⇧⌘" (those present, in this order) followed by the key's name.
std::string hotkeyText(const HotkeyCombo& combo, const KeyboardLayout* layout);

}  // namespace wh
