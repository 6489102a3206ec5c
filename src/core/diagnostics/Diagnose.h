#pragma once
// The diagnostics text: the agent's view of the machine, printed by "--diagnose".

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/app/BuildInfo.h"
#include "core/audio/AudioHardware.h"
#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "core/bluetooth/BluetoothPorts.h"
#include "core/texts/PlatformTexts.h"

namespace wh {

class Diagnose {
 public:
  // Shown for a process without a bundle identifier.
  static constexpr const char* noBundleID = "(no bundle id)";

  struct Sources {
    BuildInfo build;
    std::string systemVersion;  // the operating system's name and version
    // The sound server and the process monitor over it; null when the server cannot be reached,
    // and then `audioProblem` says why.
    AudioHardware* audio = nullptr;
    AudioProcessMonitor* processes = nullptr;
    std::string audioProblem;
    // The microphone the input pinner would pin to.
    std::function<std::optional<AudioDevice>()> preferredMicrophone;
    // The server's automatic switch to the headset profile and who set it (AutoSwitchKeeper); shown
    // under each Bluetooth card when set.
    std::function<std::string()> autoSwitch;
    // What the profile guard last did about the card of that name and why; set where the guard
    // runs in this process (the problem report), not for "--diagnose".
    std::function<std::string(const std::string& cardName)> guardAction;
    // The applications whose capturing processes mean a call.
    std::vector<std::string> meetingApps;
    // The live battery source's entries (the slow source is never run for this report).
    std::function<std::vector<BatteryEntry>()> batteryEntries;
    // What the media keys need: readable input devices and a writable /dev/uinput.
    texts::InputAccess inputAccess;
    // Why global hotkeys cannot work in this session; nothing when they can.
    std::optional<std::string> hotkeysProblem;
    // Why the media keys cannot be read in this session; nothing when they can.
    std::optional<std::string> mediaKeysProblem;
  };

  explicit Diagnose(Sources sources) : sources_(std::move(sources)) {}

  // The whole report, lines joined with "\n" (no final newline). Refreshes the process monitor.
  std::string text() const;

  // "bluetooth", "built-in", "aggregate", or the code's four characters.
  static std::string transport(std::uint32_t code);

 private:
  Sources sources_;
};

}  // namespace wh
