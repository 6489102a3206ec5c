#include "support/WaylandRig.h"

#include <unistd.h>

#include <functional>
#include <regex>

#include <nlohmann/json.hpp>

#include "support/TrayRig.h"

namespace wh::test {

using namespace std::chrono_literals;

WaylandRig::WaylandRig(const Options& options) : bus_(options.sessionBus) {
  for (const char* tool : {"sway", "waybar", "grim", "unshare"}) {
    if (findExecutable(tool).empty()) {
      whyNot_ = std::string(tool) + " is missing (scripts/install-deps.sh installs it)";
      return;
    }
  }
  const auto runtime = folder_.path() / "runtime";
  std::filesystem::create_directories(runtime);
  std::filesystem::permissions(runtime, std::filesystem::perms::owner_all, std::filesystem::perm_options::replace);
  writeFile(folder_.path() / "sway.conf", "output HEADLESS-1 resolution " + std::to_string(width) + "x" +
                                              std::to_string(height) + "\nxwayland disable\n");
  writeFile(folder_.path() / "waybar.json",
            R"({"layer": "top", "position": "top", "height": )" + std::to_string(barHeight) +
                R"(, "modules-right": ["tray"], "tray": {"icon-size": 20, "spacing": 8}})");
  writeFile(folder_.path() / "waybar.css", "window#waybar { background: " + options.barColour +
                                               "; color: " + options.textColour + "; }\n");

  const ChildProcess::Environment common{{"XDG_RUNTIME_DIR", runtime.string()},
                                         {"DBUS_SESSION_BUS_ADDRESS", bus_},
                                         {"HOME", folder_.path().string()},
                                         {"XDG_CONFIG_HOME", (folder_.path() / "config").string()},
                                         {"DISPLAY", std::nullopt},
                                         {"WAYLAND_DISPLAY", std::nullopt}};
  ChildProcess::Environment compositor = common;
  compositor.insert({{"WLR_BACKENDS", "headless"}, {"WLR_LIBINPUT_NO_DEVICES", "1"}, {"WLR_RENDERER", "pixman"}});
  std::vector<std::string> argv{"sway", "-c", (folder_.path() / "sway.conf").string()};
  if (::geteuid() == 0) argv.insert(argv.begin(), {"unshare", "--user", "--map-user=1000", "--map-group=1000"});
  compositor_ = std::make_unique<ChildProcess>(argv, compositor);
  const bool up = eventually(
      [&] {
        for (const auto& entry : std::filesystem::directory_iterator(runtime)) {
          const std::string name = entry.path().filename().string();
          if (name.starts_with("wayland-") && !name.ends_with(".lock")) display_ = entry.path().string();
        }
        return !display_.empty();
      },
      15s);
  if (!up) {
    whyNot_ = "sway did not start: " + compositor_->output();
    return;
  }
  ChildProcess::Environment bar = common;
  bar["WAYLAND_DISPLAY"] = display_;
  bar_ = std::make_unique<ChildProcess>(std::vector<std::string>{"waybar", "-c", (folder_.path() / "waybar.json").string(),
                                                                 "-s", (folder_.path() / "waybar.css").string()},
                                        bar);
  if (!bar_->waitForOutput("Bar configured", 15s)) whyNot_ = "waybar did not start: " + bar_->output();
  // The tray's watcher is on the bus once the bar is drawn; wait for it, so items register at once.
  else if (!eventually([&] { return call({"org.freedesktop.DBus.Peer.Ping"}).status == 0; }, 10s)) {
    whyNot_ = "waybar's tray did not come up: " + bar_->output();
  }
}

ChildProcess::Environment WaylandRig::environment() const {
  return {{"WAYLAND_DISPLAY", display_}, {"XDG_SESSION_TYPE", "wayland"}, {"QT_QPA_PLATFORM", "wayland"},
          {"DISPLAY", std::nullopt}};
}

bool WaylandRig::screenshot(const std::filesystem::path& file, const std::string& region) const {
  return runCommand({"grim", "-g", region, file.string()},
                    {{"WAYLAND_DISPLAY", display_}, {"XDG_RUNTIME_DIR", (folder_.path() / "runtime").string()}})
             .status == 0;
}

std::vector<std::string> WaylandRig::windows() const {
  std::string socket;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path() / "runtime")) {
    if (entry.path().filename().string().starts_with("sway-ipc.")) socket = entry.path().string();
  }
  if (socket.empty()) return {};
  const auto tree = nlohmann::json::parse(runCommand({"swaymsg", "-r", "-s", socket, "-t", "get_tree"}).output,
                                          nullptr, false);
  // Views of Wayland clients are the nodes with a shell; their names are the windows' titles.
  std::vector<std::string> titles;
  const std::function<void(const nlohmann::json&)> walk = [&](const nlohmann::json& node) {
    if (!node.is_object()) return;
    if (node.value("shell", "") == "xdg_shell") titles.push_back(node.value("name", ""));
    for (const char* children : {"nodes", "floating_nodes"}) {
      if (node.contains(children)) {
        for (const auto& child : node[children]) walk(child);
      }
    }
  };
  walk(tree);
  return titles;
}

CommandResult WaylandRig::call(const std::vector<std::string>& method) const {
  std::vector<std::string> argv{"gdbus",         "call",     "--session",           "--dest",
                                "org.kde.StatusNotifierWatcher", "--object-path", "/StatusNotifierWatcher",
                                "--method"};
  argv.insert(argv.end(), method.begin(), method.end());
  return runCommand(argv, {{"DBUS_SESSION_BUS_ADDRESS", bus_}});
}

std::vector<std::string> WaylandRig::trayItems() const {
  const auto listed = call({"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierWatcher",
                            "RegisteredStatusNotifierItems"});
  return matches(listed.output, std::regex("'([^']+)'"));
}

}  // namespace wh::test
