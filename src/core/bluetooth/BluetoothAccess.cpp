#include "core/bluetooth/BluetoothAccess.h"

namespace wh {

BluetoothAccess::BluetoothAccess(BluetoothAuthority& authority, NotificationCenter& notifications)
    : authority_(authority), notifications_(notifications) {}

bool BluetoothAccess::isDenied() const {
  const auto state = authority_.authorization();
  return state == BluetoothAuthorization::denied || state == BluetoothAuthorization::restricted;
}

void BluetoothAccess::whenAllowed(Work work) {
  if (authority_.authorization() == BluetoothAuthorization::allowedAlways) {
    work();
    return;
  }
  waiters_.push_back(std::move(work));
  if (!watching_) {
    watching_ = true;
    authority_.startWatching(lifetime_.guard([this] { didUpdateState(); }));
  }
}

void BluetoothAccess::didUpdateState() {
  notifications_.post(changedName);
  if (authority_.authorization() != BluetoothAuthorization::allowedAlways) return;
  auto waiting = std::move(waiters_);
  waiters_.clear();
  for (auto& work : waiting) work();
}

}  // namespace wh
