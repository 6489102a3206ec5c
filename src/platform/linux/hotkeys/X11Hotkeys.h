#pragma once
// Global hotkeys as key grabs on the X11 root window. The stored key codes are translated to X
// key symbols with one table (and back), the symbols to the keys of the current keyboard map; each
// key is grabbed with and without Caps Lock and Num Lock, so that neither disables it. Command is
// Super (Mod4), option is Alt (Mod1).

#include <xcb/xcb.h>

#include <QSocketNotifier>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/hotkeys/Hotkeys.h"

struct _XCBKeySymbols;

namespace wh::platform {

class X11Hotkeys final : public HotkeyService, public KeyboardLayout {
 public:
  // Connects to `display` (null: $DISPLAY). Without an X display, says why once in the log.
  explicit X11Hotkeys(const char* display = nullptr);
  ~X11Hotkeys() override;
  X11Hotkeys(const X11Hotkeys&) = delete;
  X11Hotkeys& operator=(const X11Hotkeys&) = delete;

  // The stored key code's X key symbol and back; nothing for codes and symbols outside the table.
  static std::optional<std::uint32_t> keySymbol(std::uint32_t keyCode);
  static std::optional<std::uint32_t> storedKeyCode(std::uint32_t keySymbol);
  // Why this session has no X display to grab keys on (Wayland without X11, none at all).
  static std::optional<std::string> sessionProblem(const char* display = nullptr);
  // What keeps the grabs from seeing every key in this session (XWayland sees only X11 windows).
  static std::optional<std::string> sessionLimitation();

  std::optional<std::string> unavailableReason() const override { return reason_; }
  std::optional<std::string> limitation() const override { return limitation_; }
  void installHandler(Pressed pressed) override { pressed_ = std::move(pressed); }
  Registration registerKey(const HotkeyCombo& combo, std::uint32_t signature, std::uint32_t id) override;
  void unregisterKey(Handle handle) override;
  std::optional<std::string> character(std::uint32_t keyCode) const override;
  std::optional<std::uint32_t> keyCode(std::uint32_t nativeKeyCode) const override;

 private:
  struct Grab {
    std::vector<xcb_keycode_t> keys;
    std::uint16_t modifiers;
    std::uint32_t signature;
    std::uint32_t id;
    std::uint32_t symbol;  // the key symbol the keys were found by
  };
  void readEvents();
  // The keys that carry `grab.symbol` in the keyboard map now.
  void findKeys(Grab& grab) const;
  // After a new keyboard map: the same symbols, grabbed on the keys that carry them now.
  void grabAgain();
  std::vector<std::uint16_t> lockVariants() const;
  void ungrab(const Grab& grab);

  xcb_connection_t* connection_ = nullptr;
  xcb_window_t root_ = 0;
  _XCBKeySymbols* symbols_ = nullptr;
  std::uint16_t numLock_ = 0;
  std::optional<std::string> reason_, limitation_;
  Pressed pressed_;
  std::map<Handle, Grab> grabs_;
  Handle nextHandle_ = 1;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace wh::platform
