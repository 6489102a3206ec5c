#include "platform/linux/settings/XdgPaths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace wh::platform {

namespace {

std::filesystem::path fromEnvironment(const char* name, const std::filesystem::path& fallback) {
  const char* value = std::getenv(name);
  // The base directory rules ignore relative paths.
  if (value != nullptr && value[0] == '/') return value;
  return fallback;
}

}  // namespace

std::filesystem::path homeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') return home;
  if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return entry->pw_dir;
  }
  return "/tmp";
}

std::filesystem::path configHome() { return fromEnvironment("XDG_CONFIG_HOME", homeFolder() / ".config"); }
std::filesystem::path stateHome() { return fromEnvironment("XDG_STATE_HOME", homeFolder() / ".local/state"); }
std::filesystem::path dataHome() { return fromEnvironment("XDG_DATA_HOME", homeFolder() / ".local/share"); }

std::filesystem::path settingsFile() { return configHome() / "wrenhaven" / "settings.json"; }

}  // namespace wh::platform
