#include "ui/kit/NJMenu.h"

namespace nj {

void NJMenu::fill(QMenu& menu, const wh::ui::Menu& entries) {
  // clear() deletes the actions but not the submenus, which belong to the menu as child objects.
  for (QMenu* sub : menu.findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly)) delete sub;
  menu.clear();
  menu.setToolTipsVisible(true);
  for (const auto& entry : entries) {
    const QString title = QString::fromStdString(entry.title);
    switch (entry.kind) {
      case wh::ui::MenuEntry::Kind::separator:
        menu.addSeparator();
        continue;
      case wh::ui::MenuEntry::Kind::header:
        menu.addSection(title);
        continue;
      case wh::ui::MenuEntry::Kind::action:
        break;
    }
    QAction* action = nullptr;
    if (entry.opensSubmenu) {
      QMenu* sub = menu.addMenu(title);
      fill(*sub, entry.submenu);
      action = sub->menuAction();
    } else {
      action = menu.addAction(title);
      // Queued: what the entry does may rebuild this very menu.
      if (entry.run) QObject::connect(action, &QAction::triggered, &menu, [run = entry.run] { run(); }, Qt::QueuedConnection);
    }
    action->setEnabled(entry.enabled);
    if (entry.checked) {
      action->setCheckable(true);
      action->setChecked(*entry.checked);
    }
    if (!entry.toolTip.empty()) action->setToolTip(QString::fromStdString(entry.toolTip));
  }
}

}  // namespace nj
