#pragma once
// Global hotkeys through the desktop portal's GlobalShortcuts interface (xdg-desktop-portal 1.16 and
// later, with a desktop that implements it: KDE Plasma 5.27+, GNOME 48+): the way to hotkeys on
// Wayland, where no program may grab keys itself. Registrations are gathered and bound together in
// one session (a new session whenever they change; the old one is closed), each under an id made
// from its key combination, so that a desktop that remembers bindings by id finds them again after
// a restart. Each shortcut asks for its combination as the preferred trigger; the desktop may give
// another, or refuse it (a combination it keeps for itself or another program): both are logged
// and kept for the diagnostics. Presses come as the portal's Activated signal.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QObject>
#include <QVariantMap>

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "core/hotkeys/Hotkeys.h"

namespace wh::platform {

class PortalHotkeys final : public QObject, public HotkeyService {
  Q_OBJECT
 public:
  // What the desktop made of one shortcut.
  struct Binding {
    std::string preferred;  // the trigger asked for, "CTRL+SHIFT+F5"
    std::string given;      // the trigger the desktop shows for it; empty when it refused
  };

  explicit PortalHotkeys(QDBusConnection bus = QDBusConnection::sessionBus());
  ~PortalHotkeys() override;

  // Whether the session bus has a desktop portal that offers GlobalShortcuts.
  static bool offered(const QDBusConnection& bus);
  // The combination as a freedesktop shortcut trigger ("CTRL+ALT+F5",
  // "LOGO+a"); nothing for a key outside the stored key codes' table.
  static std::optional<std::string> trigger(const HotkeyCombo& combo);

  std::optional<std::string> unavailableReason() const override;
  std::optional<std::string> limitation() const override { return std::nullopt; }
  void installHandler(Pressed pressed) override { pressed_ = std::move(pressed); }
  void installRefusedHandler(Refused refused) override { refused_ = std::move(refused); }
  // The status a refused shortcut is reported with.
  static constexpr int refusedByDesktop = -2;
  Registration registerKey(const HotkeyCombo& combo, std::uint32_t signature, std::uint32_t id) override;
  void unregisterKey(Handle handle) override;

  // The last bindings, by shortcut id.
  const std::map<std::string, Binding>& bindings() const { return bindings_; }
  // Called after each binding the desktop answered.
  std::function<void()> onBound;

 private slots:
  void onResponse(const QDBusMessage& message);
  void onActivated(const QDBusMessage& message);

 private:
  struct Key {
    HotkeyCombo combo;
    std::uint32_t signature;
    std::uint32_t id;
    std::string shortcut;  // its shortcut id
    std::string trigger;
  };
  // Asks `method` of the portal with a request of its own; `done` gets the Response.
  void request(const QString& method, QList<QVariant> arguments, QVariantMap options,
               std::function<void(uint response, const QVariantMap& results)> done);
  void scheduleBind();
  // A new session, then the shortcuts bound in it.
  void bind();
  void bindInSession();
  void bound(const QVariantMap& results);
  void closeSession();

  QDBusConnection bus_;
  bool offered_ = false;
  Pressed pressed_;
  Refused refused_;
  std::map<Handle, Key> keys_;
  Handle nextHandle_ = 1;
  bool bindScheduled_ = false;
  unsigned tokens_ = 0;
  QString session_;
  std::map<QString, std::function<void(uint, const QVariantMap&)>> requests_;  // by request path
  std::map<std::string, Binding> bindings_;
};

}  // namespace wh::platform
