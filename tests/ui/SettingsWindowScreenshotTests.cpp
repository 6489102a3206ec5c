// The settings window and the first-run guide on an X display (Xvfb) over a real settings file,
// in the light and the dark theme. Each page and step is saved as a picture for review; the checks
// are what the controls write and which commands reach the agent.
#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

#include "core/app/AgentStatus.h"
#include "core/texts/PlatformTexts.h"
#include "doubles/FakeHotkeys.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "settings/AudioInputs.h"
#include "settings/SettingsReport.h"
#include "settings/OnboardingGuide.h"
#include "settings/SettingsFileWatch.h"
#include "settings/SettingsWindow.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"
#include "support/TempDir.h"
#include "support/WidgetsApplication.h"
#include "ui/hotkeys/HotkeyRecorderPanel.h"
#include "ui/kit/NJControls.h"
#include "ui/kit/NJFonts.h"

namespace wh::test {
namespace {

TEST(SettingsWindowTest, PagesAndGuideWriteTheSettingsAndSendCommands) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  nj::NJFonts::registerFonts();

  TempDir home("settings-window");
  platform::JsonFileStore store(home.path() / "settings.json");
  NotificationCenter notifications;
  struct Recorder final : CommandSender {
    std::vector<std::string> sent;
    void send(const std::string& command, const nlohmann::json&) override { sent.push_back(command); }
  } agent;
  Settings settings(store, notifications, false, &agent);
  const std::string buds = "aa-bb-cc-dd-ee-ff";
  settings.addDevice(buds, "Sleep Buds");
  store.set(StatusKeys::bluetooth, StoreValue::fromJson({{buds, "connected"}}));
  store.set(StatusKeys::battery, StoreValue::fromJson({{buds, {{"left", 80}, {"right", 15}}}}));
  store.set(StatusKeys::paired, StoreValue::fromJson(nlohmann::json::array(
                                    {{{"address", buds}, {"name", "Sleep Buds"}}, {{"address", "11-22-33-44-55-66"}, {"name", "Studio Cans"}}})));
  store.set(StatusKeys::volumeApps, StoreValue::fromJson(nlohmann::json::array({{{"bundleID", "org.radio"}, {"name", "Radio"}, {"gain", 1.0}}})));
  store.set(StatusKeys::launchAtLogin, StoreValue::string("not a bool"));

  // A private sound server: the microphones to choose from, and the report's (which has no service to go to).
  auto computer = PulseRig::laptopWithHeadphones();
  computer.push_back({false, "alsa_input.usb-yeti", "Yeti", 48000, 1, {{"device.bus", "usb"}}});
  PulseRig sound(computer);
  REQUIRE_RIG(sound.available(), sound.whyNot());
  platform::QtRuntime runtime;
  platform::PulseAudioHardware::Options server;
  server.server = sound.server();
  platform::AudioStack audio(runtime, server);
  settingsapp::SettingsReport report(runtime, settings, audio, {"org.example", "1.0", "1"}, {"", "help@example.com"});
  FakeHotkeyService keyboard;
  hotkeys::HotkeyRecorderPanel recorderPanel(&keyboard);
  HotkeyRecorder recorder({recorderPanel, &keyboard, &keyboard});
  settingsapp::PageActions actions{[&](const std::string& command, const nlohmann::json& info) { agent.send(command, info); }, nullptr,
                                   [&](const std::string& device, HotkeyRecorder::Completion done) { recorder.record(device, std::move(done)); },
                                   &keyboard, [&report] { report.show(); }, "1.0 (1)", nullptr};

