// The settings program's guide and window, built in this process as its main wires them, against
// the real agent on the same private session bus, settings file, Bluetooth and sound rigs: headphones
// added in the guide become a tray item, a volume slider gives a playing application its gain at
// the sound server, and a command sent from the window comes back as status that the window shows.
#include <QDBusConnection>
#include <QLabel>

#include <gtest/gtest.h>

#include "core/app/AgentStatus.h"
#include "linux/QtLoop.h"
#include "platform/linux/app/SessionBusChannel.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "settings/OnboardingGuide.h"
#include "settings/SettingsWindow.h"
#include "settings/StatusSignal.h"
#include "support/AgentHome.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"
#include "support/SystemBusRig.h"
#include "support/WidgetsApplication.h"
#include "ui/kit/NJControls.h"

namespace wh::test {
namespace {

using namespace std::chrono_literals;
using Page = settingsapp::PageBuilder::Page;

constexpr int agentAnswerMs = 20000;  // generous: the agent and the rigs share two loaded cores

// What the window's row with that title shows at its end.
QString rowText(QWidget& window, const QString& title) {
  for (auto* row : window.findChildren<nj::NJKitRow*>()) {
    if (row->accessibleName() == title) return row->accessibleDescription();
  }
  return {};
}

TEST(SettingsEndToEndTest, GuideAddsATrayItemASliderSetsTheGainAndACommandComesBackAsStatus) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  SystemBusRig bus{{.bluez = true, .logind = false, .upower = false, .sessionBus = true, .denyBluez = false}};
  REQUIRE_RIG(bus.available(), bus.whyNot());
  TrayRig tray(bus.sessionBusAddress());
  REQUIRE_RIG(tray.available(), tray.whyNot());
  PulseRig pulse;
  REQUIRE_RIG(pulse.available(), pulse.whyNot());
  ASSERT_TRUE(bus.addHeadphones());
  AgentHome home;
  writeFile(home.path() / ".local/share/applications/org.example.Tone.desktop",
            "[Desktop Entry]\nType=Application\nName=Tone\nExec=pulse_client --tone\n");
  auto tone = pulse.client({"--tone"}, "application.id=org.example.Tone");
  ASSERT_TRUE(tone);
  const double full = pulse.level(PulseRig::laptopSpeakers);
  // Done, or the agent would start a settings program of its own on the display.
  home.writeSettings({{"onboardingDone", true}});
  auto environment = home.environment(bus.environment());
  for (const auto& [name, value] : pulse.clientEnvironment()) environment[name] = value;
  environment["DISPLAY"] = tray.display();
  std::string failure;
  auto agent = home.launch(environment, failure);
  ASSERT_TRUE(agent) << failure;

  const QString address = QString::fromStdString(bus.sessionBusAddress());
  const std::shared_ptr<void> disconnect(nullptr, [&](void*) { QDBusConnection::disconnectFromBus(address); });
  QDBusConnection connection = QDBusConnection::connectToBus(address, address);
  platform::JsonFileStore store(home.settingsFile());
  NotificationCenter notifications;
  platform::SessionBusChannel channel(connection);
  Settings settings(store, notifications, false, &channel);
  settingsapp::PageActions actions;
  actions.send = [&](const std::string& command, const nlohmann::json& info) { channel.send(command, info); };
  settingsapp::OnboardingGuide guide(settings, actions);
  settingsapp::SettingsWindow window(settings, actions,
                                    {[] { return true; }, [] {}, [&] { channel.send(statusCommand, nlohmann::json::object()); }, agentAnswerMs});
  int answers = 0;
  settingsapp::StatusSignal status(connection, [&] {
    ++answers;
    window.statusAnswered();
    guide.refresh();
  });

  // The guide's headphones step asks the agent for the paired list and remembers the choice.
  guide.show();
  guide.go(settingsapp::OnboardingGuide::Step::headphones);
  ASSERT_TRUE(spinUntil([&] { return press(guide, "Add"); }, agentAnswerMs)) << home.log();
  EXPECT_TRUE(eventually([&] { return !tray.itemShowing("WH-1000XM4").empty(); }, 20s)) << home.log();
  EXPECT_EQ(tray.items().size(), 2U) << "the main item and the headphones'";

  window.show();
  window.showPage(Page::volume);
  nj::NJSlider* slider = nullptr;
  ASSERT_TRUE(spinUntil([&] { return (slider = window.findChild<nj::NJSlider*>()) != nullptr; }, agentAnswerMs));
  EXPECT_EQ(slider->accessibleName(), "Tone");
  slider->setValue(50);
  EXPECT_NEAR(pulse.level(PulseRig::laptopSpeakers, full - 6.02), full - 6.02, 0.5) << home.log();
  EXPECT_EQ(home.status("agent.taps"), nlohmann::json({{"org.example.Tone", "gain"}}));

  // Only the status signal draws the page again after this.
  window.showPage(Page::headphones);
  ASSERT_TRUE(spinUntil([&] { return rowText(window, "Status") == "Not connected"; }, agentAnswerMs));
  ASSERT_TRUE(press(window, "Connect"));
  EXPECT_TRUE(eventually([&] { return bus.isConnected(SystemBusRig::headphonesAddress); }, 20s)) << home.log();
  EXPECT_TRUE(spinUntil([&] { return rowText(window, "Status") == "Connected"; }, agentAnswerMs))
      << rowText(window, "Status").toStdString();
  EXPECT_TRUE(agent->running());

  // With nothing new to say the agent still answers the question, and the window trusts what it shows.
  for (int ask = 0; ask < 2; ++ask) {
    const int before = answers;
    window.askStatus();
    EXPECT_TRUE(spinUntil([&] { return answers > before; }, agentAnswerMs)) << home.log();
  }
  EXPECT_FALSE(window.findChild<QLabel*>("statusBanner")->isVisibleTo(&window));
}

}  // namespace
}  // namespace wh::test
