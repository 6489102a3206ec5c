#include "core/audio/AppGrouping.h"

#include <cctype>
#include <sstream>

namespace wh {

namespace {

std::string lowerCased(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string trimmed(const std::string& text) {
  const auto begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return {};
  const auto end = text.find_last_not_of(" \t\r");
  return text.substr(begin, end - begin + 1);
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    const auto at = text.find(separator, start);
    parts.push_back(text.substr(start, at - start));
    if (at == std::string::npos) return parts;
    start = at + 1;
  }
}

std::string baseName(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// systemd unit names escape "-" and other characters as \xNN.
std::string unescapeUnitName(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' && std::isxdigit(static_cast<unsigned char>(text[i + 2])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 3]))) {
      out += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string joined(const std::vector<std::string>& parts, std::size_t from, std::size_t to, char separator) {
  std::string out;
  for (std::size_t i = from; i < to; ++i) {
    if (i > from) out += separator;
    out += parts[i];
  }
  return out;
}

// The application id of one unit name, or empty.
std::string appIDOfUnit(const std::string& unit) {
  if (!startsWith(unit, "app-")) return {};
  if (endsWith(unit, ".scope")) {
    // app-<launcher>-<appid>-<n>.scope, or app-<appid>-<n>.scope without a launcher.
    const auto parts = split(unit.substr(4, unit.size() - 4 - 6), '-');
    if (parts.size() < 2) return {};
    return unescapeUnitName(parts.size() == 2 ? parts[0] : joined(parts, 1, parts.size() - 1, '-'));
  }
  if (endsWith(unit, ".service")) {
    // app-<appid>@<n>.service, app-<launcher>-<appid>@<n>.service, or without "@<n>".
    std::string body = unit.substr(4, unit.size() - 4 - 8);
    body = body.substr(0, body.find('@'));
    const auto parts = split(body, '-');
    return unescapeUnitName(parts.size() == 1 ? parts[0] : joined(parts, 1, parts.size(), '-'));
  }
  return {};
}

// Calls `visit(key, value)` for every entry of one group of a desktop-entry style file.
template <class Visit>
void readGroup(const std::string& text, const std::string& group, Visit visit) {
  std::istringstream in(text);
  std::string line;
  bool inGroup = false;
  while (std::getline(in, line)) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      inGroup = line == "[" + group + "]";
      continue;
    }
    const auto equals = line.find('=');
    if (!inGroup || equals == std::string::npos) continue;
    visit(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)));
  }
}

}  // namespace

std::vector<std::string> execArguments(const std::string& exec) {
  std::vector<std::string> arguments;
  std::string current;
  bool quoted = false;
  bool any = false;
  for (std::size_t i = 0; i < exec.size(); ++i) {
    const char c = exec[i];
    if (c == '\\' && i + 1 < exec.size()) {
      current += exec[++i];
      any = true;
    } else if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if ((c == ' ' || c == '\t') && !quoted) {
      if (any) arguments.push_back(current);
      current.clear();
      any = false;
    } else {
      current += c;
      any = true;
    }
  }
  if (any) arguments.push_back(current);
  return arguments;
}

std::vector<std::string> listedDesktopIDs(const std::string& text, const std::string& group, const std::string& key) {
  std::vector<std::string> ids;
  readGroup(text, group, [&](const std::string& name, const std::string& value) {
    if (name != key) return;
    for (auto id : split(value, ';')) {
      id = trimmed(id);
      if (endsWith(id, ".desktop")) ids.push_back(id.substr(0, id.size() - 8));
    }
  });
  return ids;
}

namespace {

bool isLauncher(const std::string& program) {
  static const std::set<std::string> launchers = {"flatpak", "sh", "bash", "dash", "env", "snap"};
  return launchers.count(program) > 0;
}

}  // namespace

std::optional<DesktopEntry> DesktopEntry::parse(const std::string& id, const std::string& text) {
  DesktopEntry entry;
  entry.id = id;
  std::string type;
  readGroup(text, "Desktop Entry", [&](const std::string& key, const std::string& value) {
    if (key == "Type") type = value;
    if (key == "Exec") entry.exec = value;
    if (key == "StartupWMClass") entry.startupWMClass = value;
    if (key == "NoDisplay") entry.noDisplay = value == "true";
    if (key == "Hidden") entry.hidden = value == "true";
    if (key == "Name") entry.name = value;
    if (key == "Icon") entry.icon = value;
  });
  if (type != "Application") return std::nullopt;
  return entry;
}

std::string DesktopEntry::program() const {
  const auto arguments = execArguments(exec);
  std::size_t at = 0;
  if (at < arguments.size() && baseName(arguments[at]) == "env") {
    ++at;
    while (at < arguments.size() && (arguments[at].find('=') != std::string::npos || startsWith(arguments[at], "-"))) {
      ++at;
    }
  }
  return at < arguments.size() ? baseName(arguments[at]) : std::string();
}

