#pragma once
// One tray item over StatusNotifierItem (the freedesktop/KDE protocol that GNOME's AppIndicator
// extension, KDE Plasma, waybar and Xfce's tray speak), made here rather than through
// QSystemTrayIcon for what that cannot do: each item has an id of its own (desktops remember
// per-item visibility by it), an item registers whenever a StatusNotifierWatcher appears (also one
// that starts after the agent), Activate's coordinates reach the caller, and the icon is named from
// the icon theme so that the shell can draw it in its own colours. Each item has its own bus
// connection, registered with the watcher under its unique name; hiding the item closes that
// connection, which the watcher sees as the item leaving.

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QIcon>
#include <QObject>
#include <QPoint>

#include <memory>

#include "core/ui/MenuEntry.h"
#include "ui/tray/DBusMenu.h"

namespace wh::tray {

// (iiay): an ARGB32 image in network byte order.
struct SniPixmap {
  int width = 0;
  int height = 0;
  QByteArray argb;
};
using SniPixmaps = QList<SniPixmap>;
// (sa(iiay)ss)
struct SniToolTip {
  QString iconName;
  SniPixmaps pixmaps;
  QString title;
  QString text;
};

class StatusNotifierItem final : public QObject {
  Q_OBJECT
 public:
  static constexpr const char* watcherService = "org.kde.StatusNotifierWatcher";

  struct Look {
    QString iconName;       // from the icon theme; empty: the pixmaps alone
    QString iconThemePath;  // a folder to look for `iconName` in before the theme
    QIcon pixmaps;     // drawn here; hosts that cannot find the name show these
    QString title;
    QString toolTip;
  };

  // `id` stays the same from one session to the next; `category` is one of the protocol's
  // ("ApplicationStatus", "Hardware", ...).
  StatusNotifierItem(QString id, QString category, QObject* parent = nullptr);
  ~StatusNotifierItem() override;

  // Whether a watcher is on the session bus now.
  static bool watcherPresent();

  void setLook(const Look& look);
  // The menu the host shows on a secondary click; an empty menu exports none.
  void setMenu(ui::Menu menu);
  void setVisible(bool visible);
  bool isVisible() const { return visible_; }
  // The host shows the menu on a plain click too.
  void setItemIsMenu(bool only) { itemIsMenu_ = only; }
  bool itemIsMenu() const { return itemIsMenu_; }
  // Registered with a watcher now.
  bool isRegistered() const { return registered_; }
  // A watcher is on the bus (the item registers with it when visible).
  bool watcherSeen() const { return watcherSeen_; }

  // What the adaptor answers.
  const QString& id() const { return id_; }
  const QString& category() const { return category_; }
  const Look& look() const { return look_; }
  SniPixmaps pixmaps() const { return pixmaps_; }
  bool hasMenu() const { return hasMenu_; }
  void activate(QPoint at) { emit activated(at); }
  void secondaryActivate(QPoint at) { emit secondaryActivated(at); }
  void contextMenu(QPoint at) { emit menuRequested(at); }

 signals:
  // A plain click (with the host's screen coordinates of it, or 0,0 where the host has none).
  void activated(QPoint at);
  // A middle click.
  void secondaryActivated(QPoint at);
  // The host asks the item to show its own menu (hosts that draw the exported menu do not).
  void menuRequested(QPoint at);
  void registeredChanged(bool registered);
  void watcherChanged(bool present);
  // For the adaptor's relay.
  void NewIcon();
  void NewTitle();
  void NewToolTip();
  void NewStatus(const QString& status);

 private:
  void connectToBus();
  void disconnectFromBus();
  void registerWithWatcher();

  QString id_;
  QString category_;
  Look look_;
  SniPixmaps pixmaps_;
  bool hasMenu_ = false;
  bool itemIsMenu_ = false;
  bool visible_ = false;
  bool registered_ = false;
  bool watcherSeen_ = false;
  QString connectionName_;
  std::unique_ptr<QDBusConnection> connection_;
  DBusMenu menu_;
  QDBusServiceWatcher watcher_;
};

// The org.kde.StatusNotifierItem interface of an item.
class StatusNotifierItemAdaptor final : public QDBusAbstractAdaptor {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
  Q_PROPERTY(QString Category READ category)
  Q_PROPERTY(QString Id READ id)
  Q_PROPERTY(QString Title READ title)
  Q_PROPERTY(QString Status READ status)
  Q_PROPERTY(int WindowId READ windowId)
  Q_PROPERTY(QString IconThemePath READ iconThemePath)
  Q_PROPERTY(QString IconName READ iconName)
  Q_PROPERTY(wh::tray::SniPixmaps IconPixmap READ iconPixmap)
  Q_PROPERTY(QString OverlayIconName READ empty)
  Q_PROPERTY(wh::tray::SniPixmaps OverlayIconPixmap READ noPixmaps)
  Q_PROPERTY(QString AttentionIconName READ empty)
  Q_PROPERTY(wh::tray::SniPixmaps AttentionIconPixmap READ noPixmaps)
  Q_PROPERTY(QString AttentionMovieName READ empty)
  Q_PROPERTY(wh::tray::SniToolTip ToolTip READ toolTip)
  Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
  Q_PROPERTY(QDBusObjectPath Menu READ menu)
 public:
  explicit StatusNotifierItemAdaptor(StatusNotifierItem& item);

  QString category() const { return item_.category(); }
  QString id() const { return item_.id(); }
  QString title() const { return item_.look().title; }
  QString status() const { return QStringLiteral("Active"); }
  int windowId() const { return 0; }
  QString iconThemePath() const;
  QString iconName() const { return item_.look().iconName; }
  SniPixmaps iconPixmap() const { return item_.pixmaps(); }
  QString empty() const { return {}; }
  SniPixmaps noPixmaps() const { return {}; }
  SniToolTip toolTip() const;
  bool itemIsMenu() const { return item_.itemIsMenu() && item_.hasMenu(); }
  QDBusObjectPath menu() const;

 public slots:
  void Activate(int x, int y) { item_.activate({x, y}); }
  void SecondaryActivate(int x, int y) { item_.secondaryActivate({x, y}); }
  void ContextMenu(int x, int y) { item_.contextMenu({x, y}); }
  void Scroll(int, const QString&) {}
  void ProvideXdgActivationToken(const QString&) {}

 signals:
  void NewIcon();
  void NewTitle();
  void NewToolTip();
  void NewStatus(const QString& status);

 private:
  StatusNotifierItem& item_;
};

QDBusArgument& operator<<(QDBusArgument& argument, const SniPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, SniPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const SniToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, SniToolTip& toolTip);

}  // namespace wh::tray

Q_DECLARE_METATYPE(wh::tray::SniPixmap)
Q_DECLARE_METATYPE(wh::tray::SniToolTip)
