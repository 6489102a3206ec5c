#include "platform/linux/hotkeys/X11Hotkeys.h"

#include <xcb/xcb_keysyms.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "core/log/Log.h"
#include "core/texts/PlatformTexts.h"
#include "platform/linux/app/SystemInfo.h"

namespace wh::platform {
namespace {

// Stored key code (the ANSI positions of the settings records) -> X key symbol.
constexpr std::pair<std::uint32_t, std::uint32_t> keyTable[] = {
    {0x00, 'a'}, {0x01, 's'}, {0x02, 'd'}, {0x03, 'f'}, {0x04, 'h'}, {0x05, 'g'}, {0x06, 'z'}, {0x07, 'x'},
    {0x08, 'c'}, {0x09, 'v'}, {0x0A, 0xa7 /* section */}, {0x0B, 'b'}, {0x0C, 'q'}, {0x0D, 'w'}, {0x0E, 'e'},
    {0x0F, 'r'}, {0x10, 'y'}, {0x11, 't'}, {0x12, '1'}, {0x13, '2'}, {0x14, '3'}, {0x15, '4'}, {0x16, '6'},
    {0x17, '5'}, {0x18, '='}, {0x19, '9'}, {0x1A, '7'}, {0x1B, '-'}, {0x1C, '8'}, {0x1D, '0'}, {0x1E, ']'},
    {0x1F, 'o'}, {0x20, 'u'}, {0x21, '['}, {0x22, 'i'}, {0x23, 'p'}, {0x24, 0xff0d /* Return */}, {0x25, 'l'},
    {0x26, 'j'}, {0x27, '\''}, {0x28, 'k'}, {0x29, ';'}, {0x2A, '\\'}, {0x2B, ','}, {0x2C, '/'}, {0x2D, 'n'},
    {0x2E, 'm'}, {0x2F, '.'}, {0x30, 0xff09 /* Tab */}, {0x31, ' '}, {0x32, '`'}, {0x33, 0xff08 /* BackSpace */},
    {0x35, 0xff1b /* Escape */}, {0x40, 0xffce /* F17 */}, {0x41, 0xffae /* KP_Decimal */},
    {0x43, 0xffaa /* KP_Multiply */}, {0x45, 0xffab /* KP_Add */}, {0x47, 0xff0b /* Clear */},
    {0x48, 0x1008ff13 /* XF86AudioRaiseVolume */}, {0x49, 0x1008ff11 /* XF86AudioLowerVolume */},
    {0x4A, 0x1008ff12 /* XF86AudioMute */}, {0x4B, 0xffaf /* KP_Divide */}, {0x4C, 0xff8d /* KP_Enter */},
    {0x4E, 0xffad /* KP_Subtract */}, {0x4F, 0xffcf /* F18 */}, {0x50, 0xffd0 /* F19 */},
    {0x51, 0xffbd /* KP_Equal */}, {0x52, 0xffb0}, {0x53, 0xffb1}, {0x54, 0xffb2}, {0x55, 0xffb3}, {0x56, 0xffb4},
    {0x57, 0xffb5}, {0x58, 0xffb6}, {0x59, 0xffb7}, {0x5A, 0xffd1 /* F20 */}, {0x5B, 0xffb8}, {0x5C, 0xffb9},
    {0x5D, 0xa5 /* yen */}, {0x5E, '_'}, {0x5F, 0xffac /* KP_Separator */}, {0x60, 0xffc2 /* F5 */},
    {0x61, 0xffc3}, {0x62, 0xffc4}, {0x63, 0xffc0 /* F3 */}, {0x64, 0xffc5}, {0x65, 0xffc6}, {0x66, 0xff30 /* Eisu */},
    {0x67, 0xffc8 /* F11 */}, {0x68, 0xff27 /* Hiragana_Katakana */}, {0x69, 0xffca /* F13 */},
    {0x6A, 0xffcd /* F16 */}, {0x6B, 0xffcb /* F14 */}, {0x6D, 0xffc7 /* F10 */}, {0x6E, 0xff67 /* Menu */},
    {0x6F, 0xffc9 /* F12 */}, {0x71, 0xffcc /* F15 */}, {0x72, 0xff63 /* Insert, where Help sits */},
    {0x73, 0xff50 /* Home */}, {0x74, 0xff55 /* Prior */}, {0x75, 0xffff /* Delete */}, {0x76, 0xffc1 /* F4 */},
    {0x77, 0xff57 /* End */}, {0x78, 0xffbf /* F2 */}, {0x79, 0xff56 /* Next */}, {0x7A, 0xffbe /* F1 */},
    {0x7B, 0xff51 /* Left */}, {0x7C, 0xff53 /* Right */}, {0x7D, 0xff54 /* Down */}, {0x7E, 0xff52 /* Up */},
};

constexpr std::array<std::pair<std::uint32_t, std::uint16_t>, 4> modifierTable{{
    {HotkeyModifier::command, XCB_MOD_MASK_4},
    {HotkeyModifier::shift, XCB_MOD_MASK_SHIFT},
    {HotkeyModifier::option, XCB_MOD_MASK_1},
    {HotkeyModifier::control, XCB_MOD_MASK_CONTROL},
}};

constexpr std::uint32_t numLockSymbol = 0xff7f;
// The X protocol's error for a grab that another client holds.
constexpr std::uint8_t accessError = 10;

// The character of a Latin-1 or Unicode key symbol; nothing for function keys.
std::optional<std::string> symbolCharacter(std::uint32_t symbol) {
  std::uint32_t point = 0;
  if ((symbol >= 0x21 && symbol <= 0x7e) || (symbol >= 0xa1 && symbol <= 0xff)) point = symbol;
  if (symbol >= 0x01000100 && symbol <= 0x0110ffff) point = symbol - 0x01000000;
  if (point == 0) return std::nullopt;
  if (point >= 'a' && point <= 'z') point -= 'a' - 'A';
  if (point >= 0xe0 && point <= 0xfe && point != 0xf7) point -= 0x20;  // Latin-1 letters
  std::string text;
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text += static_cast<char>(0xc0 | (point >> 6));
    text += static_cast<char>(0x80 | (point & 0x3f));
  } else if (point < 0x10000) {
    text += static_cast<char>(0xe0 | (point >> 12));
    text += static_cast<char>(0x80 | ((point >> 6) & 0x3f));
    text += static_cast<char>(0x80 | (point & 0x3f));
  } else {
    text += static_cast<char>(0xf0 | (point >> 18));
    text += static_cast<char>(0x80 | ((point >> 12) & 0x3f));
    text += static_cast<char>(0x80 | ((point >> 6) & 0x3f));
    text += static_cast<char>(0x80 | (point & 0x3f));
  }
  return text;
}

}  // namespace

