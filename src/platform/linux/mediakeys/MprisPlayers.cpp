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

std::string lowerCased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
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
  if (const auto music = defaultMusicPlayer()) identities_.music.insert(identities_.music.begin(), *music);
  ownerRelay_ = std::make_unique<DBusSignalRelay>(
      bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      QStringList(), [this](const QDBusMessage& message) {
        const auto arguments = message.arguments();
        if (arguments.size() == 3) ownerChanged(arguments[0].toString(), arguments[2].toString());
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

void MprisPlayers::ownerChanged(const QString& name, const QString& owner) {
  if (!name.startsWith(namePrefix)) return;
  {
    std::lock_guard lock(mutex_);
    if (owner.isEmpty()) {
      names_.erase(name);
      return;
    }
    names_.emplace(name, QString());
  }
  learnDesktopEntry(name);
}

void MprisPlayers::learnDesktopEntry(const QString& name) {
  auto message = QDBusMessage::createMethodCall(name, objectPath, "org.freedesktop.DBus.Properties", "Get");
  message << QString("org.mpris.MediaPlayer2") << QString("DesktopEntry");
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message, timeoutMs_), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, name](QDBusPendingCallWatcher* call) {
    const QDBusReply<QDBusVariant> reply = *call;
    if (reply.isValid()) {
      std::lock_guard lock(mutex_);
      if (auto found = names_.find(name); found != names_.end()) found->second = reply.value().variant().toString();
    }
    call->deleteLater();
  });
}

std::optional<QString> MprisPlayers::busName(ScriptablePlayer player) const {
  std::lock_guard lock(mutex_);
  const auto& ids = identities_.ids(player);
  for (const auto& [name, desktopEntry] : names_) {
    const std::string own = lowerCased(name.mid(int(std::char_traits<char>::length(namePrefix))).section('.', 0, 0).toStdString());
    for (const auto& id : ids) {
      if (desktopEntry.toStdString() == id || lowerCased(id) == own) return name;
    }
  }
  return std::nullopt;
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
