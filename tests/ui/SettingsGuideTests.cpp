// The first-run guide keeps its place across closing and opening: a quit, or "Not Now" to another
// question, brings it back at the step it showed; once finished it starts over.
#include <gtest/gtest.h>

#include <QLabel>

#include "core/app/AgentStatus.h"
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

class SettingsGuideTest : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
    actions.send = [this](const std::string& command, const nlohmann::json& info) { agent.send(command, info); };
  }
  MemoryStore store;
  NotificationCenter notifications;
  Sent agent;
  Settings settings{store, notifications, false, &agent};
  settingsapp::PageActions actions;
};

TEST_F(SettingsGuideTest, ReopensAtTheStepItWasClosedOnAndAfterFinishingAtTheStart) {
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

// The last step promises the tray icon only where a tray shows it; elsewhere it says why not.
TEST_F(SettingsGuideTest, TheLastStepSaysWhyThereIsNoTrayIconWhereThereIsNone) {
  const auto shownTexts = [&](const std::string& problem) {
    store.set(StatusKeys::trayProblem, StoreValue::string(problem));
    settingsapp::OnboardingGuide guide(settings, actions);
    guide.go(Step::done);
    QApplication::processEvents();
    std::string texts;
    for (auto* label : guide.findChildren<QLabel*>()) texts += label->text().toStdString() + "|";
    return texts;
  };
  EXPECT_NE(shownTexts("").find("Its icon in the tray connects your headphones."), std::string::npos);
  const std::string missing = shownTexts("Add a tray to the panel.");
  EXPECT_EQ(missing.find("Its icon in the tray"), std::string::npos) << missing;
  EXPECT_NE(missing.find("Add a tray to the panel."), std::string::npos) << missing;
}

}  // namespace
}  // namespace wh::test
