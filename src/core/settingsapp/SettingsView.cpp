#include "core/settingsapp/SettingsView.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "core/app/AgentStatus.h"
#include "core/texts/PlatformTexts.h"
#include "core/ui/DeviceMenu.h"
#include "core/ui/PanelRows.h"

namespace wh::settingsapp {
namespace {

constexpr double maxPercent = 100.0;

std::optional<nlohmann::json> statusJson(const Settings& settings, const char* key) {
  auto value = settings.store().object(key);
  if (!value) return std::nullopt;
  return value->json();
}

std::string statusText(const Settings& settings, const char* key) {
  const auto value = settings.store().object(key);
  if (!value) return unknownText;
  return value->asString().value_or(unknownText);
}

std::string field(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::string percent(const nlohmann::json& level) {
  return std::to_string(std::lround(std::clamp(level.get<double>(), 0.0, maxPercent))) + "%";
}

// The agent's phase text as the tray's menus say it.
std::string phaseWords(const std::string& text) {
  using Phase = BluetoothManager::Phase;
  constexpr std::string_view failed = "failed:";
  if (text.starts_with(failed)) return ui::DeviceMenu::phaseLine(Phase::failed(text.substr(failed.size())));
  for (const Phase& phase : {Phase::disconnected(), Phase::connecting(), Phase::connected(), Phase::disconnecting()}) {
    if (phase.text() == text) return ui::DeviceMenu::phaseLine(phase);
  }
  return unknownText;
}

// The agent's pinner status text as the panel says it.
std::string pinnerWords(const std::string& text) {
  using Status = InputPinner::Status;
  constexpr std::string_view pinned = "pinned:";
  if (text.starts_with(pinned)) return ui::pinnerLine(Status::pinned(text.substr(pinned.size())));
  for (const Status& status : {Status::off(), Status::idle(), Status::releasedForCall(), Status::releasedManually(),
                               Status::noMicrophone(), Status::fighting()}) {
    if (describe(status) == text) return ui::pinnerLine(status);
  }
  return unknownText;
}

std::optional<ui::MediaKeysState::Tap> tapState(const std::string& text) {
  using Tap = ui::MediaKeysState::Tap;
  if (text == "off") return Tap::off;
  if (text == "needsAccessibility") return Tap::needsAccessibility;
  if (text == "running") return Tap::running;
  return std::nullopt;
}

std::vector<HeadphonesRow> headphonesRows(const Settings& settings) {
  const auto phases = statusJson(settings, StatusKeys::bluetooth);
  const auto batteries = statusJson(settings, StatusKeys::battery);
  std::vector<HeadphonesRow> rows;
  for (const auto& device : settings.devices()) {
    HeadphonesRow row{device, unknownText, noBatteryText};
    if (phases && phases->is_object()) {
      const auto phase = field(*phases, device.address.c_str());
      if (!phase.empty()) row.status = phaseWords(phase);
    }
    if (batteries && batteries->is_object()) {
      const auto found = batteries->find(device.address);
      if (found != batteries->end()) row.battery = batteryText(*found);
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

std::optional<std::vector<PairedChoice>> addableChoices(const Settings& settings,
                                                        const std::vector<HeadphonesRow>& remembered) {
  const auto paired = statusJson(settings, StatusKeys::paired);
  if (!paired || !paired->is_array()) return std::nullopt;
  std::vector<PairedChoice> choices;
  for (const auto& entry : *paired) {
    if (!entry.is_object()) continue;
    PairedChoice choice{field(entry, "address"), field(entry, "name")};
    if (choice.address.empty()) continue;
    const bool known = std::ranges::any_of(
        remembered, [&](const HeadphonesRow& row) { return row.setting.address == choice.address; });
    if (!known) choices.push_back(std::move(choice));
  }
  return choices;
}

std::optional<std::vector<VolumeRow>> volumeRows(const Settings& settings) {
  const auto apps = statusJson(settings, StatusKeys::volumeApps);
  if (!apps || !apps->is_array()) return std::nullopt;
  const auto volumes = settings.appVolumes();
  std::vector<VolumeRow> rows;
  for (const auto& entry : *apps) {
    if (!entry.is_object()) continue;
    VolumeRow row{field(entry, "bundleID"), field(entry, "name")};
    if (row.appID.empty()) continue;
    if (row.name.empty()) row.name = row.appID;
    if (const auto gain = entry.find("gain"); gain != entry.end() && gain->is_number()) {
      row.gain = std::clamp(gain->get<float>(), 0.0F, 1.0F);
    }
    if (const auto muted = entry.find("muted"); muted != entry.end() && muted->is_boolean()) row.muted = *muted;
    if (const auto playing = entry.find("playing"); playing != entry.end() && playing->is_boolean()) {
      row.playing = *playing;
    }
    // What the person set here shows at once, before the agent publishes it again.
    if (const auto set = volumes.find(row.appID); set != volumes.end()) {
      if (!std::isnan(set->second.gain)) row.gain = std::clamp(set->second.gain, 0.0F, 1.0F);
      row.muted = set->second.muted;
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace

std::string batteryText(const nlohmann::json& levels) {
  if (!levels.is_object()) return noBatteryText;
  const auto number = [&levels](const char* key) { return levels.contains(key) && levels[key].is_number(); };
  if (number("single")) return percent(levels["single"]);
  std::string text;
  for (const auto& [key, label] : {std::pair{"left", "L "}, std::pair{"right", "R "}, std::pair{"case", "case "}}) {
    if (!number(key)) continue;
    if (!text.empty()) text += " · ";
    text += label + percent(levels[key]);
  }
  return text.empty() ? std::string(noBatteryText) : text;
}

SettingsView readView(const Settings& settings, const std::optional<std::vector<AudioDevice>>& devices) {
  SettingsView view;
  view.headphones = headphonesRows(settings);
  view.addable = addableChoices(settings, view.headphones);
  view.bluetoothAccess = statusText(settings, StatusKeys::bluetoothAccess);
  view.bluetoothProblem = texts::bluetoothProblem(AgentStatus::adapterState(statusText(settings, StatusKeys::bluetoothAdapter)));
  if (const auto tray = statusText(settings, StatusKeys::trayProblem); tray != unknownText) view.trayProblem = tray;
  view.pinInput = settings.boolValue(Keys::pinInput, true);
  view.callMode = settings.callMode();
  if (devices) view.microphones = microphoneChoices(*devices, preferredInputUID(settings));
  view.pinStatus = pinnerWords(statusText(settings, StatusKeys::pinStatus));
  view.outputQuality = statusText(settings, StatusKeys::outputQuality);
  if (const auto apps = settings.store().object(Keys::meetingApps)) {
    view.meetingApps = apps->asStringArray().value_or(std::vector<std::string>{});
  }
  view.mediaKeysEnabled = settings.boolValue(Keys::mediaKeysEnabled, false);
  view.mediaKeysPaused = settings.boolValue(Keys::mediaKeysPaused, false);
  view.idlePlay = settings.idlePlay();
  view.volumeApps = volumeRows(settings);
  const auto tap = tapState(statusText(settings, StatusKeys::mediaKeys));
  std::optional<std::string> target = statusText(settings, StatusKeys::mediaKeysTarget);
  if (target->empty() || *target == unknownText) target.reset();
  if (target && view.volumeApps) {
    const auto app = std::ranges::find(*view.volumeApps, *target, &VolumeRow::appID);
    if (app != view.volumeApps->end()) target = app->name;
  }
  view.mediaKeysNeedAccess = tap == ui::MediaKeysState::Tap::needsAccessibility;
  view.mediaKeysState = ui::mediaKeysDetail(view.mediaKeysEnabled, view.mediaKeysPaused, view.idlePlay,
                                            tap.value_or(ui::MediaKeysState::Tap::off), target);
  if (!tap && view.mediaKeysEnabled && !view.mediaKeysPaused) view.mediaKeysState = unknownText;
  if (const auto problem = settings.store().object(StatusKeys::volumeProblem)) {
    view.volumeProblem = problem->asString().value_or("");
  }
  if (view.volumeProblem == AppVolumeController::permissionText) {
    view.volumeProblemTitle = "Allow audio recording";
    view.volumeProblem = texts::kAppVolumeRecording;
  } else if (!view.volumeProblem.empty()) {
    view.volumeProblemTitle = "Volume by app stopped";
  }
  if (const auto login = settings.store().object(StatusKeys::launchAtLogin)) view.launchAtLogin = login->asBool();
  view.showTrayIcon = !settings.boolValue(Keys::hideMenuIcon, false);
  view.onboardingDone = settings.boolValue(Keys::onboardingDone, false);
  return view;
}

void setFlag(Settings& settings, const std::string& key, bool value) {
  settings.store().set(key, StoreValue::boolean(value));
  settings.changed(key);
}

void editDevice(Settings& settings, const std::string& address, const std::function<void(DeviceSetting&)>& edit) {
  auto devices = settings.devices();
  const auto found = std::ranges::find(devices, address, &DeviceSetting::address);
  if (found == devices.end()) return;
  edit(*found);
  settings.setDevices(devices);
}

void setAppVolume(Settings& settings, const std::string& appID, AppVolumeSetting volume) {
  auto volumes = settings.appVolumes();
  volumes[appID] = volume;
  settings.setAppVolumes(volumes);
}

}  // namespace wh::settingsapp
