#pragma once
// The long-lived components of the agent, created once, in this order, and kept for the whole run.

#include "core/audio/SystemProcesses.h"
#include "core/bluetooth/BatteryCache.h"
#include "core/bluetooth/BluetoothManager.h"
#include "core/bluetooth/OutputSwitcher.h"
#include "core/hotkeys/HotkeyRecorder.h"
#include "core/mediakeys/IdlePlay.h"
#include "core/mediakeys/MediaKeyTap.h"
#include "core/quality/InputPinner.h"
#include "core/quality/ProfileGuard.h"
#include "core/volume/AppVolumeController.h"

namespace wh {

// The platform services the components are built on.
struct ServicePorts {
  BluetoothStack& bluetooth;
  SleepWatcher& sleep;
  BatterySources& battery;
  OutputSwitcher::Audio switcherAudio;
  AudioHardware& audio;
  AudioProcessMonitor& processes;
  AppGrouping& grouping;
  DesktopEntries& desktop;
  ProcessTaps& taps;
  NotificationCenter& notifications;
  MediaKeyTap::Ports mediaKeys;
  IdlePlayPanel& idlePlayPanel;
  HotkeyRecorder::Ports recorder;
};

class Services {
 public:
  Services(Runtime& runtime, Settings& settings, ServicePorts ports)
      : bluetooth(runtime, settings, ports.bluetooth, ports.sleep),
        battery(runtime, ports.battery),
        switcher(runtime, std::move(ports.switcherAudio)),
        pinner(runtime, settings, ports.audio, ports.processes),
        profileGuard(runtime, settings, ports.audio, ports.processes, pinner),
        mediaKeys(runtime, settings, ports.notifications, std::move(ports.mediaKeys)),
        idlePlay(runtime, settings, mediaKeys.players(), ports.idlePlayPanel),
        volume(runtime, settings, ports.audio, ports.processes, ports.grouping, ports.desktop, ports.taps,
               ignoredSystemApps()),
        recorder(ports.recorder) {}
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  BluetoothManager bluetooth;
  BatteryCache battery;
  OutputSwitcher switcher;
  InputPinner pinner;
  ProfileGuard profileGuard;  // runs with the pinner
  MediaKeyTap mediaKeys;
  IdlePlayController idlePlay;
  AppVolumeController volume;
  HotkeyRecorder recorder;
};

}  // namespace wh