  settingsapp::SettingsWindow window(settings, actions, {[] { return false; }, [] {}, nullptr, 3000});
  settingsapp::AudioInputs inputs(runtime, audio.hardware, [&](auto devices) { window.setAudioDevices(std::move(devices)); });
  settingsapp::SettingsFileWatch fileWatch(home.path() / "settings.json", [&] { window.refresh(); });
  auto redraw = notifications.observe(Settings::changedName, [&](const std::string&) { window.refresh(); });
  window.show();
  QApplication::processEvents();
  // Ctrl+F5 pressed in the recorder lands in the headphones' record and on the page.
  ASSERT_TRUE(press(window, "Record"));
  QKeyEvent ctrlF5(QEvent::KeyPress, Qt::Key_F5, Qt::ControlModifier, 96, 0, 0);
  QApplication::sendEvent(recorderPanel.window(), &ctrlF5);
  QApplication::processEvents();
  EXPECT_EQ(settings.devices().at(0).hotkey, (HotkeyCombo{96, HotkeyModifier::control}));
  const auto shownHotkey = [&] { return window.findChild<QWidget*>("hotkeyClear")->parentWidget()->parentWidget()->accessibleDescription(); };
  EXPECT_EQ(shownHotkey(), QString("⌃F5"));
  const auto microphones = [&] { return window.findChildren<nj::NJKitRow*>("microphoneChoice"); };
  const auto shown = [](const char* title) { return QTest::qWaitFor([title] { return std::ranges::any_of(QApplication::topLevelWidgets(),
      [title](QWidget* top) { return top->isVisible() && (top->objectName() == title || top->windowTitle() == title); }); }); };
  const char* pages[] = {"headphones", "music-quality", "media-keys", "volume", "general"};
  for (int page = 0; page < 5; ++page) {
    window.showPage(static_cast<settingsapp::PageBuilder::Page>(page));
    QApplication::processEvents();
    if (page == 1) { ASSERT_TRUE(QTest::qWaitFor([&] { return microphones().size() == 2; })); }
    saveInBothThemes(window, QString("settings-") + pages[page]);
    if (page == 1) {
      EXPECT_EQ(microphones()[0]->accessibleDescription() + microphones()[1]->accessibleName(), "ChosenYeti") << "no Bluetooth input";
      QTest::mouseClick(microphones()[1], Qt::LeftButton);
      EXPECT_EQ(preferredInputUID(settings), "alsa_input.usb-yeti");
      // Text being typed survives a status change that draws the page again, and is written when done.
      const auto meetingApps = [&] { return window.findChild<QLineEdit*>(); };
      QApplication::setActiveWindow(&window);
      meetingApps()->setFocus();
      QTest::keyClicks(meetingApps(), "zoom, tea");
      const QPointer<QLineEdit> typedInto = meetingApps();
      store.set(StatusKeys::pinStatus, StoreValue::string("fighting"));
      window.refresh();
      ASSERT_TRUE(QTest::qWaitFor([&] { return !typedInto; })) << "the page is drawn again";
      EXPECT_EQ(meetingApps()->text(), "zoom, tea") << "and keeps what was typed";
      EXPECT_FALSE(settings.store().object(Keys::meetingApps)) << "nothing written while typing";
      QTest::keyClicks(meetingApps(), "ms");
      QTest::keyClick(meetingApps(), Qt::Key_Return);
      EXPECT_EQ(settings.store().object(Keys::meetingApps)->asStringArray(), (std::vector<std::string>{"zoom", "teams"}));
    }
    if (page == 4) {
      EXPECT_TRUE(press(window, "About") && shown("About Wrenhaven"));
      ASSERT_TRUE(press(window, "Report a Problem") && shown("reportPanel"));
      const auto tops = QApplication::topLevelWidgets();
      ASSERT_TRUE(press(**std::ranges::find(tops, QString("reportPanel"), &QObject::objectName), "Send Report"));
      EXPECT_TRUE(shown("Could not send the report.")) << "the archive was put together";
      platform::JsonFileStore(home.path() / "settings.json").set(Keys::hideMenuIcon, StoreValue::boolean(true));
      EXPECT_TRUE(QTest::qWaitFor([&] { return !window.findChild<nj::NJSwitch*>(texts::kShowTrayIcon)->isChecked(); }))
          << "the file edited by hand while the window is open: the tray icon switch follows";
    }
    if (page == 3) {
      auto* slider = window.findChild<nj::NJSlider*>();
      ASSERT_NE(slider, nullptr) << "the running app has a volume slider";
      slider->setValue(40);
      EXPECT_FLOAT_EQ(settings.appVolumes()["org.radio"].gain, 0.4F);
      QApplication::processEvents();
      ASSERT_TRUE(press(window, "Mute"));
      EXPECT_TRUE(settings.appVolumes()["org.radio"].muted) << "the labelled button mutes, keeping the gain";
      EXPECT_FLOAT_EQ(settings.appVolumes()["org.radio"].gain, 0.4F);
      // The app goes quiet and drops off the list; the section stays, and so does the problem.
      store.set(StatusKeys::volumeApps, StoreValue::fromJson(nlohmann::json::array()));
      store.set(StatusKeys::volumeProblem, StoreValue::string(AppVolumeController::permissionText));
      window.refresh();
      QApplication::processEvents();
      saveInBothThemes(window, "settings-volume-empty");
      QStringList texts;
      for (auto* label : window.findChildren<QLabel*>()) texts << label->text();
      for (auto* row : window.findChildren<nj::NJKitRow*>()) texts << row->accessibleName();
      EXPECT_TRUE(texts.contains("Apps appear here when they play sound.")) << texts.join("|").toStdString();
      EXPECT_TRUE(texts.contains("Allow audio recording")) << texts.join("|").toStdString();
      EXPECT_TRUE(press(window, "Try Again"));
    }
  }
  window.showPage(settingsapp::PageBuilder::Page::headphones);
  QApplication::processEvents();
  EXPECT_TRUE(press(window, "Clear"));
  EXPECT_FALSE(settings.devices().at(0).hotkey);
  EXPECT_TRUE(press(window, "Disconnect"));
  EXPECT_TRUE(press(window, "Remove Sleep Buds"));
  EXPECT_TRUE(settings.devices().empty());

