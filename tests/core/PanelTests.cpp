// The tray's logic on the virtual clock: the panel's open and close rules, its rows' texts by
// state, the devices section and the device items with their menus.
#include "core/app/AppDelegate.h"
#include "core/audio/CoreAudio.h"
#include "core/ui/DeviceMenu.h"
#include "core/ui/DeviceStatusItems.h"
#include "core/ui/PanelRows.h"
#include "core/AgentWorld.h"

namespace wh::test {
namespace {

using ui::Menu;
using Phase = BluetoothManager::Phase;

const ui::MenuEntry* entry(const Menu& menu, const std::string& title) {
  for (const auto& item : menu) {
    if (item.title == title) return &item;
    if (auto* inner = entry(item.submenu, title)) return inner;
  }
  return nullptr;
}

std::string titles(const Menu& menu) {
  std::string out;
  for (const auto& item : menu) out += (out.empty() ? "" : "|") + (item.kind == ui::MenuEntry::Kind::separator ? "-" : item.title);
  return out;
}

struct View final : ui::StatusMenuView, ui::DeviceTray {
  struct Item final : ui::DeviceItem {
    View& view;
    explicit Item(View& owner) : view(owner) {}
    void update(const ui::DeviceItemLook& next, Menu entries) override { look = next, menu = std::move(entries); }
    void popUpMenu() override { ++view.popUps; }
    ui::DeviceItemLook look;
    Menu menu;
  };
  void setItemVisible(bool visible) override { itemVisible = visible; }
  bool panelVisible() const override { return open; }
  void createPanel(ui::PanelModel&) override { ++panels; }
  void showPanel() override { open = true; }
  void closePanel() override { open = false, closed(); }
  void showAbout() override {}
  void quit() override { ++quits; }
  std::unique_ptr<ui::DeviceItem> makeItem(const std::string& address, std::function<void(Click)> click) override {
    auto item = std::make_unique<Item>(*this);
    items[address] = item.get(), clicks[address] = std::move(click);
    return item;
  }
  bool wantsItemMenu() const override { return shellMenus; }
  void setItemMenu(const Menu& entries) override { itemMenu = entries, ++itemMenus; }
  bool itemVisible = true, open = false, shellMenus = false;
  int panels = 0, quits = 0, popUps = 0, itemMenus = 0;
  Menu itemMenu;
  std::function<void()> closed;
  std::map<std::string, Item*> items;
  std::map<std::string, std::function<void(Click)>> clicks;
};

class PanelTest : public AgentWorld {
 protected:
  void SetUp() override { view.closed = [this] { menu.panelClosed(); }; }
  void connect(Phase phase = Phase::connected()) { services.bluetooth.set(buds, phase); }
  DeviceSetting device() const { return settings.devices().at(0); }
  void batteryRead(double ago) {
    sources.live = {{"Sleep Buds", buds, {.left = 80, .right = 75}}};
    services.battery.refresh({{buds, "Sleep Buds"}});
    rt.drainSerialQueues();
    rt.advance(ago);
  }
  View view;
  ui::StatusMenuController menu{rt, services, settings, hardware, access, view};
};

TEST_F(PanelTest, TheClickOpensClosesAndRefusesToReopenAtOnceAndOnlyAnOpenPanelCountsGenerations) {
  remember();
  connect();
  int settingsOpened = 0;
  menu.openSettings = [&] { ++settingsOpened; };
  menu.refresh();
  menu.clicked();  // opens, asking the battery of the connected headphones on the way
  EXPECT_TRUE(view.open);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.liveReads, 1);
  menu.refresh();
  menu.refresh();
  EXPECT_EQ(menu.model().generation, 2);
  EXPECT_FALSE(menu.keyPressed('w', true) || menu.keyPressed(',', false));
  EXPECT_TRUE(menu.keyPressed(',', true));
  EXPECT_TRUE(menu.keyPressed('q', true));
  EXPECT_EQ(std::pair(settingsOpened, view.quits), std::pair(1, 1));
  menu.clicked();  // closes
  menu.clicked();  // the same click that closed it: refused
  EXPECT_FALSE(view.open);
  EXPECT_FALSE(menu.keyPressed(',', true));
  rt.advance(ui::StatusMenuController::reopenRefusal);
  menu.clicked();
  EXPECT_TRUE(view.open);
  EXPECT_EQ(view.panels, 1);
  menu.model().close();
  menu.refresh();
  EXPECT_EQ(menu.model().generation, 2);
}

TEST_F(PanelTest, FooterAndMoreOptionsOfferOnlyWhatExistsAndHidingStoresTheChoice) {
  std::string footer;
  for (const auto& row : menu.footer()) footer += row.title + "|";
  EXPECT_EQ(footer, "About Wrenhaven|Quit Wrenhaven|");
  bool atLogin = false;
  ui::StatusMenuController full{rt, services, settings, hardware, access, view,
                                {[&] { return atLogin; }, [&](bool on) { atLogin = on; }, [] {}, [] { return true; },
                                 [](bool) {}, [] {}, [] {}, [] {}}};
  full.openSettings = [] {};
  footer.clear();
  for (const auto& row : full.footer()) footer += row.title + row.keyHint + "|";
  EXPECT_EQ(footer, "Settings…Ctrl+,|About Wrenhaven|Check for Updates…|Report a Problem…|Quit Wrenhaven|");
  Menu options = full.moreOptions();
  EXPECT_EQ(titles(options), "Start at Login|Install Updates Automatically|-|Hide Tray Icon");
  options[0].run();
  EXPECT_TRUE(atLogin);
  view.open = true;
  menu.moreOptions().back().run();
  EXPECT_FALSE(view.open);
  EXPECT_EQ(store.object(Keys::hideMenuIcon), StoreValue::boolean(true));
}

TEST_F(PanelTest, TheItemsOwnMenuConnectsHeadphonesFlipsTheSwitchesAndOpensThePanel) {
  menu.refresh();
  EXPECT_EQ(view.itemMenus, 0) << "only a view whose shell draws the menu gets one";
  view.shellMenus = true;
  menu.openSettings = [] {};
  menu.refresh();
  EXPECT_EQ(titles(view.itemMenu), "Add Your Headphones…|-|Keep Music Quality|Media Keys|-|Open Wrenhaven…|Settings…|Quit Wrenhaven");
  entry(view.itemMenu, "Add Your Headphones…")->run();
  EXPECT_TRUE(view.open);
  menu.model().close();

  remember();
  struct Case {
    Phase phase;
    std::string title;
    bool checked, enabled;
  };
  for (const Case& c : {Case{Phase::disconnected(), "Sleep Buds", false, true},
                        Case{Phase::connecting(), "Sleep Buds (Connecting…)", false, false},
                        Case{Phase::connected(), "Sleep Buds", true, true},
                        Case{Phase::failed("The device did not answer"), "Sleep Buds (The device did not answer)", false, true}}) {
    connect(c.phase);
    menu.refresh();
    const ui::MenuEntry& first = view.itemMenu.at(0);
    EXPECT_EQ(std::tuple(first.title, first.checked.value_or(false), first.enabled), std::tuple(c.title, c.checked, c.enabled));
  }
  view.itemMenu.at(0).run();
  rt.drainSerialQueues();
  EXPECT_EQ(stack.calls.back(), "open " + std::string(buds)) << "failed headphones are tried again";
  connect();
  menu.refresh();
  view.itemMenu.at(0).run();
  rt.drainSerialQueues();
  EXPECT_EQ(stack.calls.back(), "close " + std::string(buds));

  // The switches store the opposite of what the menu showed, and the next menu shows it.
  entry(view.itemMenu, "Keep Music Quality")->run();
  entry(view.itemMenu, "Media Keys")->run();
  EXPECT_EQ(store.object(Keys::pinInput), StoreValue::boolean(false));
  EXPECT_EQ(store.object(Keys::mediaKeysEnabled), StoreValue::boolean(true));
  menu.refresh();
  EXPECT_EQ(std::pair(*entry(view.itemMenu, "Keep Music Quality")->checked, *entry(view.itemMenu, "Media Keys")->checked),
            std::pair(false, true));
  entry(view.itemMenu, "Open Wrenhaven…")->run();
  entry(view.itemMenu, "Open Wrenhaven…")->run();
  EXPECT_TRUE(view.open) << "opening an open panel leaves it open";
  entry(view.itemMenu, "Quit Wrenhaven")->run();
  EXPECT_EQ(view.quits, 1);
}

TEST_F(PanelTest, MusicQualityRowTextsAndActionsFollowThePinner) {
  using S = InputPinner::Status;
  using O = InputPinner::Override;
  struct Case {
    S status;
    bool pinInput, inCall;
    O override;
    CallModeOption mode;
    const char* detail;
    const char* actions;
    bool guardFighting = false;
  } cases[] = {
      {S::pinned("Laptop Mic"), true, false, O::none, CallModeOption::automatic, "Using Laptop Mic for calls and dictation", "Allow Headphone Mic Now"},
      {S::fighting(), false, false, O::none, CallModeOption::automatic, "Another app keeps switching the mic", "Try Again"},
      {S::releasedManually(), true, false, O::allowHeadphoneMic, CallModeOption::automatic, "Headphone mic allowed", "Back to Music Quality"},
      {S::idle(), true, false, O::none, CallModeOption::alwaysHeadphoneMic, "Headphones are not using their mic", "Keep Music Quality Now"},
      {S::noMicrophone(), true, false, O::forcePin, CallModeOption::automatic, "This computer has no built-in microphone", "Allow Headphone Mic Again"},
      {S::pinned("Laptop Mic"), true, false, O::none, CallModeOption::automatic, "Another app keeps switching your headphones to call quality", "Try Again|Allow Headphone Mic Now", true},
      {S::fighting(), true, true, O::none, CallModeOption::automatic, "Another app keeps switching the mic", "Try Again|Keep Music Quality Now", true},
  };
  for (const auto& c : cases) {
    store.set(Keys::pinInput, StoreValue::boolean(c.pinInput));
    settings.setCallMode(c.mode);
    const ui::PanelRow row = ui::musicQualityRow(menu.model(), {c.status, c.inCall, c.override, c.guardFighting, ""});
    std::string actions;
    for (const auto& action : row.actions) actions += (actions.empty() ? "" : "|") + action.title;
    EXPECT_EQ(row.detail, c.detail);
    EXPECT_EQ(actions, c.actions) << c.detail;
  }
  ui::musicQualityRow(menu.model(), {S::idle(), false, O::none, false, ""}).actions.back().run();
  EXPECT_EQ(services.pinner.override(), O::allowHeadphoneMic);
}

TEST_F(PanelTest, TheSecondLineNamesABluetoothOutputsRateAndTheMicrophoneMenuSkipsBluetooth) {
  const auto blue = Transport::bluetooth;
  hardware.deviceList = {{2, "alsa_input.pci", "Laptop Mic", Transport::builtIn, 1, 0, 48000},
                         {3, "usb_mic", "Desk Mic", fourCharCode("usb "), 1, 0, 48000},
                         {4, "bluez_input.aa", "Buds Mic", blue, 1, 0, 16000},
                         {5, "bluez_output.aa", "Sleep Buds", blue, 0, 1, 48000}};
  hardware.defaults[AudioProperty::defaultOutputDevice] = 5;
  for (auto [rate, line] : {std::pair{16000.0, "Sleep Buds: 16 kHz, call quality"}, {44100.0, "Sleep Buds: 44.1 kHz, full quality"},
                            {48000.0, "Sleep Buds: 48 kHz, full quality"}}) {
    hardware.deviceList[3].nominalSampleRate = rate;
    services.profileGuard.evaluate();
    const std::string detail = ui::musicQualityRow(menu.model()).detail;
    EXPECT_EQ(detail.substr(detail.find('\n') + 1), line);
  }
  hardware.deviceList[3].transport = Transport::builtIn;
  services.profileGuard.evaluate();
  EXPECT_EQ(ui::musicQualityRow(menu.model()).detail.find('\n'), std::string::npos);
  store.set(Keys::preferredInputUID, StoreValue::string("gone_mic"));
  Menu options = ui::musicQualityRow(menu.model()).options;
  EXPECT_EQ(titles(options), "Microphone|Built-in Microphone|Desk Mic|gone_mic (not connected)|During Calls|"
                             "Automatic (release during calls)|Always allow headphone mic|Always keep music quality");
  EXPECT_TRUE(*options[3].checked);
  entry(options, "Desk Mic")->run();
  EXPECT_EQ(store.object(Keys::preferredInputUID), StoreValue::string("usb_mic"));
}

TEST_F(PanelTest, MediaKeysRowTextsFollowTheSwitchPauseTapAndIdleChoice) {
  using Tap = ui::MediaKeysState::Tap;
  struct Case {
    bool enabled, paused;
    Tap tap;
    std::optional<std::string> target;
    IdlePlayAction idle;
    const char* detail;
  } cases[] = {
      {false, true, Tap::running, "Spotify", IdlePlayAction::ask, "▶︎, ⏭︎ and ⏮︎ go where the desktop sends them"},
      {true, true, Tap::running, "Spotify", IdlePlayAction::ask, "Paused: the desktop handles the keys"},
      {true, false, Tap::off, {}, IdlePlayAction::ask, "Starting…"},
      {true, false, Tap::needsAccessibility, {}, IdlePlayAction::ask, "Needs key access to read the keys"},
      {true, false, Tap::running, "Spotify", IdlePlayAction::nothing, "Controls Spotify"},
      {true, false, Tap::running, {}, IdlePlayAction::ask, "Nothing playing: ▶︎ asks what to open"},
      {true, false, Tap::running, {}, IdlePlayAction::music, "Nothing playing: ▶︎ will open music"},
      {true, false, Tap::running, {}, IdlePlayAction::nothing, "Nothing playing: ▶︎ does nothing"},
  };
  for (const auto& c : cases) {
    store.set(Keys::mediaKeysEnabled, StoreValue::boolean(c.enabled));
    store.set(Keys::mediaKeysPaused, StoreValue::boolean(c.paused));
    settings.setIdlePlay(c.idle);
    EXPECT_EQ(ui::mediaKeysRow(settings, {c.tap, c.target, nullptr, [] {}}).detail, c.detail);
  }
  const auto row = ui::mediaKeysRow(settings, {Tap::needsAccessibility, {}, [](IdlePlayAction a) { return a == IdlePlayAction::music; }, [] {}});
  EXPECT_EQ(row.actions.size(), 1U);
  EXPECT_EQ(titles(row.options), "Pause Media Keys|When Nothing Is Playing|Ask|Open Spotify (not installed)|Open Music|Do Nothing");
}

TEST_F(PanelTest, AppVolumeSectionListsPlayingAppsWritesTheirSettingsAndOffersAWayOutOfProblems) {
  AppVolumeController& volume = services.volume;
  monitor.start();
  volume.start();
  EXPECT_EQ(ui::appVolumeSection(volume).emptyText, "Apps appear here when they play sound.");
  processTable.processes[40] = {1, "/usr/bin/tuner", "/app.slice/app-gnome-tuner-40.scope", {}};
  desktopEntries.set({{"tuner", "tuner", "", false, false, "Tuner", "audio-x-generic"}});
  hardware.processList.push_back({40, 40, {}, false, true});
  monitor.refresh();
  taps.failNext = ProcessTap::Failure{ProcessTap::Failure::Step::tap, 25};
  ui::appVolumeSection(volume).apps.at(0).setGain(0.5F);
  rt.drainSerialQueues();
  auto section = ui::appVolumeSection(volume);
  ASSERT_EQ(section.apps.size(), 1U);
  EXPECT_EQ(section.emptyText, "");
  const ui::AppVolumeRow app = section.apps.at(0);
  EXPECT_EQ(app.name + "|" + app.iconName + "|" + std::to_string(app.gain).substr(0, 3), "Tuner|audio-x-generic|0.5");
  EXPECT_TRUE(app.playing && !app.muted);
  EXPECT_EQ(section.problemTitle + ": " + section.problemDetail, "Volume by app stopped: Could not change the volume of Tuner");
  section.problemAction->run();  // the retry builds the tap, which then hears only silence
  app.toggleMute();
  rt.drainSerialQueues();
  EXPECT_TRUE(ui::appVolumeSection(volume).apps.at(0).muted);
  ui::appVolumeSection(volume).apps.at(0).toggleMute();
  rt.drainSerialQueues();
  rt.advance(AppVolumeController::signalCheckDelay);
  section = ui::appVolumeSection(volume);
  EXPECT_EQ(section.problemTitle, "Allow audio recording");
  EXPECT_FALSE(section.apps.at(0).muted);

  // The app quits and drops off the list; the problem it met stays in sight with the empty text.
  processTable.processes.erase(40);
  hardware.processList.clear();
  monitor.refresh();
  rt.drainSerialQueues();
  section = ui::appVolumeSection(volume);
  EXPECT_TRUE(section.apps.empty());
  EXPECT_EQ(section.emptyText + "|" + section.problemTitle, "Apps appear here when they play sound.|Allow audio recording");
}

TEST_F(PanelTest, DevicesSectionFollowsThePermissionAndOffersPairedHeadphonesNotYetRemembered) {
  const auto section = [this] { return ui::devicesSection(menu.model(), rt.clock().wallNow()); };
  EXPECT_EQ(section().noticeAction->title, "Allow Bluetooth…");
  authority.state = BluetoothAuthorization::denied;
  EXPECT_EQ(section().notice, "Bluetooth is off for Wrenhaven");
  authority.state = BluetoothAuthorization::allowedAlways;
  stack.add(buds, "Sleep Buds");
  stack.add("11-22-33-44-55-66", "");
  EXPECT_EQ(section().emptyTitle, "Add your headphones");
  EXPECT_EQ(*section().addTitle, "Add Your Headphones…");
  EXPECT_EQ(titles(section().addMenu), "11-22-33-44-55-66|Sleep Buds");
  section().addMenu[1].run();
  connect(Phase::failed("The device did not answer"));
  const auto filled = section();
  EXPECT_EQ(*filled.addTitle, "Add Headphones…");
  EXPECT_EQ(filled.devices.at(0).status, "The device did not answer");
  EXPECT_EQ(titles(filled.addMenu), "11-22-33-44-55-66");
}

TEST_F(PanelTest, WhatStopsBluetoothItselfIsSaidBeforeAnyPermissionAndNothingOffersToWait) {
  using enum BluetoothAdapterState;
  remember();
  bool settingsOpened = false;
  menu.model().openBluetoothSettings = [&] { settingsOpened = true; };
  const auto section = [this] { return ui::devicesSection(menu.model(), rt.clock().wallNow()); };
  struct Case {
    BluetoothAdapterState state;
    BluetoothAuthorization authorization;
    std::string notice, action;
  };
  for (const auto& c : std::vector<Case>{
           {noService, BluetoothAuthorization::undetermined, "Bluetooth is not running", ""},
           {noAdapter, BluetoothAuthorization::allowedAlways, "No Bluetooth adapter", ""},
           {off, BluetoothAuthorization::allowedAlways, "Bluetooth is off", "Open Bluetooth Settings…"},
           {unknown, BluetoothAuthorization::undetermined, "", "Allow Bluetooth…"},
           {on, BluetoothAuthorization::allowedAlways, "", ""}}) {
    stack.adapter = c.state;
    authority.state = c.authorization;
    const auto shown = section();
    EXPECT_EQ(shown.notice, c.notice);
    EXPECT_EQ(shown.noticeAction ? shown.noticeAction->title : "", c.action);
    EXPECT_EQ(shown.notice.empty(), shown.noticeDetail.find("sudo") == std::string::npos &&
                                        shown.noticeDetail.find("bluetoothctl") == std::string::npos &&
                                        shown.noticeDetail.find("rfkill") == std::string::npos)
        << "each problem says what fixes it: " << shown.noticeDetail;
    EXPECT_EQ(shown.devices.size(), 1u) << "the headphones stay listed";
  }
  stack.adapter = off;
  section().noticeAction->run();
  EXPECT_TRUE(settingsOpened);
}

TEST_F(PanelTest, DeviceStatusLineShowsTheFailureAndOnlyAFreshBattery) {
  remember();
  const auto line = [this] { return ui::DeviceMenu::status(services, device(), rt.clock().wallNow()); };
  connect(Phase::failed("Bluetooth is off"));
  EXPECT_EQ(line(), "Bluetooth is off");
  connect();
  EXPECT_EQ(line(), "Connected");
  batteryRead(599);
  EXPECT_EQ(line(), "Connected · L 80% · R 75%");
  rt.advance(1);
  EXPECT_EQ(line(), "Connected");
}

TEST_F(PanelTest, DeviceMenuEntriesActOnTheRecordAndTheConnection) {
  remember();
  ui::DeviceMenu::update(settings, buds, [](DeviceSetting& record) {
    record.connectOnly = true, record.hotkey = HotkeyCombo{96, 4096 | 512};
  });
  ui::DeviceMenu::Context context{services, settings, rt.clock().wallNow(), nullptr};
  EXPECT_EQ(titles(ui::DeviceMenu::fill(context, device())),
            "Not connected|Connect|-|Show in Tray|Keep Music Quality|Connect Only|Connect After Wake|"
            "Disconnect Before Sleep|Icon|Hotkey: ⌃⇧F5|-|Remove Sleep Buds");
  connect();
  Menu entries = ui::DeviceMenu::fill(context, device());
  EXPECT_EQ(titles({entries.begin() + 1, entries.begin() + 3}), "Use for Sound Output|Disconnect");
  EXPECT_EQ(entry(entries, "Connect Only")->toolTip,
            "Clicking the icon or pressing the hotkey never disconnects; it moves the sound back to Sleep Buds.");
  EXPECT_EQ(titles(entry(entries, "Hotkey: ⌃⇧F5")->submenu), "Remove Hotkey");
  for (const char* title : {"Keep Music Quality", "Connect After Wake", "Earbuds", "Remove Hotkey"}) entry(entries, title)->run();
  const DeviceSetting changed = device();
  EXPECT_EQ(std::tuple(changed.pinInput, changed.connectOnWake, changed.icon, changed.hotkey.has_value()),
            std::tuple(false, true, std::string("earbuds"), false));
  entry(entries, "Disconnect")->run();
  rt.drainSerialQueues();
  EXPECT_EQ(stack.calls.back(), "close " + std::string(buds));
  entry(entries, "Remove Sleep Buds")->run();
  EXPECT_TRUE(settings.devices().empty());
}

TEST_F(PanelTest, DeviceItemsFollowTheRecordsAndTheirClicks) {
  remember();
  settings.addDevice("11:22:33:44:55:66", "");
  auto records = settings.devices();
  records[1].showInMenuBar = false;
  settings.setDevices(records);
  ui::DeviceStatusItems items{rt, services, settings, view};
  items.refresh();
  ASSERT_EQ(items.count(), 1U);
  connect();
  batteryRead(1);
  items.refresh();
  EXPECT_EQ(view.items.at(buds)->look, (ui::DeviceItemLook{DeviceIcon::earbuds, Phase::Kind::connected, 75,
                                                           "Sleep Buds: Connected · L 80% · R 75%"}));
  view.clicks.at(buds)(ui::DeviceTray::Click::menu);
  EXPECT_EQ(view.popUps, 1);
  EXPECT_EQ(services.bluetooth.phaseOf(buds), Phase::connected());
  view.clicks.at(buds)(ui::DeviceTray::Click::plain);
  EXPECT_EQ(services.bluetooth.phaseOf(buds), Phase::disconnecting());
  records = settings.devices();
  records[0].showInMenuBar = false, records[1].showInMenuBar = true;
  settings.setDevices(records);
  items.refresh();
  EXPECT_EQ(items.count(), 1U);
  EXPECT_EQ(view.items.at("11-22-33-44-55-66")->menu.back().title, "Remove Headphones");
}

TEST_F(PanelTest, LaunchBuildsTheTrayAndSettingsChangesAndReopenDriveTheMainItem) {
  struct Tray final : ui::UserInterface {
    std::function<std::unique_ptr<ui::StatusMenuController>()> menu;
    std::function<std::unique_ptr<ui::DeviceStatusItems>()> items;
    int fonts = 0;
    void registerFonts() override { ++fonts; }
    std::unique_ptr<ui::StatusMenuController> makeStatusMenu() override { return menu(); }
    std::unique_ptr<ui::DeviceStatusItems> makeDeviceItems() override { return items(); }
  } tray;
  tray.menu = [this] { return std::make_unique<ui::StatusMenuController>(rt, services, settings, hardware, access, view); };
  tray.items = [this] { return std::make_unique<ui::DeviceStatusItems>(rt, services, settings, view); };
  remember();
  store.set(Keys::hideMenuIcon, StoreValue::boolean(true));
  AppDelegate delegate{rt, settings, notifications, host, BuildInfo{"com.quintelbarrows.wrenhaven", "0.1.0", "7"},
                       services, access, status, monitor, {move, launcher}};
  delegate.setUserInterface(&tray);
  delegate.applicationDidFinishLaunching();
  EXPECT_EQ(tray.fonts, 1);
  EXPECT_FALSE(view.itemVisible);
  ASSERT_EQ(view.items.count(buds), 1U) << "the headphones' item is there at once";
  store.set(Keys::hideMenuIcon, StoreValue::boolean(false));
  settings.changed("");
  EXPECT_TRUE(view.itemVisible);
  store.set(Keys::hideMenuIcon, StoreValue::boolean(true));
  settings.changed(Keys::hideMenuIcon);
  EXPECT_FALSE(view.itemVisible);
  delegate.applicationShouldHandleReopen();
  EXPECT_TRUE(view.itemVisible);
  connect(Phase::connecting());
  rt.runReady();
  EXPECT_EQ(view.items.at(buds)->look.phase, Phase::Kind::connecting) << "the refresh redraws the item";
}

TEST_F(PanelTest, AMissingTrayIsPublishedAndTheSettingsProgramSaysWhyOnce) {
  struct Tray final : ui::UserInterface {
    std::function<std::unique_ptr<ui::StatusMenuController>()> menu;
    std::function<std::unique_ptr<ui::DeviceStatusItems>()> items;
    std::string problem;
    std::function<void()> changed;
    void registerFonts() override {}
    std::unique_ptr<ui::StatusMenuController> makeStatusMenu() override { return menu(); }
    std::unique_ptr<ui::DeviceStatusItems> makeDeviceItems() override { return items(); }
    std::string trayProblem() const override { return problem; }
    void setTrayChanged(std::function<void()> callback) override { changed = std::move(callback); }
  };
  struct Case {
    const char* name;
    std::string problem;
    bool onboardingDone;
    int openedAfterGrace;  // times the settings program was opened once the grace time was over
  };
  for (const Case& c : {Case{"a tray", "", true, 0}, Case{"no tray", "no tray here", true, 1},
                        Case{"no tray, first run: the guide says it", "no tray here", false, 0}}) {
    SCOPED_TRACE(c.name);
    store.set(Keys::onboardingDone, StoreValue::boolean(c.onboardingDone));
    Tray tray;
    tray.menu = [this] { return std::make_unique<ui::StatusMenuController>(rt, services, settings, hardware, access, view); };
    tray.items = [this] { return std::make_unique<ui::DeviceStatusItems>(rt, services, settings, view); };
    tray.problem = c.problem;
    AppDelegate delegate{rt, settings, notifications, host, BuildInfo{"com.quintelbarrows.wrenhaven", "0.1.0", "7"},
                         services, access, status, monitor, {move, launcher}};
    delegate.setUserInterface(&tray);
    delegate.applicationDidFinishLaunching();
    EXPECT_EQ(store.object(StatusKeys::trayProblem), StoreValue::string(c.problem));
    rt.advance(AppDelegate::trayGrace - 0.5);
    const int before = settingsProgram.ended;
    rt.advance(1);
    EXPECT_EQ(settingsProgram.ended - before, c.openedAfterGrace);
    // A tray that comes later is published as soon as it says so.
    tray.problem.clear();
    tray.changed();
    rt.runReady();
    EXPECT_EQ(store.object(StatusKeys::trayProblem), StoreValue::string(""));
  }
}

}  // namespace
}  // namespace wh::test
