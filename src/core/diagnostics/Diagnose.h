#pragma once
// The diagnostics text: the agent's view of the machine, printed by "--diagnose".

#include <cstdint>
#include <string>

#include "core/app/BuildInfo.h"
#include "core/audio/AudioHardware.h"
#include "core/audio/AudioProcesses.h"

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
