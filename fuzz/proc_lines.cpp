// Texts of /proc/<pid>: the stat line (the parent pid after the program's name, which may hold
// spaces and parentheses) and the cgroup lines, whose path names the application's systemd unit.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzCheck.h"
#include "core/audio/AppGrouping.h"
#include "platform/linux/audio/ProcFsProcessTable.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  (void)wh::platform::parentPidFromStat(text);
  if (const auto path = wh::platform::controlGroupFromText(text)) {
    FUZZ_CHECK(path->find('\n') == std::string::npos);
    if (const auto app = wh::appIDFromControlGroup(*path)) FUZZ_CHECK(!app->empty());
  }
  return 0;
}
