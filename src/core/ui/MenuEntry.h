#pragma once
// A menu as plain data: what the toolkit layer turns into a real menu. Every menu of the agent (the
// device menu, the panel's options menus, "More options") is built here as a list of entries, so
// its titles, checks and actions are decided without a toolkit.

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace wh::ui {

struct MenuEntry {
  enum class Kind { action, separator, header };

  Kind kind = Kind::action;
  std::string title;
  bool enabled = true;
  std::optional<bool> checked;  // set for check items
  std::string toolTip;
  std::function<void()> run;
  std::vector<MenuEntry> submenu;
  bool opensSubmenu = false;  // a submenu, even while it holds no entries

  static MenuEntry item(std::string title, std::function<void()> run) {
    MenuEntry entry;
    entry.title = std::move(title);
    entry.run = std::move(run);
    return entry;
  }
  static MenuEntry check(std::string title, bool on, std::function<void()> run) {
    MenuEntry entry = item(std::move(title), std::move(run));
    entry.checked = on;
    return entry;
  }
  static MenuEntry disabled(std::string title) {
    MenuEntry entry;
    entry.title = std::move(title);
    entry.enabled = false;
    return entry;
  }
  static MenuEntry header(std::string title) {
    MenuEntry entry = disabled(std::move(title));
    entry.kind = Kind::header;
    return entry;
  }
  static MenuEntry separator() {
    MenuEntry entry;
    entry.kind = Kind::separator;
    return entry;
  }
  static MenuEntry sub(std::string title, std::vector<MenuEntry> entries) {
    MenuEntry entry;
    entry.title = std::move(title);
    entry.submenu = std::move(entries);
    entry.opensSubmenu = true;
    return entry;
  }
};

using Menu = std::vector<MenuEntry>;

}  // namespace wh::ui
