// The command and status signals between the agent and the settings program, on a private
// session bus, with a separate process in the settings program's place.
#include <gtest/gtest.h>

#include <signal.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>

#include "QtLoop.h"
#include "doubles/MemoryStore.h"
#include "platform/linux/app/SessionBusChannel.h"
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"

namespace wh::platform {
namespace {

using namespace std::chrono_literals;

// Owns the settings program's bus name, prints "status" for every status signal, and sends the
// command given on its command line with a user-info dictionary of three plain values and one
// container (which the agent ignores).
constexpr const char* kSettingsProgram = R"(
import sys, dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(sys.argv[1])
bus.add_signal_receiver(lambda *args: print("status", len(args), flush=True), signal_name="status",
                        dbus_interface="com.quintelbarrows.wrenhaven", path="/com/quintelbarrows/wrenhaven")
bus.request_name("com.quintelbarrows.wrenhaven.settings")
def send():
    message = dbus.lowlevel.SignalMessage("/com/quintelbarrows/wrenhaven", "com.quintelbarrows.wrenhaven", "command")
    message.append(sys.argv[2], dbus.Dictionary({"address": dbus.String("aa-bb-cc-dd-ee-ff"),
        "value": dbus.Boolean(True), "count": dbus.Int32(3), "list": dbus.Array(["x"], signature="s")},
        signature="sv"))
    bus.send_message(message)
    print("sent", flush=True)
    return False
GLib.timeout_add(200, send)
GLib.MainLoop().run()
)";

class SessionBusChannelTest : public testing::Test {
 protected:
  void SetUp() override {
    test::qtApplication();
    if (!bus.available()) GTEST_SKIP() << bus.whyNot();
    connection = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(
        QString::fromStdString(bus.address()), QStringLiteral("channel-test-%1").arg(++count)));
    ASSERT_TRUE(connection->isConnected());
  }
  void TearDown() override {
    if (connection) QDBusConnection::disconnectFromBus(connection->name());
  }

  // The listener's match rule travels to the bus daemon on its own; a call answered on the same
  // connection afterwards means it is in place, so signals sent from now on reach it.
  void waitForMatchRules() const { connection->interface()->isServiceRegistered("org.freedesktop.DBus"); }

  test::DBusDaemon bus;
  std::unique_ptr<QDBusConnection> connection;
  static inline int count = 0;
};

TEST_F(SessionBusChannelTest, CommandsArriveWithTheirUserInfoAndStatusSignalsReachTheSettingsProgram) {
  SessionBusChannel channel(*connection);
  std::vector<std::pair<std::string, nlohmann::json>> commands;
  auto listening = channel.listen([&](const std::string& command, const nlohmann::json& userInfo) {
    commands.emplace_back(command, userInfo);
  });
  EXPECT_FALSE(channel.settingsAppRunning());

  test::ChildProcess settings({"/usr/bin/python3", "-c", kSettingsProgram, bus.address(), "toggle"});
  ASSERT_TRUE(test::spinUntil([&] { return !commands.empty(); }, 10000)) << settings.output();
  EXPECT_EQ(commands[0].first, "toggle");
  EXPECT_EQ(commands[0].second, (nlohmann::json{{"address", "aa-bb-cc-dd-ee-ff"}, {"value", true}, {"count", 3}}));
  EXPECT_TRUE(channel.settingsAppRunning());

  channel.postStatus();
  channel.postStatus();
  EXPECT_TRUE(test::spinUntil([&] { return settings.output().find("status 0\nstatus 0\n") != std::string::npos; }))
      << settings.output();

  // Dropping the registration stops the handler.
  listening.reset();
  test::ChildProcess again({"/usr/bin/python3", "-c", kSettingsProgram, bus.address(), "reload"});
  ASSERT_TRUE(again.waitForOutput("sent", 10s));
  test::spinFor(200);
  EXPECT_EQ(commands.size(), 1u);

  settings.terminate(SIGKILL);
  again.terminate(SIGKILL);
  EXPECT_TRUE(test::spinUntil([&] { return !channel.settingsAppRunning(); }, 5000));
}

TEST_F(SessionBusChannelTest, TheSettingsProgramsWritesAndCommandsReachTheAgentTheAgentsOwnWritesStayHome) {
  SessionBusChannel agent(*connection);
  auto other = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "channel-test-settings");
  SessionBusChannel settingsSide(other);
  std::vector<std::pair<std::string, nlohmann::json>> commands;
  auto listening = agent.listen([&](const std::string& command, const nlohmann::json& userInfo) {
    commands.emplace_back(command, userInfo);
  });
  waitForMatchRules();
  MemoryStore store;
  NotificationCenter notifications;
  Settings(store, notifications, true, &settingsSide).setCallMode(CallModeOption::automatic);
  Settings(store, notifications, false, &settingsSide).setCallMode(CallModeOption::alwaysPinned);
  settingsSide.send("onboardingVisible", {{"value", false}, {"ratio", 0.5}});
  ASSERT_TRUE(test::spinUntil([&] { return commands.size() == 2; }));
  EXPECT_EQ(commands[0], (std::pair<std::string, nlohmann::json>{"reload", nlohmann::json::object()}));
  EXPECT_EQ(commands[1].second, (nlohmann::json{{"value", false}, {"ratio", 0.5}}));
  test::spinFor(200);
  EXPECT_EQ(commands.size(), 2u) << "the agent's own write sent nothing";
  QDBusConnection::disconnectFromBus("channel-test-settings");
}

TEST(SessionBusChannelWithoutBus, DoesNothingAndSaysTheSettingsProgramIsNotRunning) {
  test::qtApplication();
  SessionBusChannel channel(QDBusConnection::connectToBus(QString("unix:path=/nonexistent/bus"), "no-bus"));
  auto listening = channel.listen([](const std::string&, const nlohmann::json&) {});
  channel.postStatus();
  channel.send("reload", {});
  EXPECT_FALSE(channel.settingsAppRunning());
}

}  // namespace
}  // namespace wh::platform
