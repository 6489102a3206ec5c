#pragma once
// The agent's components on the virtual clock with in-memory doubles, for the tests of the
// delegate and the status.
#include <gtest/gtest.h>

#include "core/app/AgentStatus.h"
#include "doubles/FakeAgentChannel.h"
#include "doubles/FakeAppHost.h"
#include "doubles/FakeBluetooth.h"
#include "doubles/FakeStartup.h"
#include "doubles/FakeProcessTaps.h"
#include "doubles/FakeHotkeys.h"
#include "doubles/FakeMediaKeys.h"
#include "doubles/MemoryApps.h"
#include "doubles/MemoryAudioHardware.h"
#include "doubles/MemoryStore.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh::test {

class AgentWorld : public testing::Test {
 protected:
  static constexpr const char* buds = "aa-bb-cc-dd-ee-ff";

  void remember() {
    settings.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
    stack.add(buds, "Sleep Buds");
  }
  nlohmann::json stored(const char* key) const {
    auto value = store.object(key);
    return value ? value->json() : nlohmann::json();
  }
  // The headphones' output (device 7) while `outputPresent`; the default output starts on device 1.
  OutputSwitcher::Audio audio() {
    return {[this](const std::string& address) -> std::optional<OutputSwitcher::DeviceID> {
              return outputPresent && address == buds ? std::optional<OutputSwitcher::DeviceID>(7) : std::nullopt;
            },
            [this] { return defaultOutput; },
            [this](OutputSwitcher::DeviceID id, WriteDone done) {
              defaultOutput = id;
              rt.main().post([done] {
                if (done) done(WriteAnswer::accept());
              });
            },
            [](OutputSwitcher::DeviceID) { return std::string("Sleep Buds"); },
            {}};  // no device list reports: the poll finds the output
  }

  VirtualRuntime rt;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  FakeAppHost host;
  FakeBluetoothStack stack;
  FakeSleepWatcher sleep;
  FakeBatterySources sources;
  FakeBluetoothAuthority authority;
  FakeAgentChannel channel;
  bool outputPresent = true;
  std::optional<OutputSwitcher::DeviceID> defaultOutput = 1;
  MemoryAudioHardware hardware{rt.main()};
  MemoryProcessTable processTable;
  MemoryDesktopEntries desktopEntries;
  AppGrouping grouping{processTable, desktopEntries};
  AudioProcessMonitor monitor{rt, hardware, grouping};
  FakeProcessTaps taps;
  FakeKeySource keySource;
  FakePlayers players;
  std::set<std::string> regularApps;
  FakeIdlePanel idlePanel;
  FakeHotkeyService hotkeyService;
  FakeRecorderPanel recorderPanel;
  Services services{rt, settings, {stack, sleep, sources, audio(), hardware, monitor, grouping, desktopEntries, taps,
                                   notifications, {keySource, players, monitor, [this] { return regularApps; }},
                                   idlePanel, {recorderPanel, &hotkeyService, &hotkeyService}}};
  BluetoothAccess access{authority, notifications};
  FakeInstaller installer;
  MoveToApplications move{installer};
  FakeSettingsProgram settingsProgram;
  SettingsLauncher launcher{settingsProgram};
  FakeLoginItems loginItems;
  LoginItem loginItem{loginItems};
  AgentStatus status{rt, settings, services, access, channel, host, loginItem};
  CapturedLog log;
};

}  // namespace wh::test
