#include "ui/tray/StatusNotifierItem.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDir>
#include <QImage>
#include <QtEndian>

#include "core/log/Log.h"

namespace wh::tray {
namespace {

constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kMenuPath = "/MenuBar";
// The sizes hosts draw tray icons at, from a 16-pixel panel to a large HiDPI one.
constexpr int kPixmapSizes[] = {16, 22, 24, 32, 48, 64};

SniPixmaps pixmapsOf(const QIcon& icon) {
  SniPixmaps pixmaps;
  if (icon.isNull()) return pixmaps;
  for (int size : kPixmapSizes) {
    QImage image = icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
    if (image.isNull()) continue;
    SniPixmap pixmap{image.width(), image.height(), {}};
    pixmap.argb.resize(static_cast<qsizetype>(image.sizeInBytes()));
    auto* out = reinterpret_cast<quint32*>(pixmap.argb.data());
    for (int y = 0; y < image.height(); ++y) {
      const auto* line = reinterpret_cast<const quint32*>(image.constScanLine(y));
      for (int x = 0; x < image.width(); ++x) *out++ = qToBigEndian(line[x]);
    }
    pixmaps.push_back(std::move(pixmap));
  }
  return pixmaps;
}

}  // namespace

StatusNotifierItem::StatusNotifierItem(QString id, QString category, QObject* parent)
    : QObject(parent),
      id_(std::move(id)),
      category_(std::move(category)),
      // Unique while the item lives, and the item closes its connection before it goes.
      connectionName_(QStringLiteral("wrenhaven-tray-item-%1").arg(reinterpret_cast<quintptr>(this), 0, 16)),
      watcher_(QString::fromLatin1(watcherService), QDBusConnection::sessionBus(),
               QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration) {
  qDBusRegisterMetaType<SniPixmap>();
  qDBusRegisterMetaType<SniPixmaps>();
  qDBusRegisterMetaType<SniToolTip>();
  DBusMenu::registerTypes();
  new StatusNotifierItemAdaptor(*this);
  new DBusMenuAdaptor(menu_);
  // A watcher that starts (or starts again) gets the item at once.
  watcherSeen_ = watcherPresent();
  connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, this, [this] {
    watcherSeen_ = true;
    emit watcherChanged(true);
    if (visible_) registerWithWatcher();
  });
  connect(&watcher_, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
    watcherSeen_ = false;
    emit watcherChanged(false);
    if (!registered_) return;
    registered_ = false;
    emit registeredChanged(false);
  });
}

StatusNotifierItem::~StatusNotifierItem() { disconnectFromBus(); }

bool StatusNotifierItem::watcherPresent() {
  const QDBusConnection bus = QDBusConnection::sessionBus();
  return bus.isConnected() && bus.interface()->isServiceRegistered(QString::fromLatin1(watcherService));
}

void StatusNotifierItem::setLook(const Look& look) {
  const bool icon = look.iconName != look_.iconName || look.iconThemePath != look_.iconThemePath ||
                    look.pixmaps.cacheKey() != look_.pixmaps.cacheKey();
  const bool title = look.title != look_.title;
  const bool toolTip = look.toolTip != look_.toolTip || title;
  look_ = look;
  if (icon) {
    pixmaps_ = pixmapsOf(look_.pixmaps);
    emit NewIcon();
  }
  if (title) emit NewTitle();
  if (toolTip) emit NewToolTip();
}

void StatusNotifierItem::setMenu(ui::Menu menu) {
  hasMenu_ = !menu.empty();
  menu_.setMenu(std::move(menu));
}

void StatusNotifierItem::setVisible(bool visible) {
  if (visible == visible_) return;
  visible_ = visible;
  if (visible_) {
    connectToBus();
    if (watcherPresent()) registerWithWatcher();
  } else {
    disconnectFromBus();
  }
}

void StatusNotifierItem::connectToBus() {
  connection_ =
      std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_));
  if (!connection_->isConnected()) {
    Log::error("tray item " + id_.toStdString() +
               ": no session bus: " + connection_->lastError().message().toStdString());
    return;
  }
  connection_->registerObject(QString::fromLatin1(kItemPath), this, QDBusConnection::ExportAdaptors);
  connection_->registerObject(QString::fromLatin1(kMenuPath), &menu_, QDBusConnection::ExportAdaptors);
}

void StatusNotifierItem::disconnectFromBus() {
  if (!connection_) return;
  connection_.reset();
  QDBusConnection::disconnectFromBus(connectionName_);
  if (registered_) {
    registered_ = false;
    emit registeredChanged(false);
  }
}

void StatusNotifierItem::registerWithWatcher() {
  if (!connection_ || !connection_->isConnected()) return;
  QDBusMessage call =
      QDBusMessage::createMethodCall(QString::fromLatin1(watcherService), QStringLiteral("/StatusNotifierWatcher"),
                                     QString::fromLatin1(watcherService), QStringLiteral("RegisterStatusNotifierItem"));
  call << connection_->baseService();
  auto* pending = new QDBusPendingCallWatcher(connection_->asyncCall(call), this);
  connect(pending, &QDBusPendingCallWatcher::finished, this, [this, pending] {
    pending->deleteLater();
    if (pending->isError()) {
      Log::error("tray item " + id_.toStdString() + " not registered: " + pending->error().message().toStdString());
      return;
    }
    if (!visible_ || registered_) return;
    registered_ = true;
    emit registeredChanged(true);
  });
}

StatusNotifierItemAdaptor::StatusNotifierItemAdaptor(StatusNotifierItem& item)
    : QDBusAbstractAdaptor(&item), item_(item) {
  setAutoRelaySignals(true);
}

QString StatusNotifierItemAdaptor::iconThemePath() const {
  if (!item_.look().iconThemePath.isEmpty()) return item_.look().iconThemePath;
  // The icons installed beside the program (share/icons next to bin/), for installs outside the
  // folders the desktop searches.
  const QDir icons(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/icons"));
  return icons.exists() ? icons.canonicalPath() : QString();
}

SniToolTip StatusNotifierItemAdaptor::toolTip() const {
  return {item_.look().iconName, {}, item_.look().title, item_.look().toolTip};
}

QDBusObjectPath StatusNotifierItemAdaptor::menu() const {
  return QDBusObjectPath(QString::fromLatin1(item_.hasMenu() ? kMenuPath : "/NO_DBUSMENU"));
}

QDBusArgument& operator<<(QDBusArgument& argument, const SniPixmap& pixmap) {
  return writeStructure(argument, pixmap.width, pixmap.height, pixmap.argb);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, SniPixmap& pixmap) {
  return readStructure(argument, pixmap.width, pixmap.height, pixmap.argb);
}

QDBusArgument& operator<<(QDBusArgument& argument, const SniToolTip& toolTip) {
  return writeStructure(argument, toolTip.iconName, toolTip.pixmaps, toolTip.title, toolTip.text);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, SniToolTip& toolTip) {
  return readStructure(argument, toolTip.iconName, toolTip.pixmaps, toolTip.title, toolTip.text);
}

}  // namespace wh::tray
