#pragma once
// What the adapter reads from the sound server's property lists (pa_proplist).

#include <pulse/proplist.h>

#include <optional>
#include <string>

#include "platform/linux/audio/PulseMirror.h"

namespace wh::platform {

// One string property; nothing when the list or the key is missing, or the value is not a string.
std::optional<std::string> propertyOf(const pa_proplist* properties, const char* key);
// The properties that say what a device (or card) is: device.*, and what each server adds to
// Bluetooth nodes (api.bluez5.*, bluez5.*, bluetooth.*).
PulseProperties deviceProperties(const pa_proplist* properties);
// What a client says of itself and what the server knows of it: the keys pulseClient reads.
PulseProperties clientProperties(const pa_proplist* properties);

}  // namespace wh::platform
