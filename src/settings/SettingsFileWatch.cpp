#include "settings/SettingsFileWatch.h"

#include "core/log/Log.h"

namespace wh::settingsapp {

SettingsFileWatch::SettingsFileWatch(std::filesystem::path file, std::function<void()> changed)
    : file_(std::move(file)), changed_(std::move(changed)) {
  std::error_code error;
  std::filesystem::create_directories(file_.parent_path(), error);
  if (!watcher_.addPath(QString::fromStdString(file_.parent_path().string()))) {
    Log::error("cannot follow the settings folder " + file_.parent_path().string());
  }
  QObject::connect(&watcher_, &QFileSystemWatcher::fileChanged, &watcher_, [this] { follow(); });
  QObject::connect(&watcher_, &QFileSystemWatcher::directoryChanged, &watcher_, [this] { follow(); });
  follow();
}

// A file replaced by another is no longer watched: the new one is, from here on.
void SettingsFileWatch::follow() {
  const QString path = QString::fromStdString(file_.string());
  if (std::filesystem::exists(file_) && !watcher_.files().contains(path)) watcher_.addPath(path);
  changed_();
}

}  // namespace wh::settingsapp
