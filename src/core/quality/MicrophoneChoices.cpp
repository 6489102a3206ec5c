#include "core/quality/MicrophoneChoices.h"

#include <algorithm>

namespace wh {

std::vector<MicrophoneChoice> microphoneChoices(const std::vector<AudioDevice>& devices, const std::string& preferred) {
  const auto builtIn = std::ranges::find_if(
      devices, [](const AudioDevice& device) { return device.transport == Transport::builtIn && device.hasInput; });
  const bool builtInChosen = preferred.empty() || (builtIn != devices.end() && builtIn->uid == preferred);
  std::vector<MicrophoneChoice> choices{{"", builtInMicrophoneTitle, builtInChosen, true}};
  bool preferredPresent = builtInChosen;
  for (auto device = devices.begin(); device != devices.end(); ++device) {
    if (!device->hasInput || Transport::isBluetooth(device->transport) || device->transport == Transport::aggregate ||
        device == builtIn) {
      continue;
    }
    preferredPresent = preferredPresent || device->uid == preferred;
    choices.push_back({device->uid, device->name, device->uid == preferred, true});
  }
  if (!preferredPresent) choices.push_back({preferred, preferred + " (not connected)", true, false});
  return choices;
}

std::string preferredInputUID(const Settings& settings) {
  const auto stored = settings.store().object(Keys::preferredInputUID);
  return stored ? stored->asString().value_or("") : std::string();
}

void setPreferredInput(Settings& settings, const std::string& uid) {
  settings.store().set(Keys::preferredInputUID,
                       uid.empty() ? std::nullopt : std::optional<StoreValue>(StoreValue::string(uid)));
  settings.changed(Keys::preferredInputUID);
}

}  // namespace wh
