#pragma once
// The tray on Qt: the main item with its panel, one item per headphones that asks for one, and
// the kit's fonts. Items are StatusNotifierItems, registered whenever a watcher is on the bus; on
// an X11 desktop that has no watcher when the agent starts, but an XEmbed tray, they are shown
// there until a watcher appears.

#include <QMenu>
#include <QPointer>
#include <QSystemTrayIcon>

#include <functional>

#include <map>
#include <memory>

#include "core/ui/UserInterface.h"
#include "ui/kit/NJAboutWindow.h"
#include "ui/tray/StatusNotifierItem.h"
#include "ui/tray/SymbolicTrayIcons.h"
#include "ui/tray/StatusPanel.h"

namespace wh::tray {

// One tray item on whichever tray the desktop has: a StatusNotifierItem, and an XEmbed icon while
// only an XEmbed tray is there.
class TrayItem final : public QObject {
 public:
  enum class Click { plain, middle, menu };
  TrayItem(QString id, QString category, std::function<void(Click, QPoint)> clicked);

  void setLook(const StatusNotifierItem::Look& look);
  // The menu the tray shows for the item; also what popUpMenu opens.
  void setMenu(const ui::Menu& menu);
  // The host shows the menu on any click (the item is only its menu).
  void setOnlyMenu(bool only) { item_.setItemIsMenu(only); }
  void setVisible(bool visible);
  void popUpMenu();
  // Where the icon is on the screen, where the tray says (XEmbed only).
  QRect geometry() const;
  // A tray is there to show the item in (a StatusNotifierWatcher, or the XEmbed tray in use).
  bool trayThere() const;
  // Called when that changes.
  std::function<void()> trayChanged;
  StatusNotifierItem& statusNotifier() { return item_; }

 private:
  void followWatcher();

  std::function<void(Click, QPoint)> clicked_;
  StatusNotifierItem item_;
  std::unique_ptr<QSystemTrayIcon> xembed_;
  QMenu menu_;
  bool visible_ = false;
};

// What the tray is built over.
struct TraySources {
  Runtime& runtime;
  Services& services;
  Settings& settings;
  AudioHardware& audio;
  BluetoothAccess& access;
  std::string version;  // "0.1.0 (1)"
  ui::PanelServices extras;
};

class TrayUserInterface final : public QObject, public ui::UserInterface, ui::StatusMenuView, ui::DeviceTray {
  Q_OBJECT
 public:
  explicit TrayUserInterface(TraySources sources);
  ~TrayUserInterface() override;

  void registerFonts() override;
  std::unique_ptr<ui::StatusMenuController> makeStatusMenu() override;
  std::unique_ptr<ui::DeviceStatusItems> makeDeviceItems() override;
  std::string trayProblem() const override;
  void setTrayChanged(std::function<void()> changed) override { trayChanged_ = std::move(changed); }

  // The panel, once it was opened; for tests and measurements.
  StatusPanel* panel() const { return panel_; }

 private:
  class DeviceTrayItem;

  // StatusMenuView
  void setItemVisible(bool visible) override;
  bool panelVisible() const override;
  void createPanel(ui::PanelModel& model) override;
  void showPanel() override;
  void closePanel() override;
  void showAbout() override;
  void quit() override;
  bool wantsItemMenu() const override;
  void setItemMenu(const ui::Menu& menu) override;
  // DeviceTray
  std::unique_ptr<ui::DeviceItem> makeItem(const std::string& address, std::function<void(Click)> clicked) override;

  StatusNotifierItem::Look mainLook();
  // An item's look: its symbolic icon by name, and pixmaps drawn in the palette's text colour.
  StatusNotifierItem::Look look(const QString& item, nj::NJGlyph glyph, nj::NJGlyphState state,
                                std::optional<int> battery, QString toolTip);
  void followTheme();
  bool eventFilter(QObject* watched, QEvent* event) override;

  TraySources sources_;
  ui::StatusMenuController* controller_ = nullptr;
  std::unique_ptr<TrayItem> item_;
  bool itemWanted_ = false;
  std::function<void()> trayChanged_;
  // Where the host says the main item was clicked (null: it did not say).
  QPoint clickedAt_;
  QPointer<StatusPanel> panel_;
  QPointer<nj::NJAboutWindow> about_;
  std::vector<DeviceTrayItem*> deviceItems_;
  SymbolicTrayIcons icons_{SymbolicTrayIcons::defaultFolder(), SymbolicTrayIcons::shellRecolours()};
};

}  // namespace wh::tray
