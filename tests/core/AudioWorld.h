#pragma once
// The audio ports held in memory, on the virtual clock: what the monitor and the diagnostics
// text read in unit tests.

#include "core/audio/AppGrouping.h"
#include "core/audio/MemoryApps.h"
#include "core/audio/MemoryAudioHardware.h"
#include "core/runtime/VirtualRuntime.h"

namespace wh::test {

struct AudioWorld {
  VirtualRuntime rt;
  MemoryAudioHardware hw;
  MemoryProcessTable table;
  MemoryDesktopEntries desktop;
  AppGrouping grouping{table, desktop};
};

}  // namespace wh::test
