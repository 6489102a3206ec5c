#pragma once
// A private D-Bus daemon for tests, so nothing of the user's own buses is touched.

#include <memory>
#include <string>

#include "support/ChildProcess.h"

namespace wh::test {

class DBusDaemon {
 public:
  enum class Kind { session, system };

  // Starts dbus-daemon with the standard configuration of that kind of bus, on a socket of its own.
  // Everyone may own and call anything, except what `extraPolicy` (rules such as
  // <deny send_destination="org.bluez"/>, added after the permissive ones) takes away.
  // `available()` tells whether it came up; `whyNot()` why it did not.
  explicit DBusDaemon(Kind kind = Kind::session, const std::string& extraPolicy = {});
  ~DBusDaemon();

  bool available() const { return !address_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // The bus address to put into DBUS_SESSION_BUS_ADDRESS or DBUS_SYSTEM_BUS_ADDRESS.
  const std::string& address() const { return address_; }
  // Whether some connection owns `name` on this bus.
  bool hasOwner(const std::string& name) const;

 private:
  std::unique_ptr<ChildProcess> process_;
  std::string address_;
  std::string whyNot_;
  std::string configFile_;
};

}  // namespace wh::test