  // The guide: its headphones step keeps the paired list fresh and adds what is chosen.
  settingsapp::OnboardingGuide guide(settings, actions);
  bool finished = false;
  QObject::connect(&guide, &settingsapp::OnboardingGuide::finished, [&] { finished = true; });
  guide.show();
  const char* steps[] = {"welcome", "bluetooth", "choose", "music", "keys", "login", "done"};
  for (int step = 0; step < 7; ++step) {
    guide.go(static_cast<settingsapp::OnboardingGuide::Step>(step));
    QApplication::processEvents();
    saveInBothThemes(guide, QString("settings-guide-") + steps[step]);
    if (step == 1) {
      // bluetoothd is missing: the guide and the window say so and how to start it; nothing waits.
      store.set(StatusKeys::bluetoothAdapter, StoreValue::string("noService"));
      guide.refresh();
      window.refresh();
      QApplication::processEvents();
      saveInBothThemes(guide, "settings-guide-bluetooth-missing");
      QStringList said;
      for (auto* label : guide.findChildren<QLabel*>()) said << label->text();
      EXPECT_TRUE(said.join("|").contains("systemctl enable --now bluetooth")) << said.join("|").toStdString();
      EXPECT_FALSE(press(guide, "Allow Bluetooth…"));
      bool headed = false;
      for (auto* header : window.findChildren<nj::NJSectionHeader*>()) headed = headed || header->accessibleName() == "Bluetooth is not running";
      EXPECT_TRUE(headed) << "the headphones page says it too";
      store.set(StatusKeys::bluetoothAdapter, StoreValue::string("on"));
      guide.refresh();
      QApplication::processEvents();
    }
    if (step == 2) {
      EXPECT_TRUE(press(guide, "Add"));
    }
  }
  EXPECT_TRUE(press(guide, "Finish"));
  EXPECT_TRUE(finished);
  EXPECT_TRUE(settings.boolValue(Keys::onboardingDone, false));
  ASSERT_EQ(settings.devices().size(), 2U - 1U);
  EXPECT_EQ(agent.sent, (std::vector<std::string>{"reload", "reload", "reload", "reload", "reload", "reload", "reload", "reload", "toggle", "reload",
                                                  "onboardingVisible", "reload", "onboardingVisible", "reload"}));
}

}  // namespace
}  // namespace wh::test
