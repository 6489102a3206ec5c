#include "core/texts/PlatformTexts.h"

#include <map>
#include <sstream>

namespace wh::texts {

namespace {

// One value of an os-release assignment: quotes removed and backslash escapes resolved.
std::string unquote(std::string_view value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
    value = value.substr(1, value.size() - 2);
  }
  std::string out;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    out += value[i];
  }
  return out;
}

}  // namespace

std::string accessibilityLine(const InputAccess& access) {
  const auto yesNo = [](bool value) { return value ? "yes" : "no"; };
  return std::string(kKeyAccess) + ": " + (access.trusted() ? "allowed" : "not allowed") +
         " (media-key input devices readable: " + yesNo(access.mediaKeyDevicesReadable) +
         ", /dev/uinput writable: " + yesNo(access.uinputWritable) + ")";
}

std::string unusableKey(const std::string& keyName) {
  return (keyName.empty() ? std::string("This key") : keyName) +
         " cannot be a hotkey here. Use a letter A–Z, a digit or a function key.";
}

std::optional<BluetoothProblem> bluetoothProblem(BluetoothAdapterState state) {
  switch (state) {
    case BluetoothAdapterState::noService:
      return BluetoothProblem{"Bluetooth is not running",
                              "The Bluetooth service (bluetoothd) is not running. Start it with "
                              "\"sudo systemctl enable --now bluetooth\"; install the bluez package if it is missing.",
                              false};
    case BluetoothAdapterState::noAdapter:
      return BluetoothProblem{"No Bluetooth adapter",
                              "This computer shows no Bluetooth adapter. Plug one in, or unblock it with "
                              "\"rfkill unblock bluetooth\".",
                              false};
    case BluetoothAdapterState::off:
      return BluetoothProblem{"Bluetooth is off",
                              "Turn Bluetooth on in the desktop's Bluetooth settings, or with \"bluetoothctl power on\".", true};
    case BluetoothAdapterState::unknown:
    case BluetoothAdapterState::on:
      break;
  }
  return std::nullopt;
}

std::vector<KeyAccessStep> keyAccessSteps(const KeyAccessSystem& system) {
  std::vector<KeyAccessStep> steps;
  const std::string trigger = "sudo udevadm trigger --subsystem-match=input --subsystem-match=misc";
  // The same commands for the administrator's shell, without sudo.
  const auto privileged = [](std::string command) {
    for (std::size_t at; (at = command.find("sudo ")) != std::string::npos;) command.erase(at, 5);
    return command;
  };
  if (system.ruleInstalled) {
    const std::string command = "sudo udevadm control --reload && " + trigger;
    steps.push_back({"Wrenhaven's rule is in /etc/udev/rules.d already. Apply it to the devices that are plugged in:",
                     command, privileged(command)});
  } else {
    const std::string command =
        "sudo cp " + system.ruleFile + " /etc/udev/rules.d/ && sudo udevadm control --reload && " + trigger;
    steps.push_back({"Either let the person at this computer use the keyboards while logged in: copy the rule "
                     "the package installed and apply it (at once, no new login):",
                     command, privileged(command)});
  }
  const std::string user = system.userName.empty() ? std::string("$USER") : system.userName;
  steps.push_back({"Or add " + user + " to the \"input\" group, then log out and in again (every program " + user +
                       " runs can then read the keyboards):",
                   "sudo usermod -aG input " + user, ""});
  return steps;
}

std::string keyAccessFinding(const InputAccess& access) {
  if (access.trusted()) return "Key access is allowed: the media keys go to your player.";
  std::string missing;
  if (!access.mediaKeyDevicesReadable) missing = "no keyboard with media keys can be read";
  if (!access.uinputWritable) missing += std::string(missing.empty() ? "" : ", and ") + "/dev/uinput cannot be written";
  return "Still no key access: " + missing + ".";
}

std::string systemNameFromOsRelease(std::string_view osRelease) {
  std::map<std::string, std::string, std::less<>> fields;
  std::istringstream lines{std::string(osRelease)};
  for (std::string line; std::getline(lines, line);) {
    const auto equals = line.find('=');
    if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
    fields[line.substr(0, equals)] = unquote(std::string_view(line).substr(equals + 1));
  }
  const auto field = [&](std::string_view key) {
    auto found = fields.find(key);
    return found == fields.end() ? std::string() : found->second;
  };
  if (auto pretty = field("PRETTY_NAME"); !pretty.empty()) return pretty;
  std::string name = field("NAME");
  std::string version = field("VERSION");
  if (version.empty()) version = field("VERSION_ID");
  if (name.empty()) return version.empty() ? "Linux" : "Linux " + version;
  return version.empty() ? name : name + " " + version;
}

std::string trayMissing(bool gnomeShell) {
  if (gnomeShell) {
    return "GNOME Shell shows tray icons only with its AppIndicator extension: install "
           "gnome-shell-extension-appindicator, turn it on in Extensions, and log in again. Until then, "
           "open Wrenhaven from the applications menu.";
  }
  return "This desktop has no tray for Wrenhaven's icon: add a system tray (status notifier) to its panel. Until "
         "then, open Wrenhaven from the applications menu.";
}

}  // namespace wh::texts