DesktopCatalog::DesktopCatalog(std::vector<DesktopEntry> entries) {
  std::set<std::string> seen;
  for (auto& entry : entries) {
    if (!seen.insert(entry.id).second || entry.hidden) continue;
    const std::size_t index = entries_.size();
    byID_.emplace(entry.id, index);
    const std::string program = entry.program();
    if (!program.empty() && !isLauncher(program)) byProgram_.emplace(program, index);
    if (!entry.startupWMClass.empty()) byWMClass_.emplace(lowerCased(entry.startupWMClass), index);
    entries_.push_back(std::move(entry));
  }
}

const DesktopEntry* DesktopCatalog::byID(const std::string& id) const {
  const auto found = byID_.find(id);
  return found == byID_.end() ? nullptr : &entries_[found->second];
}

const DesktopEntry* DesktopCatalog::byProgram(const std::string& program) const {
  if (program.empty() || isLauncher(program)) return nullptr;
  if (const auto found = byProgram_.find(program); found != byProgram_.end()) return &entries_[found->second];
  if (const auto found = byWMClass_.find(lowerCased(program)); found != byWMClass_.end()) {
    return &entries_[found->second];
  }
  return nullptr;
}

std::optional<std::string> appIDFromControlGroup(const std::string& path) {
  const auto units = split(path, '/');
  for (auto unit = units.rbegin(); unit != units.rend(); ++unit) {
    std::string id = appIDOfUnit(trimmed(*unit));
    if (!id.empty()) return id;
  }
  return std::nullopt;
}

std::optional<std::string> appIDFromFlatpakInfo(const std::string& text) {
  std::optional<std::string> name;
  readGroup(text, "Application", [&](const std::string& key, const std::string& value) {
    if (key == "name" && !value.empty()) name = value;
  });
  return name;
}

std::optional<std::string> AppGrouping::bundleIdentifier(std::int32_t pid) {
  const auto catalog = desktop_.catalog();
  return bundleIdentifier(pid, catalog ? *catalog : DesktopCatalog());
}

std::optional<std::string> AppGrouping::bundleIdentifier(std::int32_t pid, const DesktopCatalog& catalog) {
  if (pid <= 0) return std::nullopt;
  if (auto group = processes_.controlGroup(pid)) {
    if (auto id = appIDFromControlGroup(*group)) return id;
  }
  if (auto info = processes_.flatpakInfo(pid)) {
    if (auto id = appIDFromFlatpakInfo(*info)) return id;
  }
  auto executable = processes_.executable(pid);
  if (!executable) return std::nullopt;
  std::string program = baseName(*executable);
  if (endsWith(program, " (deleted)")) program.resize(program.size() - 10);
  if (const auto* entry = catalog.byProgram(program)) return entry->id;
  if (program.empty()) return std::nullopt;
  return program;
}

std::vector<RunningApplication> AppGrouping::runningApplications() {
  const auto catalog = desktop_.catalog();
  if (!catalog) return {};
  std::vector<RunningApplication> apps;
  std::set<std::string> seen;
  for (std::int32_t pid : processes_.pids()) {
    const auto id = bundleIdentifier(pid, *catalog);
    if (!id || seen.count(*id) > 0) continue;
    const DesktopEntry* entry = catalog->byID(*id);
    if (entry == nullptr) continue;
    seen.insert(*id);
    apps.push_back({*id, entry->noDisplay ? ActivationPolicy::accessory : ActivationPolicy::regular});
  }
  return apps;
}

std::set<std::string> AppGrouping::runningAppIDs() {
  std::set<std::string> ids;
  for (const auto& app : runningApplications()) {
    if (app.bundleID.empty()) continue;
    if (app.activationPolicy == ActivationPolicy::regular ||
        (app.activationPolicy == ActivationPolicy::accessory && !startsWith(app.bundleID, "com.apple."))) {
      ids.insert(app.bundleID);
    }
  }
  return ids;
}

std::set<std::string> AppGrouping::regularAppIDs() {
  std::set<std::string> ids;
  for (const auto& app : runningApplications()) {
    if (!app.bundleID.empty() && app.activationPolicy == ActivationPolicy::regular) ids.insert(app.bundleID);
  }
  return ids;
}

std::string AppGrouping::owningApp(std::int32_t pid, const std::string& bundleID,
                                   const std::set<std::string>& runningApps) {
  if (runningApps.count(bundleID) > 0) return bundleID;
  std::int32_t current = pid;
  for (int step = 0; step < maxParentSteps; ++step) {
    const auto parentPid = processes_.parentPid(current);
    if (!parentPid || *parentPid < 2) break;
    if (auto id = bundleIdentifier(*parentPid); id && runningApps.count(*id) > 0) return *id;
    current = *parentPid;
  }
  return parent(bundleID, runningApps);
}

std::string AppGrouping::parent(const std::string& of, const std::set<std::string>& runningApps) {
  if (runningApps.count(of) > 0) return of;
  const std::string lower = lowerCased(of);
  const std::string* best = nullptr;
  for (const auto& app : runningApps) {
    if (startsWith(lower, lowerCased(app) + ".") && (best == nullptr || app.size() > best->size())) best = &app;
  }
  if (best != nullptr) return *best;
  if (startsWith(of, "com.apple.WebKit") && runningApps.count("com.apple.Safari") > 0) return "com.apple.Safari";
  return of;
}

}  // namespace wh
