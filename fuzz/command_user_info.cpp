// The user info of a "command" signal as the agent receives it: an a{sv} dictionary that Qt D-Bus
// hands over as a QVariantMap, built here from the input with every kind of value the bus can
// carry. The agent keeps the plain values; the settings program's own conversion back to the bus
// must give the same user info again.

#include <cstddef>
#include <cstdint>
#include <string>

#include "BusValues.h"
#include "FuzzCheck.h"
#include "core/settings/Address.h"
#include "platform/linux/app/SessionBusChannel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using wh::fuzz::busText;
  using wh::fuzz::busValue;
  using wh::platform::SessionBusChannel;
  FuzzedDataProvider input(data, size);
  QVariantMap userInfo;
  while (input.remaining_bytes() > 0) {
    const QString key = busText(input);
    userInfo[key] = busValue(input);
  }

  const nlohmann::json received = SessionBusChannel::toJson(userInfo);
  FUZZ_CHECK(received.is_object());
  FUZZ_CHECK(received.size() <= static_cast<std::size_t>(userInfo.size()));
  // What the agent reads of it.
  if (const auto address = received.find("address"); address != received.end() && address->is_string()) {
    (void)wh::normalizeAddress(address->get<std::string>());
  }
  // The same user info sent by the settings program arrives as it was (NaN compares by its text).
  const nlohmann::json again = SessionBusChannel::toJson(SessionBusChannel::fromJson(received));
  if (again.dump() != received.dump()) std::fprintf(stderr, "sent %s\narrived %s\n", received.dump().c_str(), again.dump().c_str());
  FUZZ_CHECK(again.dump() == received.dump());
  return 0;
}
