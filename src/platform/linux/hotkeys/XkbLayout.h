#pragma once
// The keyboard layout from xkbcommon, for sessions whose keys are not named by an X server (Wayland
// without XWayland): the layout the system is set to (systemd-localed's X11Layout and X11Variant,
// else the XKB_DEFAULT_* variables, else xkbcommon's default), read once at start. It answers as
// the X11 keymap does: a stored key's character is what the layout's key with the same US symbol
// gives without modifiers, and a native key code (evdev + 8, as Wayland gives it) maps back to a
// stored key code through its symbols.

#include <optional>
#include <string>

#include "core/hotkeys/HotkeyDisplay.h"

struct xkb_context;
struct xkb_keymap;

namespace wh::platform {

class XkbLayout final : public KeyboardLayout {
 public:
  // `layout` and `variant` as XKB names them ("de", "nodeadkeys"); empty: the system's.
  explicit XkbLayout(const std::string& layout = {}, const std::string& variant = {});
  ~XkbLayout() override;
  XkbLayout(const XkbLayout&) = delete;
  XkbLayout& operator=(const XkbLayout&) = delete;

  // The layout systemd-localed holds ("de" and "nodeadkeys"), or empty strings.
  static std::pair<std::string, std::string> systemLayout();

  bool usable() const { return keymap_ != nullptr; }
  std::optional<std::string> character(std::uint32_t keyCode) const override;
  std::optional<std::uint32_t> keyCode(std::uint32_t nativeKeyCode) const override;

 private:
  xkb_context* context_ = nullptr;
  xkb_keymap* keymap_ = nullptr;
};

}  // namespace wh::platform
