#include "platform/linux/audio/ProcFsProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <cstring>

namespace wh::platform {

namespace {

// A small file of /proc read whole; nothing when it cannot be opened.
std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0) {
      ::close(fd);
      return std::nullopt;
    }
    if (got == 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
    if (text.size() > (1u << 20)) break;
  }
  ::close(fd);
  return text;
}

std::optional<std::int32_t> parsePid(std::string_view text) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<std::int32_t> parentPidFromStat(std::string_view stat) {
  // "<pid> (<name>) <state> <ppid> ...": the name may hold spaces and parentheses, so read after
  // the last ")".
  const auto close = stat.rfind(')');
  if (close == std::string_view::npos) return std::nullopt;
  std::size_t at = close + 1;
  const auto skipSpaces = [&] {
    while (at < stat.size() && stat[at] == ' ') ++at;
  };
  skipSpaces();
  while (at < stat.size() && stat[at] != ' ') ++at;  // the state letter
  skipSpaces();
  const std::size_t start = at;
  while (at < stat.size() && stat[at] != ' ') ++at;
  return parsePid(stat.substr(start, at - start));
}

std::optional<std::string> controlGroupFromText(std::string_view text) {
  // "0::<path>" on the unified hierarchy; "<n>:name=systemd:<path>" on the older layout.
  constexpr std::string_view systemdTag = ":name=systemd:";
  std::optional<std::string> systemd;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = text.substr(start, end - start);
    start = end + 1;
    if (line.starts_with("0::")) return std::string(line.substr(3));
    const auto named = line.find(systemdTag);
    if (named != std::string_view::npos) systemd = std::string(line.substr(named + systemdTag.size()));
  }
  return systemd;
}

ProcFsProcessTable::ProcFsProcessTable(std::filesystem::path root) : root_(std::move(root)) {}

std::int32_t ProcFsProcessTable::ownPid() const { return static_cast<std::int32_t>(::getpid()); }

std::vector<std::int32_t> ProcFsProcessTable::pids() {
  std::vector<std::int32_t> out;
  DIR* folder = ::opendir(root_.c_str());
  if (folder == nullptr) return out;
  const uid_t user = ::geteuid();
  const int folderFd = ::dirfd(folder);
  while (const dirent* item = ::readdir(folder)) {
    if (!std::isdigit(static_cast<unsigned char>(item->d_name[0]))) continue;
    const auto pid = parsePid(item->d_name);
    struct stat info {};
    // Only the current user's processes; one that has just ended is skipped.
    if (!pid || ::fstatat(folderFd, item->d_name, &info, 0) != 0 || info.st_uid != user) continue;
    out.push_back(*pid);
  }
  ::closedir(folder);
  return out;
}

std::optional<std::int32_t> ProcFsProcessTable::parentPid(std::int32_t pid) {
  if (pid <= 0) return std::nullopt;
  const auto stat = readSmallFile(entry(pid) / "stat");
  if (!stat) return std::nullopt;
  return parentPidFromStat(*stat);
}

std::optional<std::string> ProcFsProcessTable::executable(std::int32_t pid) {
  if (pid <= 0) return std::nullopt;
  char buffer[4096];
  const ssize_t length = ::readlink((entry(pid) / "exe").c_str(), buffer, sizeof buffer);
  if (length <= 0) return std::nullopt;
  return std::string(buffer, static_cast<std::size_t>(length));
}

std::optional<std::string> ProcFsProcessTable::controlGroup(std::int32_t pid) {
  if (pid <= 0) return std::nullopt;
  const auto text = readSmallFile(entry(pid) / "cgroup");
  if (!text) return std::nullopt;
  return controlGroupFromText(*text);
}

std::optional<std::string> ProcFsProcessTable::flatpakInfo(std::int32_t pid) {
  if (pid <= 0) return std::nullopt;
  return readSmallFile(entry(pid) / "root" / ".flatpak-info");
}

}  // namespace wh::platform
