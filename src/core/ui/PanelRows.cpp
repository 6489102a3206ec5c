#include "core/ui/PanelRows.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/audio/CoreAudio.h"
#include "core/log/Log.h"
#include "core/quality/MicrophoneChoices.h"
#include "core/settings/Address.h"
#include "core/texts/PlatformTexts.h"
#include "core/ui/DeviceMenu.h"
#include "core/ui/DeviceStatusItems.h"

namespace wh::ui {
namespace {

std::function<void(bool)> storeSwitch(Settings& settings, const char* key) {
  return [&settings, key](bool on) {
    settings.store().set(key, StoreValue::boolean(on));
    settings.changed(key);
  };
}

Menu microphoneMenu(PanelModel& model) {
  Settings& settings = model.settings;
  Menu menu{MenuEntry::header("Microphone")};
  for (const auto& choice : microphoneChoices(AudioDevice::all(model.audio), preferredInputUID(settings))) {
    // One chosen earlier and unplugged since: the built-in microphone stands in until it returns.
    MenuEntry entry = MenuEntry::check(choice.title, choice.chosen,
                                       choice.present ? std::function<void()>([&settings, uid = choice.uid] { setPreferredInput(settings, uid); })
                                                      : nullptr);
    entry.enabled = choice.present;
    menu.push_back(std::move(entry));
  }
  menu.push_back(MenuEntry::header("During Calls"));
  const CallModeOption mode = settings.callMode();
  for (CallModeOption option : allCallModeOptions) {
    menu.push_back(MenuEntry::check(callModeLabel(option), option == mode, [&settings, option] { settings.setCallMode(option); }));
  }
  return menu;
}

}  // namespace

std::string pinnerLine(const InputPinner::Status& status) {
  using Kind = InputPinner::Status::Kind;
  switch (status.kind()) {
    case Kind::pinned:
      return "Using " + status.name() + " for calls and dictation";
    case Kind::off:
      return "Off: apps may switch your headphones to call quality";
    case Kind::idle:
      return "Headphones are not using their mic";
    case Kind::releasedForCall:
      return "In a call: headphone mic allowed";
    case Kind::releasedManually:
      return "Headphone mic allowed";
    case Kind::noMicrophone:
      return texts::kNoBuiltInMicrophone;
    case Kind::fighting:
      return "Another app keeps switching the mic";
  }
  return {};
}

std::string callModeLabel(CallModeOption option) {
  switch (option) {
    case CallModeOption::automatic:
      return "Automatic (release during calls)";
    case CallModeOption::alwaysHeadphoneMic:
      return "Always allow headphone mic";
    case CallModeOption::alwaysPinned:
      return "Always keep music quality";
  }
  return {};
}

PanelRow musicQualityRow(PanelModel& model) {
  const InputPinner& pinner = model.s.pinner;
  const ProfileGuard& guard = model.s.profileGuard;
  return musicQualityRow(model, {pinner.status(), pinner.inCall(), pinner.override(),
                                 guard.status() == ProfileGuard::Status::fighting, guard.outputQuality()});
}

PanelRow musicQualityRow(PanelModel& model, const PinnerState& state) {
  InputPinner& pinner = model.s.pinner;
  Settings& settings = model.settings;
  PanelRow row;
  row.title = "Keep music quality";
  row.switchOn = settings.boolValue(Keys::pinInput, true);
  row.setSwitch = storeSwitch(settings, Keys::pinInput);
  const bool pinnerFighting = state.status.kind() == InputPinner::Status::Kind::fighting;
  // The guard stays away while the pinner fights, so only one of them can be fighting for long.
  const bool guardOnlyFighting = state.guardFighting && !pinnerFighting;
  row.detail = guardOnlyFighting ? "Another app keeps switching your headphones to call quality" : pinnerLine(state.status);
  if (!state.outputQuality.empty()) row.detail += "\n" + state.outputQuality;

  auto overrideWith = [&pinner](InputPinner::Override value) {
    return [&pinner, value] {
      pinner.setOverride(value);
      pinner.evaluate();
    };
  };
  if (pinnerFighting || guardOnlyFighting) {
    row.actions.push_back({"Try Again", [&pinner, &guard = model.s.profileGuard] {
                             pinner.clearFightRecord();
                             guard.clearFightRecord();  // the pinner's evaluation takes the guard along
                             pinner.evaluate();
                           }});
  }
  if (row.switchOn) {
    switch (state.override) {
      case InputPinner::Override::allowHeadphoneMic:
        row.actions.push_back({"Back to Music Quality", overrideWith(InputPinner::Override::none)});
        break;
      case InputPinner::Override::forcePin:
        row.actions.push_back({"Allow Headphone Mic Again", overrideWith(InputPinner::Override::none)});
        break;
      case InputPinner::Override::none:
        if (!state.inCall && settings.callMode() != CallModeOption::alwaysHeadphoneMic) {
          row.actions.push_back({"Allow Headphone Mic Now", overrideWith(InputPinner::Override::allowHeadphoneMic)});
        } else {
          row.actions.push_back({"Keep Music Quality Now", overrideWith(InputPinner::Override::forcePin)});
        }
        break;
    }
  }
  row.optionsLabel = "Microphone and calls";
  row.options = microphoneMenu(model);
  return row;
}

std::string idlePlayLabel(IdlePlayAction action) {
  switch (action) {
    case IdlePlayAction::ask:
      return "Ask";
    case IdlePlayAction::spotify:
      return "Open Spotify";
    case IdlePlayAction::music:
      return "Open Music";
    case IdlePlayAction::nothing:
      return "Do Nothing";
  }
  return {};
}

std::string mediaKeysDetail(bool enabled, bool paused, IdlePlayAction idle, MediaKeysState::Tap tap,
                            const std::optional<std::string>& target) {
  if (!enabled) return texts::kMediaKeysElsewhere;
  if (paused) return texts::kMediaKeysPaused;
  if (tap == MediaKeysState::Tap::off) return "Starting…";
  if (tap == MediaKeysState::Tap::needsAccessibility) return texts::kNeedsAccessibility;
  if (target) return "Controls " + *target;
  if (idle == IdlePlayAction::ask) return "Nothing playing: ▶︎ asks what to open";
  if (idle == IdlePlayAction::nothing) return "Nothing playing: ▶︎ does nothing";
  std::string label = idlePlayLabel(idle);
  std::transform(label.begin(), label.end(), label.begin(), [](unsigned char c) { return std::tolower(c); });
  return "Nothing playing: ▶︎ will " + label;
}

PanelRow mediaKeysRow(Settings& settings, const MediaKeysState& state) {
  PanelRow row;
  row.title = "Media keys";
  row.switchOn = settings.boolValue(Keys::mediaKeysEnabled, false);
  row.setSwitch = storeSwitch(settings, Keys::mediaKeysEnabled);
  const IdlePlayAction idle = settings.idlePlay();
  const bool paused = settings.boolValue(Keys::mediaKeysPaused, false);
  row.detail = mediaKeysDetail(row.switchOn, paused, idle, state.tap, state.target);
  if (row.switchOn && !paused && state.tap == MediaKeysState::Tap::needsAccessibility && state.openAccessibility) {
    row.actions.push_back({texts::kOpenAccessibility, state.openAccessibility});
  }
  row.optionsLabel = "Media key options";
  row.options.push_back(MenuEntry::check("Pause Media Keys", paused, [&settings, paused] {
    storeSwitch(settings, Keys::mediaKeysPaused)(!paused);
  }));
  row.options.push_back(MenuEntry::header("When Nothing Is Playing"));
  for (IdlePlayAction action : allIdlePlayActions) {
    std::string label = idlePlayLabel(action);
    const bool player = action == IdlePlayAction::spotify || action == IdlePlayAction::music;
    if (player && state.installed && !state.installed(action)) label += " (not installed)";
    row.options.push_back(MenuEntry::check(label, action == idle, [&settings, action] { settings.setIdlePlay(action); }));
  }
  return row;
}

PanelRow mediaKeysRow(PanelModel& model) {
  using Tap = MediaKeysState::Tap;
  const MediaKeyTap& tap = model.s.mediaKeys;
  MediaKeysState state;
  switch (tap.state()) {
    case MediaKeyTap::State::off:
      state.tap = Tap::off;
      break;
    case MediaKeyTap::State::needsAccessibility:
      state.tap = Tap::needsAccessibility;
      break;
    case MediaKeyTap::State::running:
      state.tap = Tap::running;
      break;
  }
  if (const auto target = tap.currentTarget()) state.target = model.s.volume.displayName(*target);
  state.installed = [&players = model.s.mediaKeys.players()](IdlePlayAction action) {
    return players.isInstalled(action == IdlePlayAction::spotify ? ScriptablePlayer::spotify : ScriptablePlayer::music);
  };
  state.openAccessibility = [&tap = model.s.mediaKeys, show = model.showKeyAccess] {
    Log::info(texts::kAccessibilityHelp);
    if (show) show();
    tap.sync();
  };
  return mediaKeysRow(model.settings, state);
}

DevicesSection devicesSection(PanelModel& model, std::chrono::system_clock::time_point now) {
  Services& services = model.s;
  Settings& settings = model.settings;
  DevicesSection section;
  const auto remembered = settings.devices();
  for (const auto& device : remembered) {
    const DeviceItemLook look = DeviceStatusItems::look(services, device, now);
    const std::string address = normalizeAddress(device.address);
    section.devices.push_back({address, DeviceMenu::displayName(device), DeviceMenu::status(services, device, now),
                               look.icon, look.phase, look.battery,
                               [&services, address] { services.bluetooth.toggle(address); }});
  }
  if (remembered.empty()) section.emptyTitle = "Add your headphones";

  // What stops Bluetooth itself comes first: asking for access could only wait then.
  if (const auto problem = texts::bluetoothProblem(services.bluetooth.adapterState())) {
    section.notice = problem->title;
    section.noticeDetail = problem->fix;
    if (problem->settingsHelp && model.openBluetoothSettings) {
      section.noticeAction = RowAction{"Open Bluetooth Settings…", model.openBluetoothSettings};
    }
    return section;
  }
  const auto authorization = model.access.authorization();
  if (authorization == BluetoothAuthorization::denied || authorization == BluetoothAuthorization::restricted) {
    section.notice = "Bluetooth is off for Wrenhaven";
    section.noticeDetail = "Allow it to connect your headphones.";
    if (model.openBluetoothSettings) section.noticeAction = RowAction{"Open Bluetooth Settings…", model.openBluetoothSettings};
    return section;
  }
  if (authorization == BluetoothAuthorization::undetermined) {
    section.noticeDetail = "Wrenhaven uses Bluetooth to connect them and read their battery.";
    section.noticeAction = RowAction{"Allow Bluetooth…", [&model] {
                                       model.access.whenAllowed([&model] {
                                         if (model.onGeneration) model.onGeneration();
                                       });
                                     }};
    return section;
  }

  section.addTitle = remembered.empty() ? "Add Your Headphones…" : "Add Headphones…";
  for (const auto& paired : services.bluetooth.pairedAudioDevices()) {
    const std::string address = normalizeAddress(paired.address);
    const bool known = std::any_of(remembered.begin(), remembered.end(),
                                   [&](const DeviceSetting& device) { return normalizeAddress(device.address) == address; });
    if (known) continue;
    section.addMenu.push_back(MenuEntry::item(paired.name.empty() ? address : paired.name,
                                              [&settings, address, name = paired.name] { settings.addDevice(address, name); }));
  }
  if (section.addMenu.empty()) section.addMenu.push_back(MenuEntry::disabled("No other paired headphones or speakers"));
  if (model.openBluetoothSettings) {
    section.addMenu.push_back(MenuEntry::separator());
    section.addMenu.push_back(MenuEntry::item("Pair a New Device…", model.openBluetoothSettings));
  }
  return section;
}

AppVolumeSection appVolumeSection(AppVolumeController& volume) {
  using Kind = AppVolumeController::Problem::Kind;
  AppVolumeSection section;
  if (volume.apps().empty()) section.emptyText = "Apps appear here when they play sound.";
  for (const auto& id : volume.apps()) {
    const AppVolumeSetting setting = volume.setting(id);
    section.apps.push_back({volume.displayName(id), volume.icon(id), setting.gain, setting.muted, volume.isPlaying(id),
                            [&volume, id](float gain) { volume.setGain(id, gain); },
                            [&volume, id] { volume.toggleMute(id); }});
  }
  const auto& problem = volume.problem();
  if (problem.kind() == Kind::none) return section;
  auto retry = [&volume] { volume.retry(); };
  if (problem.kind() == Kind::needsPermission) {
    section.problemTitle = "Allow audio recording";
    section.problemDetail = texts::kAppVolumeRecording;
  } else {
    section.problemTitle = "Volume by app stopped";
    section.problemDetail = problem.message();
  }
  section.problemAction = RowAction{"Try Again", retry};
  return section;
}

}  // namespace wh::ui
