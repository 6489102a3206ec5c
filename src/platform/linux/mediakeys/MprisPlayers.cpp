#include "platform/linux/mediakeys/MprisPlayers.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QDBusVariant>
#include <QProcess>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/linux/audio/XdgDesktopEntries.h"
#include "platform/linux/settings/XdgPaths.h"

namespace wh::platform {

namespace {

constexpr const char* objectPath = "/org/mpris/MediaPlayer2";
constexpr const char* playerInterface = "org.mpris.MediaPlayer2.Player";
// The kinds of audio file whose default application is the music player, most telling first.
const std::vector<std::string> audioTypes{"audio/mpeg", "audio/flac", "audio/x-vorbis+ogg", "audio/ogg"};

std::string readText(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::filesystem::path> configFolders() {
  std::vector<std::filesystem::path> folders{configHome()};
  const char* dirs = std::getenv("XDG_CONFIG_DIRS");
  std::stringstream list(dirs && *dirs ? dirs : "/etc/xdg");
  for (std::string dir; std::getline(list, dir, ':');) {
    if (!dir.empty()) folders.emplace_back(dir);
  }
  return folders;
}

}  // namespace

MprisPlayers::MprisPlayers(DesktopEntries& desktop) : MprisPlayers(desktop, configFolders(), XdgDesktopEntries::standardFolders()) {}

MprisPlayers::MprisPlayers(DesktopEntries& desktop, std::vector<std::filesystem::path> configFolders,
                           std::vector<std::filesystem::path> applicationFolders, QDBusConnection bus, int timeoutMs)
    : desktop_(desktop),
      configFolders_(std::move(configFolders)),
      applicationFolders_(std::move(applicationFolders)),
      bus_(std::move(bus)),
      timeoutMs_(timeoutMs) {
  // A file replaced by a new one (as desktops save these) shows in its folder; one written in
  // place shows on the file itself, whose watch a replacement ends: both are watched again each time.
  connect(&defaultsWatcher_, &QFileSystemWatcher::directoryChanged, this, [this] { followDefaultMusicPlayer(); });
  connect(&defaultsWatcher_, &QFileSystemWatcher::fileChanged, this, [this] { followDefaultMusicPlayer(); });
  followDefaultMusicPlayer();
  ownerRelay_ = std::make_unique<DBusSignalRelay>(
      bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      QStringList(), [this](const QDBusMessage& message) {
        if (const auto change = MprisNames::ownerChange(message.arguments())) ownerChanged(change->first, change->second);
      });
  auto* watcher = new QDBusPendingCallWatcher(
      bus_.asyncCall(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                    "org.freedesktop.DBus", "ListNames")),
      this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
    const QDBusReply<QStringList> reply = *call;
    if (reply.isValid()) {
      // Every listed name has an owner; which one does not matter here.
      for (const auto& name : reply.value()) ownerChanged(name, name);
    }
    call->deleteLater();
  });
}

std::optional<std::string> MprisPlayers::defaultMusicPlayer() const {
  const auto catalog = desktop_.catalog();
  auto firstInstalled = [&](const std::filesystem::path& file, const char* group) -> std::optional<std::string> {
    const std::string text = readText(file);
    for (const auto& type : audioTypes) {
      for (const auto& id : listedDesktopIDs(text, group, type)) {
        if (catalog->byID(id)) return id;
      }
    }
    return std::nullopt;
  };
  for (const auto& folder : configFolders_) {
    if (auto id = firstInstalled(folder / "mimeapps.list", "Default Applications")) return id;
  }
  for (const auto& folder : applicationFolders_) {
    if (auto id = firstInstalled(folder / "mimeapps.list", "Default Applications")) return id;
  }
  for (const auto& folder : applicationFolders_) {
    if (auto id = firstInstalled(folder / "mimeinfo.cache", "MIME Cache")) return id;
  }
  return std::nullopt;
}

