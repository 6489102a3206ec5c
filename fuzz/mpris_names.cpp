// What the MPRIS adapter receives from the bus: NameOwnerChanged's arguments, and each player's
// DesktopEntry property as its Get reply carries it (any type a player cares to send), followed
// by the lookups that pick a player's bus name. A name found must be one that is owned.

#include <QSet>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "BusValues.h"
#include "FuzzCheck.h"
#include "platform/linux/mediakeys/MprisNames.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using wh::fuzz::busText;
  using wh::fuzz::busValue;
  using wh::platform::MprisNames;
  FuzzedDataProvider input(data, size);
  MprisNames names;
  QSet<QString> owned;
  // Most names are MPRIS names, so that the lookups have something to find.
  const auto name = [&] { return input.ConsumeBool() ? MprisNames::prefix + busText(input) : busText(input); };
  while (input.remaining_bytes() > 0) {
    switch (input.ConsumeIntegralInRange(0, 2)) {
      case 0: {
        QVariantList arguments;
        for (int count = input.ConsumeIntegralInRange(0, 4); count > 0; --count) {
          arguments << (input.ConsumeBool() ? QVariant(name()) : busValue(input));
        }
        if (const auto change = MprisNames::ownerChange(arguments)) {
          names.ownerChanged(change->first, change->second);
          if (change->first.startsWith(MprisNames::prefix)) {
            if (change->second.isEmpty()) {
              owned.remove(change->first);
            } else {
              owned.insert(change->first);
            }
          }
        }
        break;
      }
      case 1:
        names.desktopEntry(name(), busValue(input));
        break;
      default: {
        std::vector<std::string> ids;
        for (int count = input.ConsumeIntegralInRange(0, 3); count > 0; --count) ids.push_back(busText(input).toStdString());
        if (const auto found = names.find(ids)) FUZZ_CHECK(owned.contains(*found));
        break;
      }
    }
  }
  return 0;
}
