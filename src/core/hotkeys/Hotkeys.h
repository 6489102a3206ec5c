#pragma once
// Global hotkeys: each registration carries the signature "WHVN" and an id that is never handed
// out twice in one run; a press of a registered key runs the action stored under its id.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/hotkeys/HotkeyDisplay.h"

namespace wh {

// The display server's global key grabs.
class HotkeyService {
 public:
  using Handle = std::uint64_t;
  using Pressed = std::function<void(std::uint32_t signature, std::uint32_t id)>;
  // What a registration gives: a handle, or the service's status number.
  struct Registration {
    std::optional<Handle> handle;
    int status = 0;
  };
  // The status of a key code the service has no key for.
  static constexpr int unknownKey = -1;

  virtual ~HotkeyService() = default;
  // Why no key can be registered in this session; nothing when keys can be.
  virtual std::optional<std::string> unavailableReason() const = 0;
  // What keeps registered keys from working everywhere in this session; nothing when they do.
  virtual std::optional<std::string> limitation() const = 0;
  // Reports presses of registered keys on the main thread from now on (an empty handler: no more).
  virtual void installHandler(Pressed pressed) = 0;
  // A service that binds keys later than it registers them (the desktop's shortcuts) reports here
  // a registered key that was refused after all, with the service's status number.
  using Refused = std::function<void(std::uint32_t id, int status)>;
  virtual void installRefusedHandler(Refused /*refused*/) {}
  virtual Registration registerKey(const HotkeyCombo& combo, std::uint32_t signature, std::uint32_t id) = 0;
  virtual void unregisterKey(Handle handle) = 0;
};

class Hotkeys {
 public:
  // "WHVN" as a four-character code.
  static constexpr std::uint32_t signature = 0x5748564E;

  Hotkeys(HotkeyService& service, const KeyboardLayout* layout) : service_(service), layout_(layout) {}
  Hotkeys(const Hotkeys&) = delete;
  Hotkeys& operator=(const Hotkeys&) = delete;
  ~Hotkeys() {
    removeAll();
    if (handlerInstalled_) {
      service_.installHandler({});
      service_.installRefusedHandler({});
    }
  }

  // Registers one key; a key that cannot be registered is logged and skipped.
  void registerKey(const HotkeyCombo& combo, std::function<void()> action);
  // Unregisters every key and forgets their ids and actions; ids go on from where they were.
  void removeAll();
  std::size_t count() const { return refs_.size(); }
  // Whether the combination was asked for and refused (held by another program, or by the desktop).
  bool isTaken(const HotkeyCombo& combo) const;

 private:
  void pressed(std::uint32_t keySignature, std::uint32_t id);
  void refused(std::uint32_t id, int status);

  HotkeyService& service_;
  const KeyboardLayout* layout_;
  std::map<std::uint32_t, HotkeyService::Handle> refs_;
  std::map<std::uint32_t, std::function<void()>> actions_;
  std::map<std::uint32_t, std::string> texts_;  // the display text of each registered key
  std::map<std::uint32_t, HotkeyCombo> combos_;
  std::vector<HotkeyCombo> taken_;
  std::uint32_t nextID_ = 1;
  bool handlerInstalled_ = false;
};

}  // namespace wh
