// The panel and the device menu drawn by Qt on an X display (Xvfb), in the light and the dark
// theme, over the components on the virtual clock. Each state is saved as a picture for review;
// the checks are what the pictures show: rows, actions and the panel's shortcut.
#include <QApplication>
#include <QElapsedTimer>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTest>

#include "core/AgentWorld.h"
#include "core/ui/DeviceMenu.h"
#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"
#include "ui/kit/NJAboutWindow.h"
#include "ui/kit/NJControls.h"
#include "ui/kit/NJMenu.h"
#include "ui/panels/IdlePlayWindow.h"
#include "ui/panels/ReportWindow.h"
#include "ui/tray/TrayUserInterface.h"

namespace wh::test {
namespace {

class PanelScreenshotTest : public AgentWorld {
 protected:
  void SetUp() override {
    REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
    hardware.deviceList = {{2, "alsa_input.pci", "Laptop Mic", Transport::builtIn, 1, 0, 48000},
                           {3, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Sleep Buds", Transport::bluetooth, 1, 0, 16000},
                           {4, "bluez_output.AA_BB_CC_DD_EE_FF.1", "Sleep Buds", Transport::bluetooth, 0, 1, 48000}};
    hardware.defaults[AudioProperty::defaultInputDevice] = 2;
    view.registerFonts();
    menu = view.makeStatusMenu();
    menu->openSettings = [this] { ++settingsOpened; };
  }
  // Saves the widget in both themes; answers the names of the buttons it shows.
  std::string shoot(const char* name, QWidget& widget) {
    saveInBothThemes(widget, name);
    std::string buttons;
    for (auto* button : widget.findChildren<nj::NJButton*>()) buttons += button->text().toStdString() + "|";
    return buttons;
  }
  void pin() {
    hardware.defaults[AudioProperty::defaultInputDevice] = 3;
    hardware.notify(audioSystemObject, AudioProperty::defaultInputDevice);
    rt.advance(0.4);
  }

  ui::PanelServices countingKeyAccess() {
    ui::PanelServices extras;
    extras.showKeyAccess = [this] { ++keyAccessShown; };
    return extras;
  }

  int keyAccessShown = 0;
  tray::TrayUserInterface view{{rt, services, settings, hardware, access, "0.1.0 (1)", countingKeyAccess()}};
  std::unique_ptr<ui::StatusMenuController> menu;
  int settingsOpened = 0;
};

TEST_F(PanelScreenshotTest, ThePanelDrawsItsStatesInBothThemesAndTheDeviceMenuItsEntries) {
  menu->clicked();
  rt.drainSerialQueues();
  ASSERT_TRUE(view.panel() && view.panel()->isVisible());
  EXPECT_EQ(shoot("panel-first-run", *view.panel()), "More options|Allow Bluetooth…|Allow Headphone Mic Now|Microphone and calls ▾|Media key options ▾|");
  stack.adapter = BluetoothAdapterState::noService;  // bluetoothd is not running: nothing offers to wait for it
  menu->refresh();
  EXPECT_EQ(shoot("panel-bluetooth-missing", *view.panel()), "More options|Allow Headphone Mic Now|Microphone and calls ▾|Media key options ▾|");
  stack.adapter = BluetoothAdapterState::on;

  authority.change(BluetoothAuthorization::allowedAlways);
  remember();
  services.bluetooth.set(buds, BluetoothManager::Phase::connected());
  sources.live = {{"Sleep Buds", buds, {.single = 15}}};
  menu->willOpen();
  rt.drainSerialQueues();
  services.pinner.start();
  pin();
  hardware.defaults[AudioProperty::defaultOutputDevice] = 4;
  menu->refresh();
  EXPECT_EQ(shoot("panel-connected-pinned", *view.panel()),
            "More options|Add Headphones…|Allow Headphone Mic Now|Microphone and calls ▾|Media key options ▾|");
  QTest::keyClick(view.panel(), Qt::Key_Comma, Qt::ControlModifier);
  EXPECT_EQ(settingsOpened, 1);

  for (int correction = 0; correction < 6; ++correction) pin();
  menu->refresh();
  EXPECT_EQ(shoot("panel-fighting", *view.panel()),
            "More options|Add Headphones…|Try Again|Allow Headphone Mic Now|Microphone and calls ▾|Media key options ▾|");

  // Warm: the panel exists and opens again.
  menu->clicked();
  rt.advance(1);
  QElapsedTimer clock;
  clock.start();
  menu->clicked();
  QApplication::processEvents();
  RecordProperty("click_to_panel_us", static_cast<int>(clock.nsecsElapsed() / 1000));
  EXPECT_TRUE(view.panel()->isVisible());

  QMenu deviceMenu;
  const auto refill = [&] {
    nj::NJMenu::fill(deviceMenu, ui::DeviceMenu::fill({services, settings, rt.clock().wallNow(), nullptr}, settings.devices()[0]));
  };
  refill();
  deviceMenu.popup(QPoint(400, 200));
  QApplication::processEvents();
  shoot("device-menu", deviceMenu);
  EXPECT_EQ(deviceMenu.actions().size(), 12);
  // The tray refills a device's menu after every change it shows: nothing may pile up.
  const auto menus = deviceMenu.findChildren<QObject*>().size();
  ASSERT_GT(deviceMenu.findChildren<QMenu*>().size(), 0U) << "the device menu has submenus";
  for (int again = 0; again < 50; ++again) refill();
  EXPECT_EQ(deviceMenu.findChildren<QObject*>().size(), menus) << "refills leave nothing behind";
  nj::NJAboutWindow about("0.1.0 (1)");
  about.show();
  shoot("about", about);
}

TEST_F(PanelScreenshotTest, MediaKeysAppVolumesTheIdlePlayPanelAndTheReportDrawTheirStates) {
  store.set(Keys::mediaKeysEnabled, StoreValue::boolean(true));
  services.mediaKeys.sync();
  processTable.processes[40] = {1, "/usr/bin/tuner", "/app.slice/app-gnome-tuner-40.scope", {}};
  desktopEntries.set({{"tuner", "tuner", "", false, false, "Tuner", "audio-x-generic"}});
  hardware.processList.push_back({40, 40, {}, false, true});
  monitor.start();
  services.volume.start();
  menu->clicked();
  rt.drainSerialQueues();
  EXPECT_EQ(shoot("panel-media-keys-apps", *view.panel()), "More options|Allow Bluetooth…|Allow Headphone Mic Now|"
            "Microphone and calls ▾|Allow Key Access…|Media key options ▾|Mute|");
  EXPECT_TRUE(press(*view.panel(), "Allow Key Access…"));
  EXPECT_EQ(keyAccessShown, 1) << "the steps are shown, not only logged";
  auto* slider = view.panel()->findChild<nj::NJSlider*>();
  ASSERT_TRUE(slider);
  slider->setValue(40);  // a click on the track, not a drag: written at once
  EXPECT_FLOAT_EQ(services.volume.setting("tuner").gain, 0.4F);
  // A status change while the slider is dragged leaves the drag alone; letting go draws it.
  QPointer<nj::NJSlider> dragged = view.panel()->findChild<nj::NJSlider*>();
  dragged->setSliderDown(true);
  dragged->setValue(70);
  services.mediaKeys.sync();
  menu->refresh();
  QApplication::processEvents();
  ASSERT_TRUE(dragged && dragged->isSliderDown()) << "the slider under the pointer was kept";
  EXPECT_FLOAT_EQ(services.volume.setting("tuner").gain, 0.4F) << "nothing written during the drag";
  dragged->setSliderDown(false);
  QApplication::processEvents();
  rt.advance(0.1);
  QApplication::processEvents();
  EXPECT_FLOAT_EQ(services.volume.setting("tuner").gain, 0.7F);
  EXPECT_FALSE(dragged) << "drawn again once let go";

  IdleChoice choice;
  IdlePlayAction chosen = IdlePlayAction::nothing;
  std::unique_ptr<QWidget> idle(panels::IdlePlayWindow::build(
      {ScriptablePlayer::music, {ScriptablePlayer::music}, &choice, [&](IdlePlayAction action) { chosen = action; }}));
  idle->show();
  EXPECT_EQ(shoot("idle-play", *idle), "Music|");
  idle->findChild<nj::NJButton*>()->click();
  idle->findChild<nj::NJSwitch*>()->click();
  EXPECT_TRUE(chosen == IdlePlayAction::music && choice.remember);

  panels::ReportWindow report("Debian GNU/Linux 12 (bookworm)");
  std::string sent;
  report.send = [&](const std::string& note, const std::string& email) { sent = note + "|" + email; };
  report.show();
  report.form()->findChild<QPlainTextEdit*>()->setPlainText("It hums");
  EXPECT_EQ(shoot("report", *report.form()), "Cancel|Save Report…|Send Report|");
  report.form()->findChildren<nj::NJButton*>().back()->click();
  EXPECT_EQ(sent, "It hums|");
  report.offerSave("The report could not be sent", "Save it instead and email it to support@example.com.", "/tmp/r.zip");
  EXPECT_EQ(shoot("report-failed", *report.result()), "Cancel|Save to File…|");
}

}  // namespace
}  // namespace wh::test
