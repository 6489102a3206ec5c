#include "platform/linux/audio/PulsePropertyLists.h"

#include <string_view>

namespace wh::platform {

std::optional<std::string> propertyOf(const pa_proplist* properties, const char* key) {
  if (properties == nullptr) return std::nullopt;
  const char* value = pa_proplist_gets(properties, key);
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

PulseProperties deviceProperties(const pa_proplist* properties) {
  PulseProperties out;
  if (properties == nullptr) return out;
  void* state = nullptr;
  while (const char* key = pa_proplist_iterate(properties, &state)) {
    const std::string_view name(key);
    const bool wanted = name.starts_with("device.") || name.starts_with("api.bluez5.") ||
                        name.starts_with("bluez5.") || name.starts_with("bluetooth.");
    if (!wanted) continue;
    if (const char* value = pa_proplist_gets(properties, key)) out.emplace(key, value);
  }
  return out;
}

PulseProperties clientProperties(const pa_proplist* properties) {
  PulseProperties out;
  for (const char* key : {PA_PROP_APPLICATION_PROCESS_ID, PA_PROP_APPLICATION_ID, "client.api", "pipewire.sec.pid",
                          "pipewire.access", "pipewire.client.access", "pipewire.access.portal.app_id"}) {
    if (auto value = propertyOf(properties, key)) out.emplace(key, std::move(*value));
  }
  return out;
}

}  // namespace wh::platform
