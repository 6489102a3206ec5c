#include "core/hotkeys/Hotkeys.h"

#include <algorithm>

#include "core/log/Log.h"

namespace wh {

void Hotkeys::registerKey(const HotkeyCombo& combo, std::function<void()> action) {
  const std::string text = hotkeyText(combo, layout_);
  if ((combo.modifiers & ~HotkeyModifier::all) != 0) {
    Log::info("hotkey " + text + " has modifiers that no key has (" + std::to_string(combo.modifiers) + "); skipped");
    return;
  }
  if (service_.unavailableReason()) return;  // said once by the service
  if (!handlerInstalled_) {
    service_.installHandler([this](std::uint32_t keySignature, std::uint32_t id) { pressed(keySignature, id); });
    service_.installRefusedHandler([this](std::uint32_t id, int status) { refused(id, status); });
    handlerInstalled_ = true;
  }
  const std::uint32_t id = nextID_++;
  const auto registration = service_.registerKey(combo, signature, id);
  if (!registration.handle) {
    if (registration.status == HotkeyService::unknownKey) {
      Log::info("hotkey " + text + " has a key code no key has here; skipped");
    } else {
      Log::info("hotkey " + text + " is taken (" + std::to_string(registration.status) + ")");
      taken_.push_back(combo);
    }
    return;
  }
  refs_[id] = *registration.handle;
  actions_[id] = std::move(action);
  texts_[id] = text;
  combos_[id] = combo;
}

bool Hotkeys::isTaken(const HotkeyCombo& combo) const {
  return std::find(taken_.begin(), taken_.end(), combo) != taken_.end();
}

void Hotkeys::refused(std::uint32_t id, int status) {
  const auto found = refs_.find(id);
  if (found == refs_.end()) return;
  Log::info("hotkey " + texts_[id] + " is taken (" + std::to_string(status) + ")");
  taken_.push_back(combos_[id]);
  combos_.erase(id);
  service_.unregisterKey(found->second);
  refs_.erase(found);
  actions_.erase(id);
  texts_.erase(id);
}

void Hotkeys::removeAll() {
  for (const auto& [id, handle] : refs_) service_.unregisterKey(handle);
  refs_.clear();
  actions_.clear();
  texts_.clear();
  combos_.clear();
  taken_.clear();
}

void Hotkeys::pressed(std::uint32_t keySignature, std::uint32_t id) {
  if (keySignature != signature) return;
  if (const auto found = actions_.find(id); found != actions_.end()) {
    const auto action = found->second;  // the action may change the registrations
    action();
  }
}

}  // namespace wh
