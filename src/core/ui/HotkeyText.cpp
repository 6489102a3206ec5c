#include "core/ui/HotkeyText.h"

#include <array>
#include <map>
#include <string_view>

namespace wh::ui {
namespace {

// The characters of the standard layout by key code; '?' marks codes that are not character keys.
constexpr std::string_view ansiCharacters = "ASDFHGZXCV?BQWERYT123465=97-80]OU[IP?LJ'K;\\,/NM.??`";

const std::map<std::uint32_t, const char*>& specialKeys() {
  static const std::map<std::uint32_t, const char*> names{
      {49, "Space"}, {36, "↩"},  {48, "⇥"},  {53, "⎋"},  {51, "⌫"},  {123, "←"}, {124, "→"},  {126, "↑"},
      {125, "↓"},    {122, "F1"}, {120, "F2"}, {99, "F3"}, {118, "F4"}, {96, "F5"}, {97, "F6"},  {98, "F7"},
      {100, "F8"},   {101, "F9"}, {109, "F10"}, {103, "F11"}, {111, "F12"}};
  return names;
}

}  // namespace

std::string hotkeyKeyName(std::uint32_t keyCode) {
  if (auto found = specialKeys().find(keyCode); found != specialKeys().end()) return found->second;
  if (keyCode < ansiCharacters.size() && ansiCharacters[keyCode] != '?') return std::string(1, ansiCharacters[keyCode]);
  return "#" + std::to_string(keyCode);
}

std::string hotkeyText(const HotkeyCombo& combo) {
  static constexpr std::array<std::pair<std::uint32_t, const char*>, 4> symbols{{{HotkeyModifier::control, "⌃"},
                                                                                 {HotkeyModifier::option, "⌥"},
                                                                                 {HotkeyModifier::shift, "⇧"},
                                                                                 {HotkeyModifier::command, "⌘"}}};
  std::string text;
  for (const auto& [bit, symbol] : symbols) {
    if ((combo.modifiers & bit) != 0) text += symbol;
  }
  return text + hotkeyKeyName(combo.keyCode);
}

}  // namespace wh::ui
