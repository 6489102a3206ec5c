#include "ui/tray/DBusMenu.h"

#include <QDBusMetaType>
#include <QTimer>

namespace wh::tray {
namespace {

// dbusmenu reads an underscore as the mark of an access key; a title's own underscores are doubled.
QString label(const std::string& title) { return QString::fromStdString(title).replace('_', QStringLiteral("__")); }

}  // namespace

DBusMenu::DBusMenu(QObject* parent) : QObject(parent) { nodes_.push_back(Node{}); }

void DBusMenu::registerTypes() {
  qDBusRegisterMetaType<DBusMenuLayout>();
  qDBusRegisterMetaType<DBusMenuItem>();
  qDBusRegisterMetaType<QList<DBusMenuItem>>();
  qDBusRegisterMetaType<DBusMenuEvent>();
  qDBusRegisterMetaType<QList<DBusMenuEvent>>();
  qDBusRegisterMetaType<DBusMenuRemoved>();
  qDBusRegisterMetaType<QList<DBusMenuRemoved>>();
}

void DBusMenu::setMenu(ui::Menu menu) {
  menu_ = std::move(menu);
  nodes_.assign(1, Node{});
  number(menu_, 0);
  ++revision_;
  emit LayoutUpdated(revision_, 0);
}

void DBusMenu::number(const ui::Menu& entries, int parent) {
  for (const auto& entry : entries) {
    const int id = static_cast<int>(nodes_.size());
    nodes_.push_back(Node{&entry, {}});
    nodes_[static_cast<std::size_t>(parent)].children.push_back(id);
    if (entry.opensSubmenu) number(entry.submenu, id);
  }
}

QVariantMap DBusMenu::propertiesOf(int id, const QStringList& names) const {
  QVariantMap all;
  const ui::MenuEntry* entry = nodes_[static_cast<std::size_t>(id)].entry;
  if (entry == nullptr || entry->opensSubmenu)
    all.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
  if (entry != nullptr) {
    switch (entry->kind) {
      case ui::MenuEntry::Kind::separator:
        all.insert(QStringLiteral("type"), QStringLiteral("separator"));
        break;
      case ui::MenuEntry::Kind::header:
        // dbusmenu has no section titles: a title that cannot be chosen stands for one.
        all.insert(QStringLiteral("label"), label(entry->title));
        all.insert(QStringLiteral("enabled"), false);
        break;
      case ui::MenuEntry::Kind::action:
        all.insert(QStringLiteral("label"), label(entry->title));
        if (!entry->enabled) all.insert(QStringLiteral("enabled"), false);
        if (entry->checked) {
          all.insert(QStringLiteral("toggle-type"), QStringLiteral("checkmark"));
          all.insert(QStringLiteral("toggle-state"), *entry->checked ? 1 : 0);
        }
        break;
    }
  }
  if (names.isEmpty()) return all;
  QVariantMap asked;
  for (const QString& name : names) {
    if (auto found = all.constFind(name); found != all.constEnd()) asked.insert(name, *found);
  }
  return asked;
}

DBusMenuLayout DBusMenu::layout(int parent, int depth, const QStringList& names, bool& found) const {
  found = parent >= 0 && static_cast<std::size_t>(parent) < nodes_.size();
  if (!found) return {};
  DBusMenuLayout item{parent, propertiesOf(parent, names), {}};
  if (depth == 0) return item;
  for (int child : nodes_[static_cast<std::size_t>(parent)].children) {
    bool ignored = false;
    item.children.push_back(layout(child, depth < 0 ? -1 : depth - 1, names, ignored));
  }
  return item;
}

QList<DBusMenuItem> DBusMenu::properties(const QList<int>& ids, const QStringList& names) const {
  QList<DBusMenuItem> items;
  for (int id : ids) {
    if (id >= 0 && static_cast<std::size_t>(id) < nodes_.size()) items.push_back({id, propertiesOf(id, names)});
  }
  return items;
}

QVariant DBusMenu::property(int id, const QString& name) const {
  if (id < 0 || static_cast<std::size_t>(id) >= nodes_.size()) return {};
  return propertiesOf(id, {}).value(name);
}

bool DBusMenu::event(int id, const QString& eventId) {
  if (id < 0 || static_cast<std::size_t>(id) >= nodes_.size()) return false;
  const ui::MenuEntry* entry = nodes_[static_cast<std::size_t>(id)].entry;
  if (eventId != QLatin1String("clicked") || entry == nullptr || !entry->enabled || !entry->run) return true;
  // Later: what the entry does may replace this very menu, and the caller waits for its answer.
  QTimer::singleShot(0, this, [run = entry->run] { run(); });
  return true;
}

DBusMenuAdaptor::DBusMenuAdaptor(DBusMenu& menu) : QDBusAbstractAdaptor(&menu), menu_(menu) {
  setAutoRelaySignals(true);
}

uint DBusMenuAdaptor::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                DBusMenuLayout& layout) {
  bool found = false;
  layout = menu_.layout(parentId, recursionDepth, propertyNames, found);
  return menu_.revision();
}

QList<DBusMenuItem> DBusMenuAdaptor::GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames) {
  return menu_.properties(ids, propertyNames);
}

QDBusVariant DBusMenuAdaptor::GetProperty(int id, const QString& name) {
  return QDBusVariant(menu_.property(id, name));
}

void DBusMenuAdaptor::Event(int id, const QString& eventId, const QDBusVariant&, uint) { menu_.event(id, eventId); }

QList<int> DBusMenuAdaptor::EventGroup(const QList<DBusMenuEvent>& events) {
  QList<int> unknown;
  for (const auto& event : events) {
    if (!menu_.event(event.id, event.eventId)) unknown.push_back(event.id);
  }
  return unknown;
}

// The entries are known in full before the menu opens: nothing to fetch first.
bool DBusMenuAdaptor::AboutToShow(int) { return false; }

QList<int> DBusMenuAdaptor::AboutToShowGroup(const QList<int>&, QList<int>& idErrors) {
  idErrors.clear();
  return {};
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayout& item) {
  argument.beginStructure();
  argument << item.id << item.properties;
  argument.beginArray(QMetaType::fromType<QDBusVariant>());
  for (const auto& child : item.children) argument << QDBusVariant(QVariant::fromValue(child));
  argument.endArray();
  argument.endStructure();
  return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayout& item) {
  argument.beginStructure();
  argument >> item.id >> item.properties;
  argument.beginArray();
  item.children.clear();
  while (!argument.atEnd()) {
    QDBusVariant child;
    argument >> child;
    item.children.push_back(qdbus_cast<DBusMenuLayout>(child.variant()));
  }
  argument.endArray();
  argument.endStructure();
  return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItem& item) {
  return writeStructure(argument, item.id, item.properties);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItem& item) {
  return readStructure(argument, item.id, item.properties);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event) {
  return writeStructure(argument, event.id, event.eventId, event.data, event.timestamp);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event) {
  return readStructure(argument, event.id, event.eventId, event.data, event.timestamp);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuRemoved& removed) {
  return writeStructure(argument, removed.id, removed.names);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuRemoved& removed) {
  return readStructure(argument, removed.id, removed.names);
}

}  // namespace wh::tray
