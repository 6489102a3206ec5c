// Attributing processes to applications: unit names, Flatpak instances, desktop entries, the
// parent walk and the id-prefix rules.
#include <gtest/gtest.h>

#include "AudioWorld.h"

namespace wh {
namespace {

TEST(AppIdentity, TheInnermostSystemdAppUnitOrTheFlatpakInstanceNamesTheApplication) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"/user.slice/user@1000.service/app.slice/app-gnome-org.gnome.Terminal-12345.scope", "org.gnome.Terminal"},
      {"/app.slice/app-firefox-4242.scope", "firefox"},
      {"/app.slice/app-gnome-firefox\\x2desr-9.scope", "firefox-esr"},
      {"/app.slice/app-org.example.Player@a1b2.service", "org.example.Player"},
      {"/app.slice/app-kde-org.kde.dolphin@3.service", "org.kde.dolphin"},
      {"/app.slice/app-org.example.Daemon.service", "org.example.Daemon"},
      {"/app.slice/app-gnome-org.gnome.Terminal-1.scope/app-gnome-org.example.Inner-2.scope", "org.example.Inner"},
      {"/app.slice/app-gnome\\x2dsession\\x2dmanager.slice", std::nullopt},
      {"/user.slice/user-1000.slice/session-2.scope", std::nullopt},
  };
  for (const auto& [path, expected] : cases) EXPECT_EQ(appIDFromControlGroup(path), expected) << path;
  EXPECT_EQ(appIDFromFlatpakInfo("[Instance]\nname=wrong\n[Application]\nname = org.example.App\n"), "org.example.App");
  EXPECT_FALSE(appIDFromFlatpakInfo("[Runtime]\nname=org.freedesktop.Platform\n"));
  const auto entry = DesktopEntry::parse("org.example.Player", "[Desktop Entry]\n#\nType=Application\nExec=env A=1 "
                                         "\"/opt/Example Player/player\" %U\nNoDisplay=true\n[Other]\nExec=other\n");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->program(), "player");
  EXPECT_TRUE(entry->noDisplay);
  EXPECT_FALSE(DesktopEntry::parse("link", "[Desktop Entry]\nType=Link\n"));
  EXPECT_FALSE(DesktopEntry::parse("loose", "Type=Application\nExec=x\n")) << "keys outside the group";
}

class AppGroupingTest : public testing::Test, protected test::AudioWorld {};

TEST_F(AppGroupingTest, AProcessIsNamedByItsUnitFlatpakDesktopEntryOrProgramAndRunningAppsHaveEntries) {
  desktop.set({{"org.example.Editor", "editor %F", "EditorMain", false, false},
               {"org.example.Player", "player", "", false, true},  // deleted: hides the next one
               {"org.example.Player", "player", "", false, false},
               {"org.example.Tray", "tray", "", true, false},
               {"com.apple.Helper", "applehelper", "", true, false},
               {"com.apple.Music", "music", "", false, false},
               {"org.example.Flat", "/usr/bin/flatpak run org.example.Flat", "", false, false}});
  const std::string flatpak = "[Application]\nname=org.example.Flat\n";
  table.processes = {{10, {1, "/usr/bin/editor", "/app.slice/app-gnome-org.example.Unit-10.scope", flatpak}},
                     {11, {1, "/usr/bin/editor", "/user.slice/session-2.scope", flatpak}},
                     {12, {1, "/usr/bin/editor", {}, {}}},     {13, {1, "/usr/lib/tool (deleted)", {}, {}}},
                     {14, {1, "/usr/bin/Editormain", {}, {}}}, {15, {1, "/usr/bin/player", {}, {}}},
                     {16, {1, "/usr/bin/flatpak", {}, {}}},    {17, {1, "/usr/bin/tray", {}, {}}},
                     {18, {1, "/usr/bin/applehelper", {}, {}}}, {19, {1, "/usr/bin/music", {}, {}}}};
  const std::vector<std::pair<int, std::optional<std::string>>> cases = {
      {10, "org.example.Unit"}, {11, "org.example.Flat"}, {12, "org.example.Editor"}, {13, "tool"},
      {14, "org.example.Editor"}, {15, "player"}, {16, "flatpak"}, {20, std::nullopt}, {0, std::nullopt}};
  for (const auto& [pid, expected] : cases) EXPECT_EQ(grouping.bundleIdentifier(pid), expected) << pid;
  using Set = std::set<std::string>;
  EXPECT_EQ(grouping.runningAppIDs(),
            (Set{"org.example.Editor", "org.example.Flat", "org.example.Tray", "com.apple.Music"}));
  EXPECT_EQ(grouping.regularAppIDs(), (Set{"org.example.Editor", "org.example.Flat", "com.apple.Music"}));
}

TEST_F(AppGroupingTest, TheOwnerIsARunningAppAtMostFourParentsUpElseTheLongestDottedPrefixOfItsId) {
  runApp("org.example.Browser", 100);
  for (int pid = 101; pid <= 105; ++pid) table.processes[pid] = {pid - 1, "/usr/lib/renderer", {}, {}};
  table.processes[1] = {0, "/usr/bin/org.example.Browser", {}, {}};
  table.processes[201] = {1, "/usr/lib/renderer", {}, {}};
  const std::set<std::string> running{"org.example.Browser", "com.example", "com.example.browser", "com.apple.Safari",
                                      "org.Zed.app"};
  const std::vector<std::tuple<int, std::string, std::string>> cases = {
      {104, "renderer", "org.example.Browser"},
      {105, "renderer", "renderer"},  // five steps are too many
      {201, "renderer", "renderer"},  // pid 1 is never asked
      {105, "org.example.Browser.renderer", "org.example.Browser"},
      {0, "COM.Example.Browser.Helper", "com.example.browser"},
      {0, "org.zed.app.x", "org.Zed.app"},
      {0, "com.examplebrowser.helper", "com.examplebrowser.helper"},
      {0, "com.apple.WebKit.GPU", "com.apple.Safari"},
  };
  for (const auto& [pid, id, owner] : cases) EXPECT_EQ(grouping.owningApp(pid, id, running), owner) << pid << id;
  EXPECT_EQ(AppGrouping::parent("com.apple.WebKit.GPU", {"com.example"}), "com.apple.WebKit.GPU");
}

}  // namespace
}  // namespace wh
