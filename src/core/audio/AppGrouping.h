#pragma once
// Which application a process belongs to. An application is known by its desktop application id
// (the desktop entry's file id, reverse-DNS where the application has one), which plays the part
// of a bundle identifier. A pid's id comes, in order, from its systemd unit
// (app-<launcher>-<appid>-<n>.scope, app-<appid>@<n>.service), from a Flatpak instance's
// .flatpak-info, from the desktop entry whose Exec or StartupWMClass names its program, and else
// from the program's name. The running applications are the ids of running processes that have a
// desktop entry: regular when the entry is shown in menus, accessory when it is not.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace wh {

enum class ActivationPolicy { regular, accessory, prohibited };

struct RunningApplication {
  std::string bundleID;
  ActivationPolicy activationPolicy = ActivationPolicy::regular;
  bool operator==(const RunningApplication&) const = default;
};

struct DesktopEntry {
  std::string id;  // the desktop file id without ".desktop"
  std::string exec;
  std::string startupWMClass;
  bool noDisplay = false;
  bool hidden = false;  // deleted: it hides entries of the same id in less important folders
  std::string name = {};  // the application's name as menus show it
  std::string icon = {};  // an icon name of the icon theme, or a file path

  // Reads the "Desktop Entry" group of a desktop entry file; nothing for anything but an
  // application entry.
  static std::optional<DesktopEntry> parse(const std::string& id, const std::string& text);
  // The base name of the program that Exec starts ("env VAR=x prog" starts prog); empty when none.
  std::string program() const;
};

// The desktop entries found at one moment, with lookups. An entry earlier in the list hides a
// later one with the same id (the XDG data folders' order of precedence); hidden entries are
// found by no lookup.
class DesktopCatalog {
 public:
  explicit DesktopCatalog(std::vector<DesktopEntry> entries = {});
  const DesktopEntry* byID(const std::string& id) const;
  // The first entry whose Exec starts this program, else whose StartupWMClass equals it (ignoring
  // case). Launchers that start many applications (flatpak, shells) match nothing.
  const DesktopEntry* byProgram(const std::string& program) const;
  const std::vector<DesktopEntry>& entries() const { return entries_; }

 private:
  std::vector<DesktopEntry> entries_;
  std::map<std::string, std::size_t> byID_;
  std::map<std::string, std::size_t> byProgram_;
  std::map<std::string, std::size_t> byWMClass_;
};

// Port: the desktop entries installed now.
class DesktopEntries {
 public:
  virtual ~DesktopEntries() = default;
  virtual std::shared_ptr<const DesktopCatalog> catalog() = 0;
};

// Port: the machine's processes. Every read answers nothing when the process has gone or cannot
// be read.
class ProcessTable {
 public:
  virtual ~ProcessTable() = default;
  virtual std::int32_t ownPid() const = 0;
  // The processes of the current user.
  virtual std::vector<std::int32_t> pids() = 0;
  virtual std::optional<std::int32_t> parentPid(std::int32_t pid) = 0;
  // The path of the program file.
  virtual std::optional<std::string> executable(std::int32_t pid) = 0;
  // The process's control group path (the unified hierarchy's, else the systemd one).
  virtual std::optional<std::string> controlGroup(std::int32_t pid) = 0;
  // The text of a Flatpak instance's .flatpak-info.
  virtual std::optional<std::string> flatpakInfo(std::int32_t pid) = 0;
};

// The arguments of an Exec value: double quotes group, a backslash escapes.
std::vector<std::string> execArguments(const std::string& exec);
// The desktop ids (without ".desktop") that one key of a group lists, as mimeapps.list and
// mimeinfo.cache do ("audio/mpeg=a.desktop;b.desktop;"), in order.
std::vector<std::string> listedDesktopIDs(const std::string& text, const std::string& group, const std::string& key);

// The application id named by the innermost systemd app unit of a control group path.
std::optional<std::string> appIDFromControlGroup(const std::string& path);
// The application name of a .flatpak-info text.
std::optional<std::string> appIDFromFlatpakInfo(const std::string& text);

class AppGrouping {
 public:
  static constexpr int maxParentSteps = 4;

  AppGrouping(ProcessTable& processes, DesktopEntries& desktop) : processes_(processes), desktop_(desktop) {}

  std::int32_t ownPid() const { return processes_.ownPid(); }
  // The application id of a pid (see above); nothing when the process cannot be read.
  std::optional<std::string> bundleIdentifier(std::int32_t pid);
  std::vector<RunningApplication> runningApplications();
  // Regular applications, and accessory ones whose id does not begin with "com.apple.".
  std::set<std::string> runningAppIDs();
  std::set<std::string> regularAppIDs();
  // The application that owns a process: itself when it is a running app, else the first running
  // app up its parent chain (at most four steps), else by its id alone (parent(of:)).
  std::string owningApp(std::int32_t pid, const std::string& bundleID, const std::set<std::string>& runningApps);
  // The owning app by id alone: itself when running, else the running app whose id is the longest
  // dotted prefix of it, else Safari for WebKit processes when Safari runs, else itself.
  static std::string parent(const std::string& of, const std::set<std::string>& runningApps);

 private:
  std::optional<std::string> bundleIdentifier(std::int32_t pid, const DesktopCatalog& catalog);

  ProcessTable& processes_;
  DesktopEntries& desktop_;
};

}  // namespace wh
