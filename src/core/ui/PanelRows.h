#pragma once
// The panel's sections and rows as data: texts by component state, the actions each row offers
// and its options menu. The toolkit draws them; every decision is made here.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/ui/MenuEntry.h"
#include "core/ui/StatusMenuController.h"

namespace wh::ui {

struct RowAction {
  std::string title;
  std::function<void()> run;
};

// A row with a title and a switch, a detail of one or more lines (joined with "\n"), up to two
// action buttons and an options menu.
struct PanelRow {
  std::string title;
  bool switchOn = false;
  std::function<void(bool)> setSwitch;
  std::string detail;
  std::vector<RowAction> actions;
  std::string optionsLabel;
  Menu options;
};

// What the music quality row reads of the input pinner and the profile guard.
struct PinnerState {
  InputPinner::Status status = InputPinner::Status::idle();
  bool inCall = false;
  InputPinner::Override override = InputPinner::Override::none;
  bool guardFighting = false;
  // The guard's line about the default output, empty when it has none.
  std::string outputQuality;
};

// The music quality row's first line for the pinner's status.
std::string pinnerLine(const InputPinner::Status& status);
// "Automatic (release during calls)", "Always allow headphone mic", "Always keep music quality".
std::string callModeLabel(CallModeOption option);

// "Keep music quality": the input pinner's state, the output's sample rate and the microphone menu.
PanelRow musicQualityRow(PanelModel& model);
PanelRow musicQualityRow(PanelModel& model, const PinnerState& state);

// What the media keys row needs of the key tap.
struct MediaKeysState {
  enum class Tap { off, needsAccessibility, running };
  Tap tap = Tap::off;
  // The display name of the player the keys would drive, when there is one.
  std::optional<std::string> target;
  std::function<bool(IdlePlayAction)> installed;
  std::function<void()> openAccessibility;
};
PanelRow mediaKeysRow(Settings& settings, const MediaKeysState& state);
// The media keys row's detail for the switch, the pause, the idle-play choice and the tap.
std::string mediaKeysDetail(bool enabled, bool paused, IdlePlayAction idle, MediaKeysState::Tap tap,
                            const std::optional<std::string>& target);
// The row for the services' key tap. Without access to the keyboards its action logs how access is
// granted and looks again.
PanelRow mediaKeysRow(PanelModel& model);

// The label of an idle-play choice, as the options menu lists it.
std::string idlePlayLabel(IdlePlayAction action);

// One remembered pair of headphones in the devices section.
struct DeviceRow {
  std::string address;
  std::string name;
  std::string status;
  DeviceIcon icon = DeviceIcon::headphones;
  BluetoothManager::Phase::Kind phase = BluetoothManager::Phase::Kind::disconnected;
  std::optional<int> battery;
  std::function<void()> toggle;
};

struct DevicesSection {
  std::vector<DeviceRow> devices;
  // The empty state's title, or nothing when headphones are remembered.
  std::string emptyTitle;
  // The Bluetooth permission's notice, when it stops the section from working.
  std::string notice;
  std::string noticeDetail;
  std::optional<RowAction> noticeAction;
  // "Add Headphones…" and its menu of paired headphones that are not remembered yet.
  std::optional<std::string> addTitle;
  Menu addMenu;
};

DevicesSection devicesSection(PanelModel& model, std::chrono::system_clock::time_point now);

// One application in the app volume section, with its slider and mute button.
struct AppVolumeRow {
  std::string name;
  // The desktop entry's icon name, looked up in the icon theme; may be empty.
  std::string iconName;
  float gain = 1.0F;
  bool muted = false;
  bool playing = false;
  std::function<void(float)> setGain;
  std::function<void()> toggleMute;
};

struct AppVolumeSection {
  std::vector<AppVolumeRow> apps;
  // What the section says while no application is listed.
  std::string emptyText;
  // The controller's problem, when it has one, and the way out of it.
  std::string problemTitle;
  std::string problemDetail;
  std::optional<RowAction> problemAction;
};

// Always shown: with no application listed it says how one gets there, and a problem stays with it.
AppVolumeSection appVolumeSection(AppVolumeController& volume);

}  // namespace wh::ui
