#pragma once
// The text of a hotkey as menus show it: modifier symbols in a fixed order, then the key's name.

#include <string>

#include "core/settings/Records.h"

namespace wh::ui {

// Modifier bits of a stored HotkeyCombo.
namespace HotkeyModifier {
inline constexpr std::uint32_t command = 256;
inline constexpr std::uint32_t shift = 512;
inline constexpr std::uint32_t option = 2048;
inline constexpr std::uint32_t control = 4096;
}  // namespace HotkeyModifier

// The name of one stored key code: the fixed names of the special keys, the character of the
// standard (ANSI) layout, else "#" and the number.
std::string hotkeyKeyName(std::uint32_t keyCode);
// "⌃⌥⇧⌘" (those present, in this order) followed by the key's name.
std::string hotkeyText(const HotkeyCombo& combo);

}  // namespace wh::ui
