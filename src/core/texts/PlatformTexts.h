#pragma once
// Every user-visible text that names the operating system, in one place. The agent's texts are
// otherwise fixed; only these say the platform's own words.

#include <string>
#include <string_view>

namespace wh::texts {

// Shown where the computer has no microphone of its own.
inline constexpr const char* kNoBuiltInMicrophone = "This computer has no built-in microphone";

// The operating system's name and version from the text of /etc/os-release: PRETTY_NAME, else
// NAME and VERSION (or VERSION_ID), else "Linux".
std::string systemNameFromOsRelease(std::string_view osRelease);

}  // namespace wh::texts
