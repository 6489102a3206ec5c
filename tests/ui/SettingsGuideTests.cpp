// The first-run guide keeps its place across closing and opening: a quit, or "Not Now" to another
// question, brings it back at the step it showed; once finished it starts over.
#include <gtest/gtest.h>

#include "doubles/MemoryStore.h"
#include "settings/OnboardingGuide.h"
#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"

namespace wh::test {
namespace {

using Step = settingsapp::OnboardingGuide::Step;

struct Sent final : CommandSender {
  std::vector<std::string> commands;
  void send(const std::string& command, const nlohmann::json& info) override {
    commands.push_back(command + (info.contains("value") ? "=" + info["value"].dump() : ""));
  }
};

TEST(SettingsGuideTest, ReopensAtTheStepItWasClosedOnAndAfterFinishingAtTheStart) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  MemoryStore store;
  NotificationCenter notifications;
  Sent agent;
  Settings settings(store, notifications, false, &agent);
  settingsapp::PageActions actions;
  actions.send = [&](const std::string& command, const nlohmann::json& info) { agent.send(command, info); };
  const auto reopened = [&] { return std::make_unique<settingsapp::OnboardingGuide>(settings, actions); };

  auto guide = reopened();
  EXPECT_EQ(guide->step(), Step::welcome) << "never opened before";
  guide->go(Step::mediaKeys);
  guide.reset();  // "Not Now" elsewhere, or the program quit
  EXPECT_EQ(reopened()->step(), Step::mediaKeys);

  guide = reopened();
  guide->go(Step::headphones);
  agent.commands.clear();
  guide.reset();
  guide = reopened();
  EXPECT_EQ(guide->step(), Step::headphones);
  EXPECT_EQ(agent.commands, (std::vector<std::string>{"onboardingVisible=false", "onboardingVisible=true"}))
      << "the agent keeps the paired list fresh again for the reopened step";

  guide->go(Step::done);
  QApplication::processEvents();
  ASSERT_TRUE(press(*guide, "Finish"));
  EXPECT_TRUE(settings.boolValue(Keys::onboardingDone, false));
  EXPECT_EQ(reopened()->step(), Step::welcome) << "a finished guide opened from the settings starts over";
}

}  // namespace
}  // namespace wh::test