std::optional<std::uint32_t> X11Hotkeys::keySymbol(std::uint32_t keyCode) {
  for (const auto& [code, symbol] : keyTable) {
    if (code == keyCode) return symbol;
  }
  return std::nullopt;
}

std::optional<std::uint32_t> X11Hotkeys::storedKeyCode(std::uint32_t symbol) {
  if (symbol >= 'A' && symbol <= 'Z') symbol += 'a' - 'A';
  if (symbol == 0xff6a) symbol = 0xff63;  // Help
  for (const auto& [code, entry] : keyTable) {
    if (entry == symbol) return code;
  }
  return std::nullopt;
}

std::optional<std::string> X11Hotkeys::sessionProblem(const char* display) {
  const char* name = display ? display : std::getenv("DISPLAY");
  if (name != nullptr && *name != '\0') return std::nullopt;
  return std::getenv("WAYLAND_DISPLAY") ? texts::kHotkeysNeedX11 : texts::kHotkeysNoDisplay;
}

std::optional<std::string> X11Hotkeys::sessionLimitation() {
  if (waylandSession()) return texts::kHotkeysXWaylandOnly;
  return std::nullopt;
}

X11Hotkeys::X11Hotkeys(const char* display) {
  const char* name = display ? display : std::getenv("DISPLAY");
  if ((reason_ = sessionProblem(display))) {
    Log::info(*reason_);
    return;
  }
  connection_ = xcb_connect(name, nullptr);
  if (xcb_connection_has_error(connection_)) {
    xcb_disconnect(connection_);
    connection_ = nullptr;
    reason_ = texts::kHotkeysNoDisplay;
    Log::info(*reason_);
    return;
  }
  if ((limitation_ = sessionLimitation())) Log::info(*limitation_);
  root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
  symbols_ = xcb_key_symbols_alloc(connection_);
  // Num Lock's modifier bit, wherever the keyboard map put it.
  if (auto* map = xcb_get_modifier_mapping_reply(connection_, xcb_get_modifier_mapping(connection_), nullptr)) {
    xcb_keycode_t* numLockKeys = xcb_key_symbols_get_keycode(symbols_, numLockSymbol);
    const xcb_keycode_t* keys = xcb_get_modifier_mapping_keycodes(map);
    for (int i = 0; numLockKeys && i < 8 * map->keycodes_per_modifier; ++i) {
      for (auto* key = numLockKeys; *key != XCB_NO_SYMBOL; ++key) {
        if (keys[i] == *key) numLock_ = static_cast<std::uint16_t>(1u << (i / map->keycodes_per_modifier));
      }
    }
    free(numLockKeys);
    free(map);
  }
  notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { readEvents(); });
}

X11Hotkeys::~X11Hotkeys() {
  notifier_.reset();
  if (symbols_) xcb_key_symbols_free(symbols_);
  if (connection_) xcb_disconnect(connection_);
}

std::vector<std::uint16_t> X11Hotkeys::lockVariants() const {
  std::vector<std::uint16_t> variants{0, XCB_MOD_MASK_LOCK};
  if (numLock_ != 0) variants.insert(variants.end(), {numLock_, static_cast<std::uint16_t>(numLock_ | XCB_MOD_MASK_LOCK)});
  return variants;
}

