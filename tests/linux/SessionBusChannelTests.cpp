// The command and status signals between the agent and the settings program, on a private
// session bus, with a separate process in the settings program's place.
#include <gtest/gtest.h>

#include <signal.h>

#include <QDBusConnection>

#include <cstdint>
#include <limits>

#include "QtLoop.h"
#include "platform/linux/app/SessionBusChannel.h"
#include "support/DBusDaemon.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

using Commands = std::vector<std::pair<std::string, nlohmann::json>>;

TEST(SessionBusChannel, CommandsAndStatusSignalsTravelBetweenThePrograms) {
  test::qtApplication();
  test::DBusDaemon bus;
  REQUIRE_RIG(bus.available(), bus.whyNot());
  const auto address = QString::fromStdString(bus.address());
  SessionBusChannel agent(QDBusConnection::connectToBus(address, "channel-test-agent"));
  const auto other = QDBusConnection::connectToBus(address, "channel-test-settings");
  SessionBusChannel settingsSide(other);
  Commands commands;
  auto listening = agent.listen([&](const std::string& command, const nlohmann::json& info) {
    commands.emplace_back(command, info);
  });
  EXPECT_FALSE(agent.settingsAppRunning());

  test::ChildProcess settings({"/usr/bin/python3", WRENHAVEN_SETTINGS_STAND_IN, "--send-toggle"},
                              {{"DBUS_SESSION_BUS_ADDRESS", bus.address()}});
  ASSERT_TRUE(test::spinUntil([&] { return !commands.empty(); })) << settings.output();
  EXPECT_EQ(commands[0], Commands::value_type("toggle", {{"address", "aa-bb-cc-dd-ee-ff"}, {"value", true}, {"count", 3}}));
  EXPECT_TRUE(agent.settingsAppRunning());
  agent.postStatus();
  agent.postStatus();
  EXPECT_TRUE(test::spinUntil([&] { return settings.output() == "status 0\nstatus 0\n"; })) << settings.output();

  settingsSide.send("reload", nlohmann::json::object());
  settingsSide.send("onboardingVisible", {{"value", false}, {"ratio", 0.5}});
  ASSERT_TRUE(test::spinUntil([&] { return commands.size() == 3; }));
  EXPECT_EQ(commands[1], Commands::value_type("reload", nlohmann::json::object()));
  EXPECT_EQ(commands[2].second, (nlohmann::json{{"value", false}, {"ratio", 0.5}}));

  listening.reset();  // dropping the registration stops the handler
  settingsSide.send("reload", {});
  test::spinFor(200);
  EXPECT_EQ(commands.size(), 3u);
  settings.terminate(SIGKILL);
  EXPECT_TRUE(test::spinUntil([&] { return !agent.settingsAppRunning(); }, 5000));
  QDBusConnection::disconnectFromBus("channel-test-agent");
  QDBusConnection::disconnectFromBus("channel-test-settings");
}

TEST(SessionBusChannel, UserInfoNumbersKeepTheirValueBetweenTheBusAndTheCore) {
  for (const nlohmann::json& number :
       {nlohmann::json(std::numeric_limits<std::int64_t>::min()), nlohmann::json(-1), nlohmann::json(0U),
        nlohmann::json(std::numeric_limits<std::uint64_t>::max()), nlohmann::json(std::uint64_t{1} << 63),
        nlohmann::json(-0.25)}) {
    const nlohmann::json userInfo{{"count", number}};
    // As text: JSON's own comparison takes 2^64-1 for -1.
    EXPECT_EQ(SessionBusChannel::toJson(SessionBusChannel::fromJson(userInfo)).dump(), userInfo.dump());
  }
}

TEST(SessionBusChannel, WithoutABusDoesNothingAndSaysTheSettingsProgramIsNotRunning) {
  test::qtApplication();
  SessionBusChannel channel(QDBusConnection::connectToBus(QString("unix:path=/nonexistent/bus"), "no-bus"));
  auto listening = channel.listen([](const std::string&, const nlohmann::json&) {});
  channel.postStatus();
  channel.send("reload", {});
  EXPECT_FALSE(channel.settingsAppRunning());
}

}  // namespace
}  // namespace wh::platform
