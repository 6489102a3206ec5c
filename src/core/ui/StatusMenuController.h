#pragma once
// The agent's main tray item and the panel that opens under it: when the panel opens and closes,
// what is made fresh before it shows, its two keyboard shortcuts, its footer actions and its
// "More options" menu. The panel content reads the services through the PanelModel.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/app/Services.h"
#include "core/audio/AudioHardware.h"
#include "core/bluetooth/BluetoothAccess.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"
#include "core/ui/MenuEntry.h"

namespace wh::ui {

// What the panel's rows read, and the callbacks through which they ask for actions.
struct PanelModel {
  Services& s;
  Settings& settings;
  AudioHardware& audio;
  BluetoothAccess& access;
  // Bumped to make the open panel read everything again; `onGeneration` tells the panel.
  int generation = 0;
  std::function<void()> onGeneration;

  std::function<void()> close;
  std::function<void()> openSettings;
  std::function<void()> openGuide;
  std::function<void()> hideIcon;
  // Shows where Bluetooth access and pairing are handled on this desktop.
  std::function<void()> openBluetoothSettings;
  // Shows how the media keys' input access is granted here.
  std::function<void()> showKeyAccess;
};

// One of the action rows at the panel's foot.
struct PanelAction {
  std::string title;
  std::string keyHint;
  std::function<void()> run;
};

// The toolkit's side: the tray item, the panel window and the process.
class StatusMenuView {
 public:
  virtual ~StatusMenuView() = default;
  virtual void setItemVisible(bool visible) = 0;
  virtual bool panelVisible() const = 0;
  // Builds the panel on first use.
  virtual void createPanel(PanelModel& model) = 0;
  // Reads the model afresh and shows the panel under the tray icon (or at the pointer), takes the
  // keyboard, highlights the icon and closes the panel on a click outside it. The view calls panelClosed() whenever the
  // panel goes away, for whatever reason.
  virtual void showPanel() = 0;
  virtual void closePanel() = 0;
  virtual void showAbout() = 0;
  virtual void quit() = 0;
  // Where the desktop's shell draws the main item's menu itself (Wayland, where a window cannot
  // place itself at the icon), the menu to give it; kept up to date while the item shows.
  virtual bool wantsItemMenu() const { return false; }
  virtual void setItemMenu(const Menu& /*menu*/) {}
};

// Services of other parts of the agent that the footer and "More options" offer when they exist.
struct PanelServices {
  std::function<bool()> startsAtLogin;           // the login item's state; with setStartAtLogin
  std::function<void(bool)> setStartAtLogin;
  std::function<void()> checkForUpdates;         // the updater; absent without one
  std::function<bool()> installsUpdatesAutomatically;
  std::function<void(bool)> setInstallUpdatesAutomatically;
  std::function<void()> reportProblem;           // the problem report
  std::function<void()> openBluetoothSettings;
  std::function<void()> showKeyAccess;
};

class StatusMenuController {
 public:
  // A click within this time after the panel closed is the click that closed it.
  static constexpr double reopenRefusal = 0.25;
  // Control stands for the Command key of the shortcuts.
  static constexpr const char* settingsKeyHint = "Ctrl+,";

  StatusMenuController(Runtime& runtime, Services& services, Settings& settings, AudioHardware& audio,
                       BluetoothAccess& access, StatusMenuView& view, PanelServices extras = {});
  StatusMenuController(const StatusMenuController&) = delete;
  StatusMenuController& operator=(const StatusMenuController&) = delete;

  std::function<void()> openSettings;
  std::function<void()> openGuide;

  // The services changed: an open panel reads again; a closed one reads when it opens; the main
  // item's own menu, where the view has one, is made again.
  void refresh();
  void clicked();
  // Opens the panel (or leaves it open).
  void openPanel();
  // The main item's own menu: each remembered pair of headphones to connect or disconnect, the
  // music quality and media keys switches, the full panel, settings and quit.
  Menu itemMenu();
  void willOpen();
  // The view reports that the panel went away.
  void panelClosed();
  // A key pressed while the panel is open, with Control as the only modifier or not; true when
  // the key was used up.
  bool keyPressed(char key, bool controlOnly);
  bool keyMonitorInstalled() const { return keyMonitor_; }
  void setItemVisible(bool visible) { view_.setItemVisible(visible); }

  PanelModel& model() { return model_; }
  std::vector<PanelAction> footer();
  Menu moreOptions();

 private:
  Runtime& runtime_;
  Services& services_;
  Settings& settings_;
  StatusMenuView& view_;
  PanelServices extras_;
  PanelModel model_;
  bool panelCreated_ = false;
  bool keyMonitor_ = false;
  std::optional<double> closedAt_;
  Lifetime lifetime_;
};

}  // namespace wh::ui