HotkeyService::Registration X11Hotkeys::registerKey(const HotkeyCombo& combo, std::uint32_t signature, std::uint32_t id) {
  const auto symbol = keySymbol(combo.keyCode);
  if (!connection_ || !symbol) return {std::nullopt, unknownKey};
  Grab grab{{}, 0, signature, id, *symbol};
  for (const auto& [bit, mask] : modifierTable) {
    if ((combo.modifiers & bit) != 0) grab.modifiers |= mask;
  }
  findKeys(grab);
  if (grab.keys.empty()) return {std::nullopt, unknownKey};
  int status = 0;
  for (const auto key : grab.keys) {
    for (const auto lock : lockVariants()) {
      auto* error = xcb_request_check(connection_, xcb_grab_key_checked(connection_, 1, root_, grab.modifiers | lock, key,
                                                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
      if (error && status == 0) status = error->error_code;
      free(error);
    }
  }
  if (status != 0) {
    // Taken in part: ours are given back (another program's grabs are not touched by an ungrab of ours).
    if (status == accessError) ungrab(grab);
    return {std::nullopt, status};
  }
  grabs_[nextHandle_] = grab;
  return {nextHandle_++, 0};
}

void X11Hotkeys::findKeys(Grab& grab) const {
  grab.keys.clear();
  xcb_keycode_t* keys = xcb_key_symbols_get_keycode(symbols_, grab.symbol);
  for (auto* key = keys; key && *key != XCB_NO_SYMBOL; ++key) grab.keys.push_back(*key);
  free(keys);
}

void X11Hotkeys::grabAgain() {
  for (auto& [handle, grab] : grabs_) {
    ungrab(grab);
    findKeys(grab);
    for (const auto key : grab.keys) {
      for (const auto lock : lockVariants()) {
        xcb_grab_key(connection_, 1, root_, grab.modifiers | lock, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
      }
    }
  }
  xcb_flush(connection_);
}

void X11Hotkeys::ungrab(const Grab& grab) {
  for (const auto key : grab.keys) {
    for (const auto lock : lockVariants()) xcb_ungrab_key(connection_, key, root_, grab.modifiers | lock);
  }
  xcb_flush(connection_);
}

void X11Hotkeys::unregisterKey(Handle handle) {
  const auto found = grabs_.find(handle);
  if (found == grabs_.end()) return;
  ungrab(found->second);
  grabs_.erase(found);
}

std::optional<std::string> X11Hotkeys::character(std::uint32_t keyCode) const {
  const auto symbol = keySymbol(keyCode);
  if (!symbols_ || !symbol) return std::nullopt;
  xcb_keycode_t* keys = xcb_key_symbols_get_keycode(symbols_, *symbol);
  std::optional<std::string> out;
  // What the layout's key gives without modifiers.
  if (keys && *keys != XCB_NO_SYMBOL) out = symbolCharacter(xcb_key_symbols_get_keysym(symbols_, *keys, 0));
  free(keys);
  return out;
}

std::optional<std::uint32_t> X11Hotkeys::keyCode(std::uint32_t nativeKeyCode) const {
  if (!symbols_) return std::nullopt;
  for (int column : {0, 1}) {
    const auto symbol = xcb_key_symbols_get_keysym(symbols_, static_cast<xcb_keycode_t>(nativeKeyCode), column);
    if (auto code = storedKeyCode(symbol)) return code;
  }
  return std::nullopt;
}

void X11Hotkeys::readEvents() {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pressed;
  bool newKeyboardMap = false;
  while (xcb_generic_event_t* generic = xcb_poll_for_event(connection_)) {
    if ((generic->response_type & 0x7F) == XCB_KEY_PRESS) {
      const auto* key = reinterpret_cast<xcb_key_press_event_t*>(generic);
      const auto modifiers = static_cast<std::uint16_t>(key->state & ~(XCB_MOD_MASK_LOCK | numLock_) & 0xff);
      for (const auto& [handle, grab] : grabs_) {
        if (grab.modifiers == modifiers && std::find(grab.keys.begin(), grab.keys.end(), key->detail) != grab.keys.end()) {
          pressed.emplace_back(grab.signature, grab.id);
        }
      }
    } else if ((generic->response_type & 0x7F) == XCB_MAPPING_NOTIFY) {
      auto* mapping = reinterpret_cast<xcb_mapping_notify_event_t*>(generic);
      xcb_refresh_keyboard_mapping(symbols_, mapping);
      newKeyboardMap = newKeyboardMap || mapping->request == XCB_MAPPING_KEYBOARD;
    }
    free(generic);
  }
  // A new layout moves symbols to other keys: the grabs follow them.
  if (newKeyboardMap) grabAgain();
  if (xcb_connection_has_error(connection_)) notifier_->setEnabled(false);
  // The actions may register again: they run once the grabs are no longer walked.
  for (const auto& [signature, id] : pressed) {
    if (pressed_) pressed_(signature, id);
  }
}

}  // namespace wh::platform