void MprisPlayers::followDefaultMusicPlayer() {
  QStringList watched;
  for (const auto* folders : {&configFolders_, &applicationFolders_}) {
    for (const auto& folder : *folders) {
      watched << QString::fromStdString(folder.string());
      for (const char* file : {"mimeapps.list", "mimeinfo.cache"}) {
        if (std::filesystem::exists(folder / file)) watched << QString::fromStdString((folder / file).string());
      }
    }
  }
  const QStringList before = defaultsWatcher_.files() + defaultsWatcher_.directories();
  if (!before.isEmpty()) defaultsWatcher_.removePaths(before);
  // Folders that do not exist are not watched; that they are made later goes unseen.
  defaultsWatcher_.addPaths(watched);

  PlayerIdentities identities;
  if (const auto music = defaultMusicPlayer()) identities.music.insert(identities.music.begin(), *music);
  {
    std::lock_guard lock(mutex_);
    if (identities.music == identities_.music) return;
    identities_ = std::move(identities);
  }
  changed();
}

void MprisPlayers::changed() const {
  if (changed_) changed_();
}

void MprisPlayers::ownerChanged(const QString& name, const QString& owner) {
  if (!name.startsWith(MprisNames::prefix)) return;
  bool owned = false;
  {
    std::lock_guard lock(mutex_);
    owned = names_.ownerChanged(name, owner);
  }
  if (owned) learnDesktopEntry(name);
  changed();
}

void MprisPlayers::learnDesktopEntry(const QString& name) {
  auto message = QDBusMessage::createMethodCall(name, objectPath, "org.freedesktop.DBus.Properties", "Get");
  message << QString("org.mpris.MediaPlayer2") << QString("DesktopEntry");
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message, timeoutMs_), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, name](QDBusPendingCallWatcher* call) {
    const QDBusReply<QDBusVariant> reply = *call;
    if (reply.isValid()) {
      {
        std::lock_guard lock(mutex_);
        names_.desktopEntry(name, reply.value().variant());
      }
      changed();
    }
    call->deleteLater();
  });
}

std::optional<QString> MprisPlayers::busName(ScriptablePlayer player) const {
  std::lock_guard lock(mutex_);
  return names_.find(identities_.ids(player));
}

PlayerIdentities MprisPlayers::identities() const {
  std::lock_guard lock(mutex_);
  return identities_;
}

bool MprisPlayers::isRunning(ScriptablePlayer player) const { return busName(player).has_value(); }

bool MprisPlayers::isInstalled(const std::string& appID) const { return desktop_.catalog()->byID(appID) != nullptr; }

std::optional<std::string> MprisPlayers::perform(ScriptablePlayer player, const PlayerVerb& verb) {
  const auto name = busName(player);
  if (!name) return "the player is not running";
  auto message = QDBusMessage::createMethodCall(*name, objectPath, playerInterface, QString::fromStdString(verb.method));
  if (verb.method == "Seek") message << qlonglong(verb.offsetMicroseconds);
  const QDBusMessage reply = bus_.call(message, QDBus::Block, timeoutMs_);
  if (reply.type() != QDBusMessage::ErrorMessage) return std::nullopt;
  return (reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage()).toStdString();
}

std::optional<std::string> MprisPlayers::launch(const std::string& appID) {
  const auto catalog = desktop_.catalog();
  const DesktopEntry* entry = catalog->byID(appID);
  if (!entry) return "no desktop entry";
  QStringList arguments;
  for (const auto& argument : execArguments(entry->exec)) {
    // Field codes stand for files and URLs, of which there are none here.
    if (argument.size() == 2 && argument[0] == '%') continue;
    arguments << QString::fromStdString(argument);
  }
  if (arguments.isEmpty()) return "the desktop entry starts nothing";
  const QString program = arguments.takeFirst();
  if (!QProcess::startDetached(program, arguments)) return "could not start " + program.toStdString();
  return std::nullopt;
}

}  // namespace wh::platform
