#include "platform/linux/hotkeys/PortalHotkeys.h"

#include <xkbcommon/xkbcommon.h>

#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QTimer>

#include <array>
#include <utility>
#include <vector>

#include "core/log/Log.h"
#include "platform/linux/hotkeys/X11Hotkeys.h"

namespace wh::platform {
namespace {

const QString kDesktop = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kShortcuts = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");
const QString kSession = QStringLiteral("org.freedesktop.portal.Session");

using Shortcut = QPair<QString, QVariantMap>;
using Shortcuts = QList<Shortcut>;

// In the order freedesktop shortcut triggers write them.
constexpr std::array<std::pair<std::uint32_t, const char*>, 4> kModifiers{{{HotkeyModifier::control, "CTRL"},
                                                                           {HotkeyModifier::option, "ALT"},
                                                                           {HotkeyModifier::shift, "SHIFT"},
                                                                           {HotkeyModifier::command, "LOGO"}}};

std::string shortcutId(const HotkeyCombo& combo) {
  return "hotkey-" + std::to_string(combo.keyCode) + "-" + std::to_string(combo.modifiers);
}

}  // namespace

PortalHotkeys::PortalHotkeys(QDBusConnection bus) : bus_(std::move(bus)) {
  qDBusRegisterMetaType<Shortcut>();
  qDBusRegisterMetaType<Shortcuts>();
  offered_ = offered(bus_);
  if (!offered_) return;
  bus_.connect(kDesktop, kPath, kShortcuts, QStringLiteral("Activated"), this, SLOT(onActivated(QDBusMessage)));
}

PortalHotkeys::~PortalHotkeys() { closeSession(); }

bool PortalHotkeys::offered(const QDBusConnection& bus) {
  if (!bus.isConnected()) return false;
  QDBusMessage get = QDBusMessage::createMethodCall(kDesktop, kPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                    QStringLiteral("Get"));
  get << kShortcuts << QStringLiteral("version");
  // The portal starts on demand; a desktop without one answers at once that nobody provides it.
  const QDBusReply<QDBusVariant> version = bus.call(get, QDBus::Block, 3000);
  return version.isValid() && version.value().variant().toUInt() >= 1;
}

std::optional<std::string> PortalHotkeys::trigger(const HotkeyCombo& combo) {
  const auto symbol = X11Hotkeys::keySymbol(combo.keyCode);
  if (!symbol) return std::nullopt;
  std::array<char, 64> name{};
  if (xkb_keysym_get_name(*symbol, name.data(), name.size()) <= 0) return std::nullopt;
  std::string text;
  for (const auto& [bit, modifier] : kModifiers) {
    if ((combo.modifiers & bit) != 0) text += std::string(modifier) + "+";
  }
  return text + name.data();
}

std::optional<std::string> PortalHotkeys::unavailableReason() const {
  if (offered_) return std::nullopt;
  return "the desktop offers no global shortcuts (xdg-desktop-portal's GlobalShortcuts, in KDE Plasma 5.27 and "
         "GNOME 48 or later)";
}

HotkeyService::Registration PortalHotkeys::registerKey(const HotkeyCombo& combo, std::uint32_t signature,
                                                       std::uint32_t id) {
  if (!offered_) return {std::nullopt, unknownKey};
  const auto wanted = trigger(combo);
  if (!wanted) return {std::nullopt, unknownKey};
  const Handle handle = nextHandle_++;
  keys_[handle] = {combo, signature, id, shortcutId(combo), *wanted};
  scheduleBind();
  return {handle, 0};
}

void PortalHotkeys::unregisterKey(Handle handle) {
  if (keys_.erase(handle) > 0) scheduleBind();
}

void PortalHotkeys::scheduleBind() {
  // Registrations come in runs (all of them after a settings change): bind them once.
  if (std::exchange(bindScheduled_, true)) return;
  QTimer::singleShot(0, this, [this] {
    bindScheduled_ = false;
    bind();
  });
}

void PortalHotkeys::request(const QString& method, QList<QVariant> arguments, QVariantMap options,
                            std::function<void(uint, const QVariantMap&)> done) {
  // The request's path is known before the call, so that its answer cannot come before the
  // subscription to it.
  const QString token = QStringLiteral("wrenhaven%1").arg(++tokens_);
  const QString sender = bus_.baseService().mid(1).replace('.', '_');
  const QString path = kPath + QStringLiteral("/request/") + sender + "/" + token;
  options.insert(QStringLiteral("handle_token"), token);
  arguments.push_back(options);
  requests_[path] = std::move(done);
  bus_.connect(kDesktop, path, kRequest, QStringLiteral("Response"), this, SLOT(onResponse(QDBusMessage)));
  QDBusMessage call = QDBusMessage::createMethodCall(kDesktop, kPath, kShortcuts, method);
  call.setArguments(arguments);
  auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
  connect(pending, &QDBusPendingCallWatcher::finished, this, [this, pending, path, method] {
    pending->deleteLater();
    if (!pending->isError()) return;
    Log::error("hotkeys: the desktop portal refused " + method.toStdString() + ": " +
               pending->error().message().toStdString());
    bus_.disconnect(kDesktop, path, kRequest, QStringLiteral("Response"), this, SLOT(onResponse(QDBusMessage)));
    requests_.erase(path);
  });
}

void PortalHotkeys::onResponse(const QDBusMessage& message) {
  const QString path = message.path();
  bus_.disconnect(kDesktop, path, kRequest, QStringLiteral("Response"), this, SLOT(onResponse(QDBusMessage)));
  auto found = requests_.find(path);
  if (found == requests_.end() || message.arguments().size() < 2) return;
  auto done = std::move(found->second);
  requests_.erase(found);
  done(message.arguments().at(0).toUInt(), qdbus_cast<QVariantMap>(message.arguments().at(1)));
}

void PortalHotkeys::bind() {
  closeSession();
  if (keys_.empty()) return;
  const QVariantMap options{{QStringLiteral("session_handle_token"), QStringLiteral("wrenhaven%1").arg(++tokens_)}};
  request(QStringLiteral("CreateSession"), {}, options, [this](uint response, const QVariantMap& results) {
    if (response != 0) {
      Log::error("hotkeys: the desktop portal made no shortcuts session (answer " + std::to_string(response) + ")");
      return;
    }
    session_ = results.value(QStringLiteral("session_handle")).toString();
    bindInSession();
  });
}

void PortalHotkeys::bindInSession() {
  Shortcuts shortcuts;
  std::map<std::string, bool> listed;
  for (const auto& [handle, key] : keys_) {
    if (std::exchange(listed[key.shortcut], true)) continue;
    const QVariantMap properties{{QStringLiteral("description"), QStringLiteral("Connect or disconnect headphones")},
                                 {QStringLiteral("preferred_trigger"), QString::fromStdString(key.trigger)}};
    shortcuts.push_back({QString::fromStdString(key.shortcut), properties});
  }
  const QList<QVariant> arguments{QVariant::fromValue(QDBusObjectPath(session_)), QVariant::fromValue(shortcuts),
                                  QString()};
  request(QStringLiteral("BindShortcuts"), arguments, {}, [this](uint answer, const QVariantMap& results) {
    if (answer != 0) Log::info("hotkeys: the shortcuts were not bound (answer " + std::to_string(answer) + ")");
    bound(results);
  });
}

void PortalHotkeys::bound(const QVariantMap& results) {
  Shortcuts given;
  results.value(QStringLiteral("shortcuts")).value<QDBusArgument>() >> given;
  bindings_.clear();
  for (const auto& [handle, key] : keys_) bindings_[key.shortcut] = {key.trigger, {}};
  for (const auto& [shortcut, properties] : given) {
    auto found = bindings_.find(shortcut.toStdString());
    if (found == bindings_.end()) continue;
    found->second.given = properties.value(QStringLiteral("trigger_description")).toString().toStdString();
  }
  // Refused keys are reported (after the loop: the handler unregisters them).
  std::vector<std::uint32_t> refused;
  for (const auto& [handle, key] : keys_) {
    if (bindings_[key.shortcut].given.empty()) refused.push_back(key.id);
  }
  for (const auto& [shortcut, binding] : bindings_) {
    if (binding.given.empty()) {
      Log::info("hotkeys: " + binding.preferred + " is taken: the desktop refused it");
    } else if (binding.given != binding.preferred) {
      Log::info("hotkeys: the desktop bound " + binding.preferred + " to " + binding.given);
    }
  }
  if (refused_) {
    for (const auto id : refused) refused_(id, refusedByDesktop);
  }
  if (onBound) onBound();
}

void PortalHotkeys::closeSession() {
  if (session_.isEmpty()) return;
  bus_.asyncCall(QDBusMessage::createMethodCall(kDesktop, session_, kSession, QStringLiteral("Close")));
  session_.clear();
}

void PortalHotkeys::onActivated(const QDBusMessage& message) {
  // (session_handle o, shortcut_id s, timestamp t, options a{sv})
  const QList<QVariant> arguments = message.arguments();
  if (arguments.size() < 2 || !pressed_) return;
  if (arguments.at(0).value<QDBusObjectPath>().path() != session_) return;
  const std::string shortcut = arguments.at(1).toString().toStdString();
  for (const auto& [handle, key] : keys_) {
    if (key.shortcut == shortcut) pressed_(key.signature, key.id);
  }
}

}  // namespace wh::platform
