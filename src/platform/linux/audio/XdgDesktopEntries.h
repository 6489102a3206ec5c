#pragma once
// The installed desktop entries: every *.desktop file under the "applications" folder of
// $XDG_DATA_HOME and of each $XDG_DATA_DIRS folder. A file's id is its path below that folder with
// "/" turned into "-" and without ".desktop"; the first folder that holds an id wins. The catalog
// is read again when one of the folders changes (a file added, removed or renamed in it).

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "core/audio/AppGrouping.h"

namespace wh::platform {

class XdgDesktopEntries final : public DesktopEntries {
 public:
  // The "applications" folders, most important first.
  explicit XdgDesktopEntries(std::vector<std::filesystem::path> folders);
  XdgDesktopEntries() : XdgDesktopEntries(standardFolders()) {}

  // $XDG_DATA_HOME/applications, then <dir>/applications for each of $XDG_DATA_DIRS
  // (/usr/local/share:/usr/share when unset).
  static std::vector<std::filesystem::path> standardFolders();

  std::shared_ptr<const DesktopCatalog> catalog() override;

 private:
  using Stamps = std::map<std::filesystem::path, std::int64_t>;
  Stamps stampsNow() const;
  void scan();

  std::vector<std::filesystem::path> folders_;
  std::mutex mutex_;
  std::shared_ptr<const DesktopCatalog> catalog_;
  Stamps stamps_;  // modification times of every folder read, -1 for a missing one
};

}  // namespace wh::platform
