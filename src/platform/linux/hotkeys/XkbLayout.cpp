#include "platform/linux/hotkeys/XkbLayout.h"

#include <xkbcommon/xkbcommon.h>

#include <QDBusConnection>
#include <QDBusInterface>

#include <array>

#include "platform/linux/hotkeys/X11Hotkeys.h"

namespace wh::platform {
namespace {

// The level-one symbol of a key in the first group.
xkb_keysym_t plainSymbol(xkb_keymap* keymap, xkb_keycode_t key, xkb_level_index_t level = 0) {
  const xkb_keysym_t* symbols = nullptr;
  return xkb_keymap_key_get_syms_by_level(keymap, key, 0, level, &symbols) > 0 ? symbols[0] : XKB_KEY_NoSymbol;
}

}  // namespace

XkbLayout::XkbLayout(const std::string& layout, const std::string& variant) {
  context_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
  if (context_ == nullptr) return;
  auto [systemLayoutName, systemVariant] = layout.empty() ? systemLayout() : std::pair(layout, variant);
  xkb_rule_names names{};
  names.layout = systemLayoutName.empty() ? nullptr : systemLayoutName.c_str();
  names.variant = systemVariant.empty() ? nullptr : systemVariant.c_str();
  keymap_ = xkb_keymap_new_from_names(context_, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
}

XkbLayout::~XkbLayout() {
  if (keymap_ != nullptr) xkb_keymap_unref(keymap_);
  if (context_ != nullptr) xkb_context_unref(context_);
}

std::pair<std::string, std::string> XkbLayout::systemLayout() {
  QDBusInterface locale(QStringLiteral("org.freedesktop.locale1"), QStringLiteral("/org/freedesktop/locale1"),
                        QStringLiteral("org.freedesktop.locale1"), QDBusConnection::systemBus());
  if (!locale.isValid()) return {};
  // The first of a list of layouts ("us,de") is the one in use at start.
  const auto first = [&](const char* property) {
    return locale.property(property).toString().section(',', 0, 0).toStdString();
  };
  return {first("X11Layout"), first("X11Variant")};
}

std::optional<std::string> XkbLayout::character(std::uint32_t keyCode) const {
  const auto symbol = X11Hotkeys::keySymbol(keyCode);
  if (!keymap_ || !symbol) return std::nullopt;
  // The first key that has the symbol on either level, as the X keymap's lookup finds it.
  for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap_); key <= xkb_keymap_max_keycode(keymap_); ++key) {
    if (plainSymbol(keymap_, key) != *symbol && plainSymbol(keymap_, key, 1) != *symbol) continue;
    std::array<char, 16> text{};
    if (xkb_keysym_to_utf8(plainSymbol(keymap_, key), text.data(), text.size()) <= 1) return std::nullopt;
    return std::string(text.data());
  }
  return std::nullopt;
}

std::optional<std::uint32_t> XkbLayout::keyCode(std::uint32_t nativeKeyCode) const {
  if (!keymap_) return std::nullopt;
  for (xkb_level_index_t level : {0U, 1U}) {
    if (auto code = X11Hotkeys::storedKeyCode(plainSymbol(keymap_, nativeKeyCode, level))) return code;
  }
  return std::nullopt;
}

}  // namespace wh::platform
