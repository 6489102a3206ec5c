#pragma once
// The hotkey service, keyboard layout and recorder panel in memory.

#include <map>
#include <set>

#include "core/hotkeys/HotkeyRecorder.h"

namespace wh {

struct FakeHotkeyService final : HotkeyService, KeyboardLayout {
  std::map<std::uint32_t, std::string> characters{{0, "a"}, {27, "-"}};  // the layout's keys
  std::set<std::uint32_t> takenKeys;                                      // held by another program
  std::map<Handle, std::pair<HotkeyCombo, std::uint32_t>> grabs;          // handle -> combo, id
  Pressed pressed;
  Handle nextHandle = 100;

  std::optional<std::string> limit;  // what the service says keeps its keys from working everywhere

  std::optional<std::string> unavailableReason() const override { return std::nullopt; }
  std::optional<std::string> limitation() const override { return limit; }
  void installHandler(Pressed handler) override { pressed = std::move(handler); }
  void installRefusedHandler(Refused handler) override { refused = std::move(handler); }
  Refused refused;
  Registration registerKey(const HotkeyCombo& combo, std::uint32_t signature, std::uint32_t id) override {
    if (combo.keyCode > 127 || signature != Hotkeys::signature) return {std::nullopt, unknownKey};
    if (takenKeys.contains(combo.keyCode)) return {std::nullopt, 10};
    grabs[nextHandle] = {combo, id};
    return {nextHandle++, 0};
  }
  void unregisterKey(Handle handle) override { grabs.erase(handle); }
  // Presses a key: the id of its grab is reported, as the display server would.
  void press(const HotkeyCombo& combo) {
    for (const auto& [handle, grab] : grabs) {
      if (grab.first == combo && pressed) pressed(Hotkeys::signature, grab.second);
    }
  }
  std::optional<std::string> character(std::uint32_t code) const override { return characters.contains(code) ? std::optional(characters.at(code)) : std::nullopt; }
  std::optional<std::uint32_t> keyCode(std::uint32_t nativeKeyCode) const override { return nativeKeyCode; }
};

struct FakeRecorderPanel final : RecorderPanel {
  std::string title, message, hint;
  Handlers handlers;
  bool shown = false;
  void open(const std::string& t, const std::string& m, Handlers h) override { title = t, message = m, hint.clear(), handlers = std::move(h), shown = true; }
  void setHint(const std::string& text) override { hint = text; }
  void close() override { shown = false; }
};

}  // namespace wh
