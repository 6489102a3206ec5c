#include "core/hotkeys/HotkeyDisplay.h"

#include <array>
#include <cctype>
#include <map>

namespace wh {
namespace {

const std::map<std::uint32_t, const char*>& specialKeys() {
  static const std::map<std::uint32_t, const char*> names{
      {49, "Space"}, {36, "↩"},  {48, "⇥"},  {escapeKeyCode, "⎋"}, {51, "⌫"},  {123, "←"}, {124, "→"},
      {126, "↑"},    {125, "↓"}, {122, "F1"}, {120, "F2"},          {99, "F3"}, {118, "F4"}, {96, "F5"},
      {97, "F6"},    {98, "F7"}, {100, "F8"}, {101, "F9"},          {109, "F10"}, {103, "F11"}, {111, "F12"}};
  return names;
}

// Upper case for the plain letters; other characters (and multi-byte ones) stay as they are.
std::string upper(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x80) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return text;
}

}  // namespace

std::string hotkeyKeyName(std::uint32_t keyCode, const KeyboardLayout* layout) {
  if (auto found = specialKeys().find(keyCode); found != specialKeys().end()) return found->second;
  if (layout != nullptr) {
    if (auto character = layout->character(keyCode); character && !character->empty()) return upper(*character);
  }
  return "#" + std::to_string(keyCode);
}

std::string hotkeyText(const HotkeyCombo& combo, const KeyboardLayout* layout) {
  static constexpr std::array<std::pair<std::uint32_t, const char*>, 4> symbols{{{HotkeyModifier::control, "⌃"},
                                                                                 {HotkeyModifier::option, "⌥"},
                                                                                 {HotkeyModifier::shift, "⇧"},
                                                                                 {HotkeyModifier::command, "⌘"}}};
  std::string text;
  for (const auto& [bit, symbol] : symbols) {
    if ((combo.modifiers & bit) != 0) text += symbol;
  }
  return text + hotkeyKeyName(combo.keyCode, layout);
}

}  // namespace wh
