#pragma once
// The music players over MPRIS on the session bus. A player is running when an
// org.mpris.MediaPlayer2.* name that belongs to it has an owner: the name's DesktopEntry property
// or its own last part (before any ".instance…") is one of the player's ids. Spotify is known by
// its ids; Music is the desktop's default player of audio files (mimeapps.list, else
// mimeinfo.cache), read again whenever one of those files changes. Commands are blocking calls
// with a time limit, made on the players' queue.

#include <QDBusConnection>
#include <QFileSystemWatcher>
#include <QObject>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "core/audio/AppGrouping.h"
#include "core/mediakeys/Players.h"
#include "platform/linux/dbus/DBusSignalRelay.h"
#include "platform/linux/mediakeys/MprisNames.h"

namespace wh::platform {

class MprisPlayers final : public QObject, public PlayerControl {
 public:
  static constexpr int callTimeoutMs = 2000;

  // `configFolders` and `applicationFolders` are where mimeapps.list and mimeinfo.cache are read,
  // most important first.
  MprisPlayers(DesktopEntries& desktop, std::vector<std::filesystem::path> configFolders,
               std::vector<std::filesystem::path> applicationFolders,
               QDBusConnection bus = QDBusConnection::sessionBus(), int timeoutMs = callTimeoutMs);
  // The user's folders ($XDG_CONFIG_HOME, $XDG_CONFIG_DIRS; the desktop entries' folders).
  explicit MprisPlayers(DesktopEntries& desktop);

  PlayerIdentities identities() const override;
  bool isRunning(ScriptablePlayer player) const override;
  bool isInstalled(const std::string& appID) const override;
  std::optional<std::string> perform(ScriptablePlayer player, const PlayerVerb& verb) override;
  std::optional<std::string> launch(const std::string& appID) override;
  void setChangeHandler(std::function<void()> changed) override { changed_ = std::move(changed); }

  // The desktop's default player of audio files, if any is installed.
  std::optional<std::string> defaultMusicPlayer() const;

 private:
  void ownerChanged(const QString& name, const QString& owner);
  // Reads the default music player again and watches the files it came from.
  void followDefaultMusicPlayer();
  void changed() const;
  void learnDesktopEntry(const QString& name);
  std::optional<QString> busName(ScriptablePlayer player) const;

  DesktopEntries& desktop_;
  std::vector<std::filesystem::path> configFolders_, applicationFolders_;
  QDBusConnection bus_;
  int timeoutMs_;
  mutable std::mutex mutex_;
  MprisNames names_;
  PlayerIdentities identities_;
  std::unique_ptr<DBusSignalRelay> ownerRelay_;
  QFileSystemWatcher defaultsWatcher_;
  std::function<void()> changed_;
};

}  // namespace wh::platform
