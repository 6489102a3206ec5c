#pragma once
// The per-user folders of the XDG base directory rules.

#include <filesystem>

namespace wh::platform {

// $XDG_CONFIG_HOME, or ~/.config when unset, empty or not absolute.
std::filesystem::path configHome();
// $XDG_STATE_HOME, or ~/.local/state.
std::filesystem::path stateHome();
// $XDG_DATA_HOME, or ~/.local/share.
std::filesystem::path dataHome();
// The user's home folder: $HOME, else the password database.
std::filesystem::path homeFolder();

// The shared settings file: <config home>/wrenhaven/settings.json.
std::filesystem::path settingsFile();

}  // namespace wh::platform
