#pragma once
// A menu that the desktop's tray draws itself: the entries of a ui::Menu exported over
// com.canonical.dbusmenu (version 3), which StatusNotifierItem hosts (GNOME's AppIndicator
// extension, KDE Plasma, waybar) read from the item's "Menu" object. Entry 0 is the root; the
// others are numbered in the order they appear, and every new menu is a new revision of the layout.

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusVariant>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <vector>

#include "core/ui/MenuEntry.h"

namespace wh::tray {

// A D-Bus structure of `fields`, written or read in order.
template <class... Fields>
QDBusArgument& writeStructure(QDBusArgument& argument, const Fields&... fields) {
  argument.beginStructure();
  (argument << ... << fields);
  argument.endStructure();
  return argument;
}
template <class... Fields>
const QDBusArgument& readStructure(const QDBusArgument& argument, Fields&... fields) {
  argument.beginStructure();
  (argument >> ... >> fields);
  argument.endStructure();
  return argument;
}

// One entry and its children, as GetLayout answers: (ia{sv}av).
struct DBusMenuLayout {
  int id = 0;
  QVariantMap properties;
  QList<DBusMenuLayout> children;
};
// One entry's properties: (ia{sv}).
struct DBusMenuItem {
  int id = 0;
  QVariantMap properties;
};
// An event of EventGroup: (isvu).
struct DBusMenuEvent {
  int id = 0;
  QString eventId;
  QDBusVariant data;
  uint timestamp = 0;
};
// Property names removed from an entry: (ias).
struct DBusMenuRemoved {
  int id = 0;
  QStringList names;
};

class DBusMenu final : public QObject {
  Q_OBJECT
 public:
  explicit DBusMenu(QObject* parent = nullptr);

  // Registers the D-Bus types once; call before exporting.
  static void registerTypes();

  void setMenu(ui::Menu menu);
  uint revision() const { return revision_; }

  // What the adaptor answers.
  DBusMenuLayout layout(int parent, int depth, const QStringList& names, bool& found) const;
  QList<DBusMenuItem> properties(const QList<int>& ids, const QStringList& names) const;
  QVariant property(int id, const QString& name) const;
  // Runs the entry's action (later, on the main loop) for a "clicked" event; false for an unknown
  // id.
  bool event(int id, const QString& eventId);

 signals:
  void LayoutUpdated(uint revision, int parent);
  void ItemsPropertiesUpdated(const QList<wh::tray::DBusMenuItem>& updated,
                              const QList<wh::tray::DBusMenuRemoved>& removed);
  void ItemActivationRequested(int id, uint timestamp);

 private:
  struct Node {
    const ui::MenuEntry* entry = nullptr;  // null for the root
    std::vector<int> children;
  };
  void number(const ui::Menu& entries, int parent);
  QVariantMap propertiesOf(int id, const QStringList& names) const;

  ui::Menu menu_;
  std::vector<Node> nodes_;  // by id
  uint revision_ = 0;
};

// The com.canonical.dbusmenu interface of a DBusMenu.
class DBusMenuAdaptor final : public QDBusAbstractAdaptor {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
  Q_PROPERTY(uint Version READ version)
  Q_PROPERTY(QString TextDirection READ textDirection)
  Q_PROPERTY(QString Status READ status)
  Q_PROPERTY(QStringList IconThemePath READ iconThemePath)
 public:
  explicit DBusMenuAdaptor(DBusMenu& menu);

  uint version() const { return 3; }
  QString textDirection() const { return QStringLiteral("ltr"); }
  QString status() const { return QStringLiteral("normal"); }
  QStringList iconThemePath() const { return {}; }

 public slots:
  uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames, wh::tray::DBusMenuLayout& layout);
  QList<wh::tray::DBusMenuItem> GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames);
  QDBusVariant GetProperty(int id, const QString& name);
  void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
  QList<int> EventGroup(const QList<wh::tray::DBusMenuEvent>& events);
  bool AboutToShow(int id);
  QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

 signals:
  void LayoutUpdated(uint revision, int parent);
  void ItemsPropertiesUpdated(const QList<wh::tray::DBusMenuItem>& updatedProps,
                              const QList<wh::tray::DBusMenuRemoved>& removedProps);
  void ItemActivationRequested(int id, uint timestamp);

 private:
  DBusMenu& menu_;
};

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayout& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayout& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItem& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuRemoved& removed);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuRemoved& removed);

}  // namespace wh::tray

Q_DECLARE_METATYPE(wh::tray::DBusMenuLayout)
Q_DECLARE_METATYPE(wh::tray::DBusMenuItem)
Q_DECLARE_METATYPE(wh::tray::DBusMenuEvent)
Q_DECLARE_METATYPE(wh::tray::DBusMenuRemoved)
