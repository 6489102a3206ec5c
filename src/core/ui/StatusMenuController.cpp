#include "core/ui/StatusMenuController.h"

#include "core/settings/Address.h"
#include "core/texts/PlatformTexts.h"
#include "core/ui/PanelRows.h"

namespace wh::ui {

StatusMenuController::StatusMenuController(Runtime& runtime, Services& services, Settings& settings,
                                           AudioHardware& audio, BluetoothAccess& access, StatusMenuView& view,
                                           PanelServices extras)
    : runtime_(runtime),
      services_(services),
      settings_(settings),
      view_(view),
      extras_(std::move(extras)),
      model_{services, settings, audio, access, 0, nullptr, nullptr, nullptr, nullptr, nullptr, extras_.openBluetoothSettings,
              extras_.showKeyAccess} {
  model_.close = lifetime_.guard([this] { view_.closePanel(); });
  model_.openSettings = lifetime_.guard([this] {
    if (openSettings) openSettings();
  });
  model_.openGuide = lifetime_.guard([this] {
    if (openGuide) openGuide();
  });
  model_.hideIcon = lifetime_.guard([this] {
    view_.closePanel();
    settings_.store().set(Keys::hideMenuIcon, StoreValue::boolean(true));
    settings_.changed(Keys::hideMenuIcon);
  });
}

void StatusMenuController::refresh() {
  if (view_.wantsItemMenu()) view_.setItemMenu(itemMenu());
  if (!panelCreated_ || !view_.panelVisible()) return;
  ++model_.generation;
  if (model_.onGeneration) model_.onGeneration();
}

void StatusMenuController::clicked() {
  if (!panelCreated_) {
    view_.createPanel(model_);
    panelCreated_ = true;
  }
  if (view_.panelVisible()) {
    view_.closePanel();
    return;
  }
  if (closedAt_ && runtime_.clock().now() - *closedAt_ < reopenRefusal) return;
  willOpen();
  view_.showPanel();
}

void StatusMenuController::openPanel() {
  if (!panelCreated_) {
    view_.createPanel(model_);
    panelCreated_ = true;
  }
  if (view_.panelVisible()) return;
  willOpen();
  view_.showPanel();
}

Menu StatusMenuController::itemMenu() {
  using Kind = BluetoothManager::Phase::Kind;
  Menu menu;
  const DevicesSection devices = devicesSection(model_, runtime_.clock().wallNow());
  for (const auto& device : devices.devices) {
    // Checked while connected; a connection under way or failed says so beside the name.
    const bool settled = device.phase == Kind::connected || device.phase == Kind::disconnected;
    MenuEntry entry = MenuEntry::check(settled ? device.name : device.name + " (" + device.status + ")",
                                       device.phase == Kind::connected, device.toggle);
    entry.enabled = device.phase != Kind::connecting && device.phase != Kind::disconnecting;
    menu.push_back(std::move(entry));
  }
  if (devices.devices.empty()) {
    menu.push_back(MenuEntry::item(devices.addTitle.value_or("Add Your Headphones…"),
                                   lifetime_.guard([this] { openPanel(); })));
  }
  menu.push_back(MenuEntry::separator());
  const auto toggle = [this](const char* title, const char* key, bool fallback) {
    const bool on = settings_.boolValue(key, fallback);
    return MenuEntry::check(title, on, lifetime_.guard([this, key, on] {
                              settings_.store().set(key, StoreValue::boolean(!on));
                              settings_.changed(key);
                            }));
  };
  menu.push_back(toggle(texts::kKeepMusicQuality, Keys::pinInput, true));
  menu.push_back(toggle(texts::kMediaKeysSwitch, Keys::mediaKeysEnabled, false));
  menu.push_back(MenuEntry::separator());
  menu.push_back(MenuEntry::item(texts::kOpenPanel, lifetime_.guard([this] { openPanel(); })));
  for (auto& row : footer()) {
    if (row.title == "Settings…" || row.title == "Quit Wrenhaven") menu.push_back(MenuEntry::item(row.title, row.run));
  }
  return menu;
}

void StatusMenuController::willOpen() {
  BatteryCache::Devices connected;
  for (const auto& device : settings_.devices()) {
    const std::string address = normalizeAddress(device.address);
    const auto phase = services_.bluetooth.phaseOf(address);
    if (phase && phase->kind() == BluetoothManager::Phase::Kind::connected) connected.emplace_back(address, device.name);
  }
  services_.battery.refresh(std::move(connected));
  services_.pinner.evaluate();
  keyMonitor_ = true;
}

void StatusMenuController::panelClosed() {
  closedAt_ = runtime_.clock().now();
  keyMonitor_ = false;
}

bool StatusMenuController::keyPressed(char key, bool controlOnly) {
  if (!keyMonitor_ || !controlOnly) return false;
  if (key == ',') {
    model_.openSettings();
    return true;
  }
  if (key == 'q' || key == 'Q') {
    view_.quit();
    return true;
  }
  return false;
}

std::vector<PanelAction> StatusMenuController::footer() {
  std::vector<PanelAction> rows;
  if (openSettings) rows.push_back({"Settings…", settingsKeyHint, model_.openSettings});
  if (openGuide) rows.push_back({"Welcome Guide…", "", model_.openGuide});
  rows.push_back({"About Wrenhaven", "", lifetime_.guard([this] { view_.showAbout(); })});
  if (extras_.checkForUpdates) rows.push_back({"Check for Updates…", "", extras_.checkForUpdates});
  if (extras_.reportProblem) rows.push_back({"Report a Problem…", "", extras_.reportProblem});
  rows.push_back({"Quit Wrenhaven", "", lifetime_.guard([this] { view_.quit(); })});
  return rows;
}

Menu StatusMenuController::moreOptions() {
  Menu menu;
  if (extras_.startsAtLogin && extras_.setStartAtLogin) {
    const bool on = extras_.startsAtLogin();
    menu.push_back(MenuEntry::check("Start at Login", on, [set = extras_.setStartAtLogin, on] { set(!on); }));
  }
  if (extras_.checkForUpdates && extras_.installsUpdatesAutomatically && extras_.setInstallUpdatesAutomatically) {
    const bool on = extras_.installsUpdatesAutomatically();
    menu.push_back(MenuEntry::check("Install Updates Automatically", on,
                                    [set = extras_.setInstallUpdatesAutomatically, on] { set(!on); }));
  }
  if (!menu.empty()) menu.push_back(MenuEntry::separator());
  menu.push_back(MenuEntry::item(texts::kHideTrayIcon, model_.hideIcon));
  menu.back().toolTip = texts::kHideTrayIconToolTip;
  return menu;
}

}  // namespace wh::ui
