#pragma once
// The application delegate's host, as a test sets it up (environment variables, another instance,
// input access), counting what the delegate asked of it.

#include <functional>
#include <set>
#include <string>

#include "core/app/AppHost.h"

namespace wh::test {

class FakeAppHost : public AppHost {
 public:
  bool environmentHas(const std::string& name) const override { return variables.count(name) > 0; }
  bool claimSingleInstance(std::function<void()> handler) override {
    ++claims;
    reopen = std::move(handler);
    return !otherInstance;
  }
  std::string systemVersion() const override { return "Debian GNU/Linux 12 (bookworm)"; }
  bool accessibilityTrusted() const override { return ++accessChecks, trusted; }
  void openBluetoothSettings() override { ++bluetoothSettingsOpened; }
  void showKeyAccess() override { ++keyAccessShown; }

  std::set<std::string> variables;
  bool otherInstance = false, trusted = false;
  int claims = 0, bluetoothSettingsOpened = 0, keyAccessShown = 0;
  mutable int accessChecks = 0;
  std::function<void()> reopen;  // what a later instance's reopen calls
};

}  // namespace wh::test
