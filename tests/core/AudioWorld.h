#pragma once
// The audio ports held in memory, on the virtual clock: what the monitor and the diagnostics
// text read in unit tests.

#include "core/audio/AppGrouping.h"
#include "doubles/MemoryApps.h"
#include "doubles/MemoryAudioHardware.h"
#include "doubles/VirtualRuntime.h"

namespace wh::test {

struct AudioWorld {
  VirtualRuntime rt;
  MemoryAudioHardware hw;
  MemoryProcessTable table;
  MemoryDesktopEntries desktop;
  AppGrouping grouping{table, desktop};
};

}  // namespace wh::test
