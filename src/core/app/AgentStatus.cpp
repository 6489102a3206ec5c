#include "core/app/AgentStatus.h"

#include <chrono>
#include <cmath>

#include "core/log/FileLog.h"
#include "core/settings/Address.h"
#include "core/texts/PlatformTexts.h"

namespace wh {

AgentStatus::AgentStatus(Runtime& runtime, Settings& settings, Services& services, BluetoothAccess& access,
                         AgentChannel& channel, AppHost& host, LoginItem& loginItem)
    : runtime_(runtime),
      settings_(settings),
      services_(services),
      access_(access),
      channel_(channel),
      accessibility_(runtime, host),
      loginItem_(loginItem) {}

namespace {

constexpr std::pair<BluetoothAdapterState, const char*> adapterTexts[] = {
    {BluetoothAdapterState::unknown, "unknown"}, {BluetoothAdapterState::noService, "noService"},
    {BluetoothAdapterState::noAdapter, "noAdapter"}, {BluetoothAdapterState::off, "off"},
    {BluetoothAdapterState::on, "on"}};

}  // namespace

const char* AgentStatus::adapterText(BluetoothAdapterState state) {
  for (const auto& [value, text] : adapterTexts) {
    if (value == state) return text;
  }
  return "unknown";
}

BluetoothAdapterState AgentStatus::adapterState(const std::string& text) {
  for (const auto& [value, name] : adapterTexts) {
    if (text == name) return value;
  }
  return BluetoothAdapterState::unknown;
}

const char* AgentStatus::accessText(BluetoothAuthorization authorization) {
  switch (authorization) {
    case BluetoothAuthorization::allowedAlways:
      return "allowed";
    case BluetoothAuthorization::denied:
    case BluetoothAuthorization::restricted:
      return "denied";
    case BluetoothAuthorization::undetermined:
      break;
  }
  return "undetermined";
}

nlohmann::json AgentStatus::batteryJson(const BatteryLevels& levels) {
  nlohmann::json out = nlohmann::json::object();
  if (levels.left) out["left"] = *levels.left;
  if (levels.right) out["right"] = *levels.right;
  if (levels.caseLevel) out["case"] = *levels.caseLevel;
  if (levels.single) out["single"] = *levels.single;
  out["readAt"] = FileLog::stamp(levels.readAt);
  return out;
}

std::string AgentStatus::volumeProblemText(const AppVolumeController::Problem& problem) {
  if (problem.kind() == AppVolumeController::Problem::Kind::needsPermission) return AppVolumeController::permissionText;
  return problem.message();
}

void AgentStatus::put(std::vector<std::pair<std::string, std::optional<StoreValue>>>& changes,
                      const std::string& key, StoreValue value) const {
  if (settings_.store().object(key) == value) return;
  changes.emplace_back(key, std::move(value));
}

void AgentStatus::commit(std::vector<std::pair<std::string, std::optional<StoreValue>>> changes, bool signalAnyway) {
  if (changes.empty() && !signalAnyway) return;
  if (!changes.empty()) settings_.store().setMany(std::move(changes));
  channel_.postStatus();
}

void AgentStatus::publish() { publish(false); }

void AgentStatus::publish(bool signalAnyway) {
  std::vector<std::pair<std::string, std::optional<StoreValue>>> changes;
  put(changes, StatusKeys::bluetoothAccess, StoreValue::string(accessText(access_.authorization())));
  put(changes, StatusKeys::bluetoothAdapter, StoreValue::string(adapterText(services_.bluetooth.adapterState())));

  nlohmann::json phases = nlohmann::json::object();
  for (const auto& [address, phase] : services_.bluetooth.phase()) phases[address] = phase.text();
  put(changes, StatusKeys::bluetooth, StoreValue::fromJson(std::move(phases)));

  nlohmann::json battery = nlohmann::json::object();
  const auto now = runtime_.clock().wallNow();
  for (const auto& [address, levels] : services_.battery.levels()) {
    if (now - levels.readAt < std::chrono::duration<double>(batteryMaxAge)) battery[address] = batteryJson(levels);
  }
  put(changes, StatusKeys::battery, StoreValue::fromJson(std::move(battery)));

  put(changes, StatusKeys::pinStatus, StoreValue::string(describe(services_.pinner.status())));
  put(changes, StatusKeys::inCall, StoreValue::boolean(services_.pinner.inCall()));
  put(changes, StatusKeys::profileGuard, StoreValue::string(describe(services_.profileGuard.status())));
  put(changes, StatusKeys::outputQuality, StoreValue::string(services_.profileGuard.outputQuality()));
  put(changes, StatusKeys::mediaKeys, StoreValue::string(MediaKeyTap::text(services_.mediaKeys.state())));
  put(changes, StatusKeys::mediaKeysTarget, StoreValue::string(services_.mediaKeys.currentTarget().value_or("")));
  put(changes, StatusKeys::trayProblem, StoreValue::string(trayProblem_ ? trayProblem_() : std::string()));
  if (const auto trusted = accessibility_.trusted()) put(changes, StatusKeys::accessibility, StoreValue::boolean(*trusted));
  put(changes, StatusKeys::launchAtLogin, StoreValue::boolean(loginItem_.enabled()));
  put(changes, StatusKeys::launchAtLoginNeedsApproval, StoreValue::boolean(loginItem_.needsApproval()));

  const AppVolumeController& volume = services_.volume;
  nlohmann::json taps = nlohmann::json::object();
  for (const auto& [app, mode] : volume.runningTaps()) taps[app] = mode == ProcessTap::Mode::gain ? "gain" : "mute";
  put(changes, StatusKeys::taps, StoreValue::fromJson(std::move(taps)));
  nlohmann::json apps = nlohmann::json::array();
  for (const auto& app : volume.apps()) {
    const AppVolumeSetting setting = volume.setting(app);
    apps.push_back({{"bundleID", app}, {"name", volume.displayName(app)}, {"icon", volume.icon(app)},
                    {"gain", std::isfinite(setting.gain) ? setting.gain : 1.0F}, {"muted", setting.muted},
                    {"playing", volume.isPlaying(app)}});
  }
  put(changes, StatusKeys::volumeApps, StoreValue::fromJson(std::move(apps)));
  put(changes, StatusKeys::volumeProblem, StoreValue::string(volumeProblemText(volume.problem())));
  commit(std::move(changes), signalAnyway);
}

void AgentStatus::publishPaired() {
  nlohmann::json paired = nlohmann::json::array();
  for (const auto& device : services_.bluetooth.pairedAudioDevices()) {
    paired.push_back({{"address", device.address}, {"name", device.name}});
  }
  std::vector<std::pair<std::string, std::optional<StoreValue>>> changes;
  put(changes, StatusKeys::paired, StoreValue::fromJson(std::move(paired)));
  commit(std::move(changes));
}

void AgentStatus::listen(Actions actions) {
  actions_ = std::move(actions);
  listening_ = channel_.listen(lifetime_.guard(
      [this](const std::string& command, const nlohmann::json& userInfo) { handle(command, userInfo); }));
}

namespace {

bool boolValue(const nlohmann::json& userInfo, const char* key) {
  if (!userInfo.is_object()) return false;
  auto found = userInfo.find(key);
  return found != userInfo.end() && found->is_boolean() && found->get<bool>();
}

std::optional<std::string> stringValue(const nlohmann::json& userInfo, const char* key) {
  if (!userInfo.is_object()) return std::nullopt;
  auto found = userInfo.find(key);
  if (found == userInfo.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

}  // namespace

void AgentStatus::handle(const std::string& command, const nlohmann::json& userInfo) {
  // The pinner's commands publish through its own change report.
  InputPinner& pinner = services_.pinner;
  if (command == "tryAgain" || command == "allowHeadphoneMic" || command == "backToMusicQuality") {
    if (command == "allowHeadphoneMic") pinner.setOverride(InputPinner::Override::allowHeadphoneMic);
    if (command == "backToMusicQuality") pinner.setOverride(InputPinner::Override::none);
    pinner.clearFightRecord();
    services_.profileGuard.clearFightRecord();  // the pinner's evaluation takes the guard along
    pinner.evaluate();
    return;
  }
  if (command == "reload") {
    settings_.changed("reload");  // the settings handler re-reads everything
    services_.volume.retry();
  } else if (command == "requestBluetooth") {
    if (access_.isDenied()) {
      if (actions_.openBluetoothSettings) actions_.openBluetoothSettings();
    } else if (access_.authorization() == BluetoothAuthorization::allowedAlways) {
      publishPaired();
    } else {
      // Asking for access; the paired list follows once it is granted.
      access_.whenAllowed(lifetime_.guard([this] { publishPaired(); }));
    }
  } else if (command == "requestAccessibility") {
    // Access cannot be asked for here: the key access panel says how it is granted (unless the
    // settings program shows its own: "panel" false), and a change comes back through the refresh
    // (and the tap's own one-second check).
    Log::info(texts::kAccessibilityHelp);
    const bool panel = !userInfo.is_object() || !userInfo.contains("panel") || boolValue(userInfo, "panel");
    if (panel && actions_.showKeyAccess) actions_.showKeyAccess();
    accessibility_.recheck();
    services_.mediaKeys.sync();
  } else if (command == "listPaired") {
    publishPaired();
  } else if (command == "toggle") {
    if (auto address = stringValue(userInfo, "address")) {
      access_.whenAllowed(lifetime_.guard([this, address = *address] {
        if (actions_.startBluetooth) actions_.startBluetooth();
        services_.bluetooth.toggle(address);
        publishPaired();
      }));
    }
  } else if (command.rfind("toggle:", 0) == 0) {
    if (command.size() > 7) services_.bluetooth.toggle(command.substr(7));
  } else if (command == "setLaunchAtLogin") {
    loginItem_.set(boolValue(userInfo, "value"));
  } else if (command == "onboardingVisible") {
    onboardingVisible(boolValue(userInfo, "value"));
  } else if (command == "openSettings" || command == "openGuide") {
    if (actions_.openSettings) actions_.openSettings(command == "openGuide");
  }
  publish(command == statusCommand);
}

void AgentStatus::onboardingVisible(bool visible) {
  onboardingWatch_.reset();
  if (!visible) return;
  publishPaired();
  onboardingWatch_ = runtime_.main().every(onboardingWatchInterval, 0.3, lifetime_.guard([this] {
    if (!channel_.settingsAppRunning()) {
      onboardingWatch_.reset();
      return;
    }
    publishPaired();
  }));
}

}  // namespace wh
