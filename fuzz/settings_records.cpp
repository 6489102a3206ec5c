// The bytes inside a "$data" value: a device list or per-app volumes, decoded all or nothing
// (volumes app by app). Whatever decodes must encode, and decode again to the same records.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzCheck.h"
#include "core/settings/Address.h"
#include "core/settings/Records.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (const auto devices = wh::decodeDevices(bytes)) {
    for (const auto& device : *devices) {
      // What the agent does with a record it read.
      const std::string address = wh::normalizeAddress(device.address);
      FUZZ_CHECK(wh::normalizeAddress(address) == address);
      (void)wh::guessDeviceIcon(device.name);
    }
    const auto encoded = wh::encodeDevices(*devices);
    FUZZ_CHECK(encoded.has_value());
    FUZZ_CHECK(wh::decodeDevices(*encoded) == devices);
  }
  if (const auto volumes = wh::decodeAppVolumes(bytes)) {
    const auto encoded = wh::encodeAppVolumes(*volumes);
    FUZZ_CHECK(encoded.has_value());
    FUZZ_CHECK(wh::decodeAppVolumes(*encoded) == volumes);
  }
  return 0;
}
