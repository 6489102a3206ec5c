#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "core/notify/NotificationCenter.h"
#include "core/settings/Settings.h"
#include "platform/linux/settings/JsonFileStore.h"

namespace {

// A settings file in a fresh temporary folder (removed afterwards), filled as for a user with
// twenty remembered headphones and a few other choices, and the store and facade over it.
class FilledSettings {
 public:
  FilledSettings() : folder_(makeFolder()), store(folder_ / "wrenhaven" / "settings.json") {
    std::vector<wh::DeviceSetting> devices;
    for (int i = 0; i < 20; ++i) {
      wh::DeviceSetting device{.address = "aa-bb-cc-dd-ee-" + std::to_string(10 + i),
                               .name = "Headphones number " + std::to_string(i)};
      if (i % 3 == 0) device.hotkey = wh::HotkeyCombo{static_cast<std::uint32_t>(i), 0x900};
      devices.push_back(device);
    }
    settings.setDevices(devices);
    settings.setAppVolumes({{"org.example.player", {0.5F, false}}, {"org.example.chat", {1.0F, true}}});
    settings.setCallMode(wh::CallModeOption::alwaysPinned);
    store.set(wh::Keys::mediaKeysEnabled, wh::StoreValue::boolean(true));
  }
  ~FilledSettings() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  FilledSettings(const FilledSettings&) = delete;
  FilledSettings& operator=(const FilledSettings&) = delete;

 private:
  static std::filesystem::path makeFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "wrenhaven-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    return pattern;
  }
  std::filesystem::path folder_;

 public:
  wh::platform::JsonFileStore store;
  wh::NotificationCenter notifications;
  wh::Settings settings{store, notifications, true, nullptr};
};

}  // namespace

// The remembered headphones, read as the menus read them: the file is unchanged since last time.
static void BM_SettingsDevicesOnUnchangedFile(benchmark::State& state) {
  FilledSettings filled;
  if (filled.settings.devices().size() != 20) state.SkipWithError("the devices did not read back");
  for (auto _ : state) benchmark::DoNotOptimize(filled.settings.devices());
}
BENCHMARK(BM_SettingsDevicesOnUnchangedFile);

// One raw read from the store of an unchanged file: the stat that revalidates the kept document.
static void BM_SettingsStoreObjectOnUnchangedFile(benchmark::State& state) {
  FilledSettings filled;
  for (auto _ : state) benchmark::DoNotOptimize(filled.store.object(wh::Keys::mediaKeysEnabled));
}
BENCHMARK(BM_SettingsStoreObjectOnUnchangedFile);

// One write of one key: lock, re-read, write a temporary file, force it to disk, rename.
static void BM_SettingsStoreWrite(benchmark::State& state) {
  FilledSettings filled;
  bool on = false;
  for (auto _ : state) {
    on = !on;
    if (!filled.store.write({{wh::Keys::mediaKeysPaused, wh::StoreValue::boolean(on)}})) {
      state.SkipWithError("write failed");
      break;
    }
  }
}
BENCHMARK(BM_SettingsStoreWrite)->Unit(benchmark::kMicrosecond);
