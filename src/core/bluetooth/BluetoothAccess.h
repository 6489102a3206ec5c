#pragma once
// The one gate in front of Bluetooth: work that needs it waits here until the permission is
// granted, and everyone who shows the permission hears when it changed.

#include <vector>

#include "core/bluetooth/BluetoothPorts.h"
#include "core/notify/NotificationCenter.h"
#include "core/runtime/Runtime.h"

namespace wh {

class BluetoothAccess {
 public:
  static constexpr const char* changedName = "Wrenhaven.bluetoothAccessChanged";

  BluetoothAccess(BluetoothAuthority& authority, NotificationCenter& notifications);
  BluetoothAccess(const BluetoothAccess&) = delete;
  BluetoothAccess& operator=(const BluetoothAccess&) = delete;

  bool isDenied() const;
  BluetoothAuthorization authorization() const { return authority_.authorization(); }
  // Runs the work now when access is granted; otherwise keeps it, in order, until it is, and
  // starts following the permission (the first time).
  void whenAllowed(Work work);

 private:
  void didUpdateState();

  BluetoothAuthority& authority_;
  NotificationCenter& notifications_;
  std::vector<Work> waiters_;
  bool watching_ = false;
  Lifetime lifetime_;
};

}  // namespace wh
