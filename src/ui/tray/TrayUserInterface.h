#pragma once
// The tray on Qt: the main item (StatusNotifierItem, or XEmbed where no watcher exists) with its
// panel, one item per headphones that asks for one, and the kit's fonts.

#include <QMenu>
#include <QPointer>
#include <QSystemTrayIcon>

#include <map>
#include <memory>

#include "core/ui/UserInterface.h"
#include "ui/kit/NJAboutWindow.h"
#include "ui/tray/StatusPanel.h"

namespace wh::tray {

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
  // DeviceTray
  std::unique_ptr<ui::DeviceItem> makeItem(const std::string& address, std::function<void(Click)> clicked) override;

  QIcon mainIcon() const;
  void followTheme();
  bool eventFilter(QObject* watched, QEvent* event) override;

  TraySources sources_;
  ui::StatusMenuController* controller_ = nullptr;
  std::unique_ptr<QSystemTrayIcon> item_;
  QPointer<StatusPanel> panel_;
  QPointer<nj::NJAboutWindow> about_;
  std::vector<DeviceTrayItem*> deviceItems_;
};

}  // namespace wh::tray
