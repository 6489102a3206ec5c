// The settings window says what it shows may be out of date only when the running agent does not
// answer the status question in time.
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

#include "doubles/MemoryStore.h"
#include "settings/SettingsWindow.h"
#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"

namespace wh::test {
namespace {

TEST(SettingsStatusTest, TheOutOfDateLineShowsOnlyWhenTheAskedAgentDoesNotAnswer) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings(store, notifications, false, nullptr);
  bool running = true;
  int asked = 0;
  settingsapp::SettingsWindow window(settings, {}, {[&] { return running; }, [] {}, [&] { ++asked; }, 200});
  auto* banner = window.findChild<QLabel*>("statusBanner");
  ASSERT_NE(banner, nullptr);
  const auto shown = [&] {
    QApplication::processEvents();
    return banner->isVisibleTo(&window) ? banner->text().toStdString() : std::string();
  };
  constexpr char outOfDate[] = "Wrenhaven does not answer: what is shown may be out of date.";

  window.askStatus();
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(shown(), "") << "no warning while the answer may still come";
  window.statusAnswered();
  QTest::qWait(400);
  EXPECT_EQ(shown(), "") << "answered in time";

  window.askStatus();
  EXPECT_EQ(shown(), "") << "asked again: the agent restarted";
  EXPECT_TRUE(QTest::qWaitFor([&] { return shown() == outOfDate; }, 2000)) << "no answer within the wait";
  window.statusAnswered();
  EXPECT_EQ(shown(), "");

  running = false;
  window.askStatus();
  window.refresh();  // as the agent's leaving the bus does
  EXPECT_EQ(asked, 2) << "nobody to ask";
  EXPECT_EQ(shown(), "Wrenhaven is not running: the settings are saved, but nothing acts on them.");
}

}  // namespace
}  // namespace wh::test
