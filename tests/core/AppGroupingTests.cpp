// Attributing processes to applications: unit names, Flatpak instances, desktop entries, the
// parent walk and the id-prefix rules.
#include <gtest/gtest.h>

#include "core/audio/AppGrouping.h"
#include "doubles/MemoryApps.h"

namespace wh {
namespace {

TEST(AppIdentity, SystemdAppUnitsNameTheApplication) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/app-gnome-org.gnome.Terminal-12345.scope",
       "org.gnome.Terminal"},
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/app-flatpak-org.mozilla.firefox-99.scope",
       "org.mozilla.firefox"},
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/app-firefox-4242.scope", "firefox"},
      {"/app.slice/app-gnome-firefox\\x2desr-9.scope", "firefox-esr"},
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/app-org.example.Player@a1b2.service",
       "org.example.Player"},
      {"/app.slice/app-kde-org.kde.dolphin@3.service", "org.kde.dolphin"},
      {"/app.slice/app-org.example.Daemon.service", "org.example.Daemon"},
      // The innermost app unit counts.
      {"/app.slice/app-gnome-org.gnome.Terminal-1.scope/app-gnome-org.example.Inner-2.scope", "org.example.Inner"},
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/app-gnome\\x2dsession\\x2dmanager.slice", std::nullopt},
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/vte-spawn-5f1c.scope", std::nullopt},
      {"/user.slice/user-1000.slice/session-2.scope", std::nullopt},
      {"/", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [path, expected] : cases) EXPECT_EQ(appIDFromControlGroup(path), expected) << path;
}

TEST(AppIdentity, FlatpakInfoAndDesktopEntriesAreRead) {
  EXPECT_EQ(appIDFromFlatpakInfo("[Instance]\nname=wrong\n\n[Application]\nname = org.example.App\nruntime=x\n"),
            "org.example.App");
  EXPECT_FALSE(appIDFromFlatpakInfo("[Runtime]\nname=org.freedesktop.Platform\n"));
  EXPECT_FALSE(appIDFromFlatpakInfo(""));

  const auto entry = DesktopEntry::parse("org.example.Player", R"([Desktop Entry]
# a comment
Name=Player
Name[de]=Spieler
Type=Application
Exec=env GDK_BACKEND=x11 "/opt/Example Player/player" --new-window %U
StartupWMClass=PlayerWindow
NoDisplay=true

[Desktop Action new]
Exec=something-else
)");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->program(), "player");
  EXPECT_EQ(entry->startupWMClass, "PlayerWindow");
  EXPECT_TRUE(entry->noDisplay);
  EXPECT_FALSE(entry->hidden);
  EXPECT_FALSE(DesktopEntry::parse("link", "[Desktop Entry]\nType=Link\nURL=https://example.org\n"));
  EXPECT_FALSE(DesktopEntry::parse("broken", "Type=Application\nExec=x\n")) << "keys outside the group";
  EXPECT_EQ(DesktopEntry::parse("hidden", "[Desktop Entry]\nType=Application\nHidden=true\n")->hidden, true);
  EXPECT_EQ((DesktopEntry{"x", "", "", false, false}).program(), "");
}

TEST(AppIdentity, CatalogLookupsHonourPrecedenceHiddenEntriesAndLaunchers) {
  const DesktopCatalog catalog({
      {"org.example.Player", "player %U", "", false, true},  // hidden here: hides the next one
      {"org.example.Player", "player", "", false, false},
      {"org.example.Editor", "/usr/bin/editor", "EditorMain", false, false},
      {"org.example.Editor", "/usr/bin/other", "", false, false},
      {"org.example.Flat", "/usr/bin/flatpak run org.example.Flat", "", false, false},
  });
  EXPECT_EQ(catalog.byID("org.example.Player"), nullptr);
  EXPECT_EQ(catalog.byProgram("player"), nullptr);
  EXPECT_EQ(catalog.byProgram("editor")->id, "org.example.Editor");
  EXPECT_EQ(catalog.byProgram("editormain")->id, "org.example.Editor") << "StartupWMClass, ignoring case";
  EXPECT_EQ(catalog.byProgram("other"), nullptr) << "the first entry of an id wins";
  EXPECT_EQ(catalog.byProgram("flatpak"), nullptr) << "launchers name no application";
  EXPECT_EQ(catalog.entries().size(), 2u);
}

class AppGroupingTest : public testing::Test {
 protected:
  MemoryProcessTable table;
  MemoryDesktopEntries desktop;
  AppGrouping grouping{table, desktop};
};

