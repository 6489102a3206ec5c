// Desktop-entry style files: a desktop entry as XdgDesktopEntries reads it into the catalog, and
// the same group syntax in mimeapps.list, mimeinfo.cache and a Flatpak instance's .flatpak-info.

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "core/audio/AppGrouping.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (auto entry = wh::DesktopEntry::parse("org.example.Player", text)) {
    const std::string program = entry->program();
    FUZZ_CHECK(program.find('/') == std::string::npos);
    (void)wh::execArguments(entry->exec);
    const bool hidden = entry->hidden;
    const wh::DesktopCatalog catalog({*entry});
    FUZZ_CHECK((catalog.byID("org.example.Player") != nullptr) == !hidden);
    if (const wh::DesktopEntry* found = catalog.byProgram(program)) FUZZ_CHECK(found->id == "org.example.Player");
    (void)catalog.byProgram(entry->startupWMClass);
  }
  for (const char* type : {"audio/mpeg", "audio/flac"}) {
    for (const auto& id : wh::listedDesktopIDs(text, "Default Applications", type)) {
      FUZZ_CHECK(text.find(id + ".desktop") != std::string::npos);
    }
    (void)wh::listedDesktopIDs(text, "MIME Cache", type);
  }
  if (const auto app = wh::appIDFromFlatpakInfo(text)) FUZZ_CHECK(!app->empty());
  return 0;
}
