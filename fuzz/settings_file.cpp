// The settings file as JsonFileStore reads it: a JSON object of store values, data values in the
// {"$data": "..."} wrapper, dictionaries with their "$" keys escaped. Every file that reads at all
// must read back the same after the store writes it, and the data it holds goes through the
// record decoders as the settings do.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzCheck.h"
#include "core/settings/Records.h"
#include "platform/linux/settings/JsonFileStore.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using wh::StoreValue;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto values = wh::platform::decodeSettingsFile(bytes);
  if (!values) return 0;
  for (const auto& [key, value] : *values) {
    const StoreValue::Kind kind = value.kind();
    FUZZ_CHECK((value.asData() != nullptr) == (kind == StoreValue::Kind::data));
    FUZZ_CHECK(value.asBool().has_value() == (kind == StoreValue::Kind::boolean));
    FUZZ_CHECK(value.asString().has_value() == (kind == StoreValue::Kind::string));
    FUZZ_CHECK(value.asStringArray().has_value() == (kind == StoreValue::Kind::stringArray));
    if (const std::string* stored = value.asData()) {
      (void)wh::decodeDevices(*stored);
      (void)wh::decodeAppVolumes(*stored);
    }
  }
  // Whatever was read is written whole and reads back as it was.
  const auto written = wh::platform::encodeSettingsFile(*values);
  FUZZ_CHECK(written.has_value());
  const auto reread = wh::platform::decodeSettingsFile(*written);
  FUZZ_CHECK(reread.has_value());
  FUZZ_CHECK(*reread == *values);
  return 0;
}
