// Process identities from a made-up /proc with odd entries, and from desktop entry files. (The
// adapter's live tests read the real /proc.)
#include <gtest/gtest.h>

#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

using test::writeFile;

TEST(ProcFsProcessTable, OddAndHalfGoneEntriesFailSoft) {
  test::TempDir root("wrenhaven-proc");
  writeFile(root.path() / "42" / "stat", "42 (a) b (c)) S 7 42 42 0 -1 4194560");
  writeFile(root.path() / "43" / "stat", "43 (truncated");
  std::filesystem::create_directories(root.path() / "44");  // its files went away mid-walk
  writeFile(root.path() / "45" / "cgroup",
            "12:pids:/\n1:name=systemd:/user.slice/app.slice/app-gnome-org.example.Old-1.scope\n");
  writeFile(root.path() / "46" / "cgroup",
            "1:name=systemd:/old\n0::/user.slice/app.slice/app-org.example.New@2.service\n");
  writeFile(root.path() / "46" / "root" / ".flatpak-info", "[Application]\nname=org.example.Flat\n");
  std::filesystem::create_symlink("/opt/tool (deleted)", root.path() / "46" / "exe");
  writeFile(root.path() / "self" / "stat", "not a pid");

  ProcFsProcessTable table(root.path());
  EXPECT_EQ(table.parentPid(42), 7) << "a name with spaces and parentheses";
  EXPECT_FALSE(table.parentPid(43) || table.parentPid(44) || table.executable(44) || table.flatpakInfo(44));
  EXPECT_EQ(table.controlGroup(45), "/user.slice/app.slice/app-gnome-org.example.Old-1.scope");
  EXPECT_EQ(table.controlGroup(46), "/user.slice/app.slice/app-org.example.New@2.service") << "unified hierarchy first";
  EXPECT_EQ(table.flatpakInfo(46), "[Application]\nname=org.example.Flat\n");
  EXPECT_EQ(table.executable(46), "/opt/tool (deleted)");
  auto pids = table.pids();
  std::sort(pids.begin(), pids.end());
  EXPECT_EQ(pids, (std::vector<std::int32_t>{42, 43, 44, 45, 46}));
}

TEST(XdgDesktopEntries, FindsEntriesByPrecedenceAndRereadsChangedFolders) {
  test::TempDir data("wrenhaven-xdg");
  const auto user = data.path() / "user", system = data.path() / "system", late = data.path() / "late";
  const auto entry = [](const std::string& exec, const std::string& extra = {}) {
    return "[Desktop Entry]\nType=Application\nName=X\nExec=" + exec + "\n" + extra;
  };
  writeFile(system / "org.example.Player.desktop", entry("player %U"));
  writeFile(system / "kde" / "org.kde.Viewer.desktop", entry("viewer", "StartupWMClass=ViewerMain\n"));
  writeFile(system / "org.example.Tray.desktop", entry("tray"));
  writeFile(system / "readme.txt", "not an entry");
  writeFile(user / "org.example.Tray.desktop", entry("tray", "Hidden=true\n"));

  XdgDesktopEntries entries({user, system, late});
  auto catalog = entries.catalog();
  EXPECT_EQ(catalog->entries().size(), 2u);
  EXPECT_EQ(catalog->byProgram("viewermain")->id, "kde-org.kde.Viewer") << "sub-folders join the id with -";
  EXPECT_EQ(catalog->byProgram("player")->id, "org.example.Player");
  EXPECT_EQ(catalog->byID("org.example.Tray"), nullptr) << "hidden by the user's own entry";
  EXPECT_EQ(entries.catalog(), catalog) << "nothing changed: the same catalog";
  writeFile(user / "org.example.Player.desktop", entry("player2"));
  EXPECT_EQ(entries.catalog()->byID("org.example.Player")->exec, "player2") << "the user's folder wins";
  writeFile(late / "org.example.Late.desktop", entry("late"));
  EXPECT_NE(entries.catalog()->byID("org.example.Late"), nullptr) << "a folder that appears is read";
}

}  // namespace
}  // namespace wh::platform
