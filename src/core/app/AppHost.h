#pragma once
// What the application delegate asks of the process and the desktop it runs in.

#include <functional>
#include <string>

namespace wh {

class AppHost {
 public:
  virtual ~AppHost() = default;
  virtual bool environmentHas(const std::string& name) const = 0;
  // Claims this program's place as the one running instance. When another instance holds it,
  // asks that one to handle a reopen and answers false; `reopen` is what this instance does when
  // a later one asks it the same.
  virtual bool claimSingleInstance(std::function<void()> reopen) = 0;
  // The operating system's name and version, as the start line and reports show it.
  virtual std::string systemVersion() const = 0;
  // Whether the agent may read the media keys (the input devices) and emit keys of its own.
  // Slow (it looks at the devices) and safe from any thread.
  virtual bool accessibilityTrusted() const = 0;
  // Shows the user where Bluetooth access is granted.
  virtual void openBluetoothSettings() = 0;
  // Shows the user how the media keys' input access is granted here, with a way to check it again.
  virtual void showKeyAccess() = 0;
};

}  // namespace wh
