#include "platform/linux/app/XdgAutostart.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <system_error>

#include "platform/linux/settings/XdgPaths.h"

namespace wh::platform {

namespace {

constexpr const char* entryName = "com.quintelbarrows.wrenhaven.desktop";

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// An Exec argument quoted as the desktop entry rules ask: inside double quotes, with the double
// quote, backquote, dollar and backslash escaped, and every backslash doubled once more because the
// value itself is a string.
std::string execArgument(const std::string& argument) {
  std::string quoted = "\"";
  for (char c : argument) {
    if (c == '"' || c == '`' || c == '$') quoted += "\\\\";
    if (c == '\\') quoted += "\\\\\\";
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

XdgAutostart::XdgAutostart(std::filesystem::path entry, std::filesystem::path installedEntry,
                           std::filesystem::path program)
    : entry_(std::move(entry)), installedEntry_(std::move(installedEntry)), program_(std::move(program)) {}

XdgAutostart XdgAutostart::forThisProgram() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  // <prefix>/bin/wrenhaven ships <prefix>/share/wrenhaven/autostart/<entry>.
  const auto installed = program.parent_path().parent_path() / "share" / "wrenhaven" / "autostart" / entryName;
  return XdgAutostart(configHome() / "autostart" / entryName, installed, program);
}

bool XdgAutostart::enabled() const {
  std::ifstream in(entry_);
  if (!in) return false;
  bool inEntry = false;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.front() == '[') inEntry = line == "[Desktop Entry]";
    if (inEntry && (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")) return false;
  }
  return true;
}

std::string XdgAutostart::entryText() const {
  if (std::filesystem::is_regular_file(installedEntry_)) return readFile(installedEntry_);
  return "[Desktop Entry]\nType=Application\nName=Wrenhaven\nComment=Starts the Wrenhaven tray agent at login\n"
         "Exec=" + execArgument(program_.string()) + "\nTerminal=false\nNoDisplay=true\n"
         "X-GNOME-Autostart-enabled=true\n";
}

std::string XdgAutostart::setEnabled(bool on) {
  std::error_code error;
  if (!on) {
    std::filesystem::remove(entry_, error);
    return error ? error.message() : "";
  }
  std::filesystem::create_directories(entry_.parent_path(), error);
  if (error) return error.message();
  // Written beside and renamed, so a login never finds half an entry.
  const auto partial = entry_.string() + ".partial";
  {
    std::ofstream out(partial, std::ios::trunc);
    out << entryText();
    if (!out.flush()) {
      std::filesystem::remove(partial, error);
      return "could not write " + partial;
    }
  }
  std::filesystem::rename(partial, entry_, error);
  return error ? error.message() : "";
}

}  // namespace wh::platform
