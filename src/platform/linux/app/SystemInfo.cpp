#include "platform/linux/app/SystemInfo.h"

#include <cstdlib>
#include <string_view>

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/input/KeyCapabilities.h"
#include "core/texts/PlatformTexts.h"

namespace wh::platform {

bool waylandSession() {
  const char* display = std::getenv("WAYLAND_DISPLAY");
  const char* type = std::getenv("XDG_SESSION_TYPE");
  return (display && *display) || (type && std::string_view(type) == "wayland");
}

std::string systemVersion() {
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    std::ifstream in(path);
    if (!in) continue;
    std::stringstream text;
    text << in.rdbuf();
    return texts::systemNameFromOsRelease(text.str());
  }
  return texts::systemNameFromOsRelease("");
}

texts::InputAccess inputAccess(const std::filesystem::path& sysClassInput, const std::filesystem::path& dev) {
  texts::InputAccess access;
  access.uinputWritable = ::access((dev / "uinput").c_str(), W_OK) == 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(sysClassInput, error)) {
    const auto name = entry.path().filename().string();
    if (name.rfind("event", 0) != 0) continue;
    std::ifstream capabilities(entry.path() / "device" / "capabilities" / "key");
    std::string bitmap;
    std::getline(capabilities, bitmap);
    if (reportsMediaKeys(bitmap) && ::access((dev / "input" / name).c_str(), R_OK) == 0) {
      access.mediaKeyDevicesReadable = true;
      break;
    }
  }
  return access;
}

texts::KeyAccessSystem keyAccessSystem(const std::filesystem::path& program, const std::filesystem::path& rulesFolder) {
  constexpr const char* ruleName = "70-wrenhaven-input.rules";
  texts::KeyAccessSystem system;
  const auto beside = program.parent_path().parent_path() / "share" / "wrenhaven" / "udev" / ruleName;
  std::error_code error;
  system.ruleFile = std::filesystem::exists(beside, error) ? beside.lexically_normal().string()
                                                           : std::string("/usr/share/wrenhaven/udev/") + ruleName;
  system.ruleInstalled = std::filesystem::exists(rulesFolder / ruleName, error);
  if (const passwd* user = ::getpwuid(::getuid()); user != nullptr && user->pw_name != nullptr) system.userName = user->pw_name;
  return system;
}

}  // namespace wh::platform
