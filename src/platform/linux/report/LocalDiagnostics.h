#pragma once
// What the diagnostics text reads on this machine, shared by the agent (its "--diagnose" and its
// problem report) and the settings program (its problem report): the sound server with the
// processes that use it, and the other sources beside it.

#include "core/audio/AppGrouping.h"
#include "core/audio/AudioProcesses.h"
#include "core/diagnostics/Diagnose.h"
#include "core/quality/InputPinner.h"
#include "core/settings/Settings.h"
#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "platform/linux/bluetooth/BluezUPowerBatterySources.h"

namespace wh::platform {

// The sound server and what is known of the processes that use it.
struct AudioStack {
  explicit AudioStack(Runtime& runtime, const PulseAudioHardware::Options& options = {})
      : hardware(runtime.main(), options), grouping(processTable, desktopEntries),
        processes(runtime, hardware, grouping) {}

  PulseAudioHardware hardware;
  ProcFsProcessTable processTable;
  XdgDesktopEntries desktopEntries;
  AppGrouping grouping;
  AudioProcessMonitor processes;
};

// What the diagnostics text reads besides the sound server.
Diagnose::Sources diagnoseSources(const BuildInfo& build, Settings& settings, InputPinner& pinner,
                                  BluezUPowerBatterySources& batteries);

}  // namespace wh::platform
