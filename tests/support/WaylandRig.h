#pragma once
// A Wayland desktop for tests: sway on wlroots' headless backend (drawn in memory, no seat, no
// graphics card), with waybar as its bar and tray (waybar is its own StatusNotifierWatcher and host)
// on a given session bus, and grim to take pictures of it. sway refuses to run as root, so under
// root it runs in a user namespace of its own as an ordinary user id; what it draws and the files
// it makes are the same. No XWayland: a program that should appear here must speak Wayland.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace wh::test {

class WaylandRig {
 public:
  struct Options {
    std::string sessionBus;  // DBUS_SESSION_BUS_ADDRESS for the bar and its tray
    std::string barColour = "#202020";
    std::string textColour = "#ffffff";
  };
  static constexpr int barHeight = 30;
  static constexpr int width = 1280;
  static constexpr int height = 720;

  explicit WaylandRig(const Options& options);

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // What a client of this desktop needs in its environment: the display (an absolute path) and a
  // Wayland session, with no X display to fall back to.
  ChildProcess::Environment environment() const;
  // Takes a picture of the region ("x,y wxh") as a PNG at `file`; false when grim fails.
  bool screenshot(const std::filesystem::path& file, const std::string& region) const;
  // The items the bar's tray has registered (their bus names and paths).
  std::vector<std::string> trayItems() const;
  // The titles of the windows the compositor shows now.
  std::vector<std::string> windows() const;

 private:
  // gdbus's call of `method` (and its arguments) on the tray's watcher.
  CommandResult call(const std::vector<std::string>& method) const;

  TempDir folder_{"wrenhaven-wayland"};
  std::string bus_;
  std::string display_;
  std::unique_ptr<ChildProcess> compositor_;
  std::unique_ptr<ChildProcess> bar_;
  std::string whyNot_;
};

}  // namespace wh::test