TEST_F(AppGroupingTest, BundleIdentifierTriesUnitThenFlatpakThenDesktopEntryThenProgramName) {
  desktop.set({{"org.example.Editor", "editor %F", "", false, false}});
  table.processes[10] = {1, "/usr/bin/editor", "/app.slice/app-gnome-org.example.Unit-10.scope", "[Application]\nname=org.example.Flat\n"};
  table.processes[11] = {1, "/usr/bin/editor", "/user.slice/session-2.scope", "[Application]\nname=org.example.Flat\n"};
  table.processes[12] = {1, "/usr/bin/editor", "/user.slice/session-2.scope", std::nullopt};
  table.processes[13] = {1, "/usr/lib/tool (deleted)", std::nullopt, std::nullopt};
  table.processes[14] = {1, std::nullopt, "/user.slice/session-2.scope", std::nullopt};
  EXPECT_EQ(grouping.bundleIdentifier(10), "org.example.Unit");
  EXPECT_EQ(grouping.bundleIdentifier(11), "org.example.Flat");
  EXPECT_EQ(grouping.bundleIdentifier(12), "org.example.Editor");
  EXPECT_EQ(grouping.bundleIdentifier(13), "tool");
  EXPECT_FALSE(grouping.bundleIdentifier(14)) << "no program to name";
  EXPECT_FALSE(grouping.bundleIdentifier(15)) << "gone";
  EXPECT_FALSE(grouping.bundleIdentifier(0));
  EXPECT_FALSE(grouping.bundleIdentifier(-3));
}

TEST_F(AppGroupingTest, RunningApplicationsAreProcessesWithDesktopEntriesByPolicy) {
  desktop.set({{"org.example.Player", "player", "", false, false},
               {"org.example.Tray", "tray", "", true, false},
               {"com.apple.Helper", "applehelper", "", true, false},
               {"com.apple.Music", "music", "", false, false},
               {"org.example.NotRunning", "absent", "", false, false}});
  table.processes[10] = {1, "/usr/bin/player", std::nullopt, std::nullopt};
  table.processes[11] = {10, "/usr/bin/player", std::nullopt, std::nullopt};  // a second process of the same app
  table.processes[12] = {1, "/usr/bin/tray", std::nullopt, std::nullopt};
  table.processes[13] = {1, "/usr/bin/applehelper", std::nullopt, std::nullopt};
  table.processes[14] = {1, "/usr/bin/music", std::nullopt, std::nullopt};
  table.processes[15] = {1, "/usr/bin/bash", std::nullopt, std::nullopt};
  EXPECT_EQ(grouping.runningApplications().size(), 4u);
  EXPECT_EQ(grouping.runningAppIDs(), (std::set<std::string>{"org.example.Player", "org.example.Tray", "com.apple.Music"}));
  EXPECT_EQ(grouping.regularAppIDs(), (std::set<std::string>{"org.example.Player", "com.apple.Music"}));
}

TEST_F(AppGroupingTest, OwningAppWalksAtMostFourParentsAndStopsAtInitOrAVanishedProcess) {
  desktop.set({{"org.example.Browser", "browser", "", false, false}});
  // 100 is the browser; 105 a renderer five generations below it, 104 four.
  table.processes[100] = {1, "/usr/bin/browser", std::nullopt, std::nullopt};
  for (int pid = 101; pid <= 105; ++pid) table.processes[pid] = {pid - 1, "/usr/lib/renderer", std::nullopt, std::nullopt};
  const auto running = grouping.runningAppIDs();
  ASSERT_EQ(running, (std::set<std::string>{"org.example.Browser"}));
  EXPECT_EQ(grouping.owningApp(101, "renderer", running), "org.example.Browser");
  EXPECT_EQ(grouping.owningApp(104, "renderer", running), "org.example.Browser");
  EXPECT_EQ(grouping.owningApp(105, "renderer", running), "renderer") << "five steps are too many";
  EXPECT_EQ(grouping.owningApp(105, "org.example.Browser.renderer", running), "org.example.Browser")
      << "then the id decides";
  EXPECT_EQ(grouping.owningApp(999, "org.example.Browser", running), "org.example.Browser") << "itself an app";

  table.processes.erase(102);  // ended while walking
  EXPECT_EQ(grouping.owningApp(104, "renderer", running), "renderer");
  table.processes[1] = {0, "/usr/bin/browser", std::nullopt, std::nullopt};
  table.processes[200] = {1, "/usr/bin/browser-lookalike", std::nullopt, std::nullopt};
  table.processes[201] = {200, "/usr/lib/renderer", std::nullopt, std::nullopt};
  EXPECT_EQ(grouping.owningApp(201, "renderer", running), "renderer") << "pid 1 is never asked";
  EXPECT_EQ(grouping.owningApp(0, "renderer", running), "renderer") << "no pid";
}

TEST(AppGroupingParent, LongestDottedPrefixWinsAndWebKitPlaysForSafari) {
  const std::set<std::string> running{"com.example", "com.example.browser", "com.apple.Safari"};
  EXPECT_EQ(AppGrouping::parent("com.example.browser.helper", running), "com.example.browser");
  EXPECT_EQ(AppGrouping::parent("COM.Example.Browser.Helper.Renderer", running), "com.example.browser");
  EXPECT_EQ(AppGrouping::parent("com.example.browser", running), "com.example.browser");
  EXPECT_EQ(AppGrouping::parent("com.examplebrowser.helper", running), "com.examplebrowser.helper")
      << "a prefix must end at a dot";
  EXPECT_EQ(AppGrouping::parent("com.apple.WebKit.GPU", running), "com.apple.Safari");
  EXPECT_EQ(AppGrouping::parent("com.apple.WebKit.GPU", {"com.example"}), "com.apple.WebKit.GPU");
  EXPECT_EQ(AppGrouping::parent("", running), "");
}

}  // namespace
}  // namespace wh
