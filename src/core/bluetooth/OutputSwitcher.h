#pragma once
// Moves the sound to headphones that have just connected: waits for their output device (told by
// the sound server's device list, looked for on a slow poll as well), makes it the default output,
// checks twice that it stayed there, and reconnects the headphones once when the device never
// appears.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "core/audio/AudioHardware.h"
#include "core/runtime/Runtime.h"

namespace wh {

class OutputSwitcher {
 public:
  using DeviceID = AudioObjectID;

  // The device operations the switcher needs.
  struct Audio {
    // The headphones' output device, by their address.
    std::function<std::optional<DeviceID>(const std::string& address)> find;
    // The default output device.
    std::function<std::optional<DeviceID>()> current;
    // Makes the device the default output (and the alert output); the answer comes later, on the
    // main thread (see AudioHardware::setDefaultDevice).
    std::function<void(DeviceID, WriteDone)> set;
    // The device's name for the log.
    std::function<std::string(DeviceID)> name;
    // Calls `changed` on the main thread after each change of the device list, for as long as the
    // answer is kept. Empty where no such report exists: the poll then finds the device alone.
    std::function<std::shared_ptr<void>(std::function<void()> changed)> watch;

    // The operations on the sound server's devices: the headphones' device by the address
    // match, the default output (with the alert output following it), the device's name or its
    // id in decimal.
    static Audio live(AudioHardware& hardware);
  };

  static constexpr double giveUpAfter = 8.0;
  // A safety net: the device list's report finds the device the moment it appears.
  static constexpr double pollEvery = 0.25;
  static constexpr double firstRecheck = 1.0;
  static constexpr double secondRecheck = 3.0;

  OutputSwitcher(Runtime& runtime, Audio audio);
  OutputSwitcher(const OutputSwitcher&) = delete;
  OutputSwitcher& operator=(const OutputSwitcher&) = delete;

  // Disconnects and connects the headphones again, then reports whether they connected.
  std::function<void(const std::string& address, std::function<void(bool)> completion)> reconnect;

  void begin(const std::string& address);
  void cancel(const std::string& address);

  // Headphones whose one repair has been spent.
  std::set<std::string> repairUsed;
  const std::set<std::string>& repairing() const { return repairing_; }

 private:
  struct Waiting {
    int generation = 0;
    double started = 0;
  };

  void poll(const std::string& address, int generation);
  // Moves the sound when the device is there, and then waits no more.
  bool found(const std::string& address, int generation);
  void devicesChanged();
  void apply(DeviceID id);
  void recheck(const std::string& address, int generation);
  bool current(const std::string& address, int generation) const;

  Runtime& runtime_;
  Audio audio_;
  std::map<std::string, int> generation_;
  std::map<std::string, Waiting> waiting_;
  std::shared_ptr<void> watching_;
  std::set<std::string> repairing_;
  Lifetime lifetime_;
};

}  // namespace wh
