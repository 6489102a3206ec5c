#include "platform/linux/audio/XdgDesktopEntries.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/linux/settings/XdgPaths.h"

namespace wh::platform {

namespace {

std::int64_t modificationStamp(const std::filesystem::path& folder) {
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return -1;
  return static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
}

}  // namespace

XdgDesktopEntries::XdgDesktopEntries(std::vector<std::filesystem::path> folders) : folders_(std::move(folders)) {}

std::vector<std::filesystem::path> XdgDesktopEntries::standardFolders() {
  std::vector<std::filesystem::path> folders{dataHome() / "applications"};
  const char* dirs = std::getenv("XDG_DATA_DIRS");
  std::string list = dirs != nullptr && *dirs != '\0' ? dirs : "/usr/local/share:/usr/share";
  std::stringstream in(list);
  std::string dir;
  while (std::getline(in, dir, ':')) {
    if (!dir.empty() && dir[0] == '/') folders.push_back(std::filesystem::path(dir) / "applications");
  }
  return folders;
}

XdgDesktopEntries::Stamps XdgDesktopEntries::stampsNow() const {
  Stamps now;
  for (const auto& [folder, stamp] : stamps_) now[folder] = modificationStamp(folder);
  return now;
}

std::shared_ptr<const DesktopCatalog> XdgDesktopEntries::catalog() {
  std::lock_guard lock(mutex_);
  if (!catalog_ || stampsNow() != stamps_) scan();
  return catalog_;
}

void XdgDesktopEntries::scan() {
  std::vector<DesktopEntry> entries;
  Stamps stamps;
  for (const auto& folder : folders_) {
    stamps[folder] = modificationStamp(folder);
    std::error_code error;
    std::filesystem::recursive_directory_iterator it(folder, std::filesystem::directory_options::skip_permission_denied,
                                                    error);
    for (; !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
      const auto& path = it->path();
      if (it->is_directory(error)) {
        stamps[path] = modificationStamp(path);
        continue;
      }
      if (path.extension() != ".desktop") continue;
      std::string id = path.lexically_relative(folder).replace_extension().string();
      for (char& c : id) {
        if (c == '/') c = '-';
      }
      std::ifstream file(path);
      std::stringstream text;
      text << file.rdbuf();
      if (auto entry = DesktopEntry::parse(id, text.str())) entries.push_back(std::move(*entry));
    }
  }
  catalog_ = std::make_shared<const DesktopCatalog>(std::move(entries));
  stamps_ = std::move(stamps);
}

}  // namespace wh::platform
