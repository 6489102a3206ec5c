#pragma once
// Calls back whenever the settings file may have changed: written by this program or the agent,
// or edited by hand, in place or replaced by a new file (as editors and the store itself do).

#include <QFileSystemWatcher>

#include <filesystem>
#include <functional>

namespace wh::settingsapp {

class SettingsFileWatch {
 public:
  // Makes the file's folder when it is missing, so that the first file written there is seen.
  SettingsFileWatch(std::filesystem::path file, std::function<void()> changed);

 private:
  void follow();

  std::filesystem::path file_;
  std::function<void()> changed_;
  QFileSystemWatcher watcher_;
};

}  // namespace wh::settingsapp
