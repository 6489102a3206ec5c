// The panel and the device menu drawn by Qt on an X display (Xvfb), in the light and the dark
// theme, over the components on the virtual clock. Each state is saved as a picture for review;
// the checks are what the pictures show: rows, actions and the panel's shortcut.
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMenu>
#include <QTest>

#include "core/AgentWorld.h"
#include "core/ui/DeviceMenu.h"
#include "support/TrayRig.h"
#include "ui/kit/NJAboutWindow.h"
#include "ui/kit/NJControls.h"
#include "ui/kit/NJMenu.h"
#include "ui/tray/TrayUserInterface.h"

namespace wh::test {
namespace {

void application(const TrayRig& rig) {
  static int argc = 1;
  static char name[] = "ui_tests";
  static char* argv[] = {name, nullptr};
  if (QApplication::instance() == nullptr) ::setenv("DISPLAY", rig.display().c_str(), 1), new QApplication(argc, argv);
}

class PanelScreenshotTest : public AgentWorld {
 protected:
  void SetUp() override {
    if (!rig.available()) GTEST_SKIP() << rig.whyNot();
    application(rig);
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
    QDir().mkpath(WRENHAVEN_SCREENSHOT_DIR);
    for (const char* theme : {"light", "dark"}) {
      const bool dark = theme[0] == 'd';
      QApplication::setPalette(dark ? QPalette(QColor(0x2b, 0x2b, 0x2b)) : QPalette(QColor(0xf4, 0xf4, 0xf4)));
      QApplication::processEvents();
      widget.grab().save(QString(WRENHAVEN_SCREENSHOT_DIR "/%1-%2.png").arg(name, theme));
    }
    std::string buttons;
    for (auto* button : widget.findChildren<nj::NJButton*>()) buttons += button->text().toStdString() + "|";
    return buttons;
  }
  void pin() {
    hardware.defaults[AudioProperty::defaultInputDevice] = 3;
    hardware.notify(audioSystemObject, AudioProperty::defaultInputDevice);
    rt.advance(0.4);
  }

  static inline TrayRig rig{""};
  tray::TrayUserInterface view{{rt, services, settings, hardware, access, "0.1.0 (1)", {}}};
  std::unique_ptr<ui::StatusMenuController> menu;
  int settingsOpened = 0;
};

TEST_F(PanelScreenshotTest, ThePanelDrawsItsStatesInBothThemesAndTheDeviceMenuItsEntries) {
  menu->clicked();
  rt.drainSerialQueues();
  ASSERT_TRUE(view.panel() && view.panel()->isVisible());
  EXPECT_EQ(shoot("panel-first-run", *view.panel()), "More options|Allow Bluetooth…|Allow Headphone Mic Now|Microphone and calls ▾|");

  authority.change(BluetoothAuthorization::allowedAlways);
  remember();
  services.bluetooth.set(buds, BluetoothManager::Phase::connected());
  sources.live = {{"Sleep Buds", buds, {std::nullopt, std::nullopt, std::nullopt, 15, {}}}};
  menu->willOpen();
  rt.drainSerialQueues();
  services.pinner.start();
  pin();
  hardware.defaults[AudioProperty::defaultOutputDevice] = 4;
  menu->refresh();
  EXPECT_EQ(shoot("panel-connected-pinned", *view.panel()),
            "More options|Add Headphones…|Allow Headphone Mic Now|Microphone and calls ▾|");
  QTest::keyClick(view.panel(), Qt::Key_Comma, Qt::ControlModifier);
  EXPECT_EQ(settingsOpened, 1);

  for (int correction = 0; correction < 6; ++correction) pin();
  menu->refresh();
  EXPECT_EQ(shoot("panel-fighting", *view.panel()),
            "More options|Add Headphones…|Try Again|Allow Headphone Mic Now|Microphone and calls ▾|");

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
  nj::NJMenu::fill(deviceMenu, ui::DeviceMenu::fill({services, settings, rt.clock().wallNow(), nullptr}, settings.devices()[0]));
  deviceMenu.popup(QPoint(400, 200));
  QApplication::processEvents();
  shoot("device-menu", deviceMenu);
  EXPECT_EQ(deviceMenu.actions().size(), 12);
  nj::NJAboutWindow about("0.1.0 (1)");
  about.show();
  shoot("about", about);
}

}  // namespace
}  // namespace wh::test
