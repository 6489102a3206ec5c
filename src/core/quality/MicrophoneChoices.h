#pragma once
// The microphones music quality can hold the default input on, as offered to the user: "Built-in
// Microphone" first (it stands for no stored choice), then every other input that is neither
// Bluetooth nor aggregate, then a stored choice that is not present now, so it is not lost.

#include <string>
#include <vector>

#include "core/audio/CoreAudio.h"
#include "core/settings/Settings.h"

namespace wh {

inline constexpr char builtInMicrophoneTitle[] = "Built-in Microphone";

struct MicrophoneChoice {
  std::string uid;  // empty: the built-in microphone, stored as no choice at all
  std::string title;
  bool chosen = false;
  bool present = true;  // false: chosen earlier and unplugged since
};

std::vector<MicrophoneChoice> microphoneChoices(const std::vector<AudioDevice>& devices, const std::string& preferred);

// The stored "preferredInputUID"; empty when none (or not a text) is stored.
std::string preferredInputUID(const Settings& settings);
// Stores the choice (an empty uid removes it: the built-in microphone) and announces it.
void setPreferredInput(Settings& settings, const std::string& uid);

}  // namespace wh
