#pragma once
// Every user-visible text that names the operating system, in one place. The agent's texts are
// otherwise fixed; only these say the platform's own words.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/bluetooth/BluetoothPorts.h"

namespace wh::texts {

// Shown where the computer has no microphone of its own.
// Why global hotkeys are off: they are X11 key grabs.
inline constexpr const char* kHotkeysNeedX11 = "hotkeys are off: this Wayland session has no X11 display";
inline constexpr const char* kHotkeysNoDisplay = "hotkeys are off: no X11 display";
// On Wayland the X11 display is XWayland, whose grabs see only keys typed into X11 windows.
inline constexpr const char* kHotkeysXWaylandOnly =
    "hotkeys work only while an X11 window is focused: on Wayland, X11 key grabs see only X11 windows";
inline constexpr const char* kMediaKeysNotOnXWayland =
    "media keys need the input devices on Wayland: X11 key grabs there see only X11 windows";
inline constexpr const char* kNoBuiltInMicrophone = "This computer has no built-in microphone";

// Logged when the user asks for Bluetooth access that the system refuses: on Linux the system bus
// policy decides who may talk to BlueZ.
inline constexpr const char* kBluetoothAccessHelp =
    "Bluetooth access is refused by the system: allow this user to use BlueZ (often by joining the "
    "\"bluetooth\" group) in the system's Bluetooth settings or bus policy";

// Logged when the user asks for the media keys' access: reading the keyboards and sending keys on.
inline constexpr const char* kAccessibilityHelp =
    "media keys need read access to the keyboards under /dev/input and write access to /dev/uinput: "
    "add this user to the \"input\" group, or copy /usr/share/wrenhaven/udev/70-wrenhaven-input.rules to "
    "/etc/udev/rules.d/, then log in again";

// The recorder's answers for keys it cannot take: combinations the system keeps for itself (after
// their display text) and keys without a stored code (after their name).
inline constexpr const char* kReservedConsoleSwitch = " switches to a text console on Linux. Choose another combination.";
inline constexpr const char* kReservedEndSession = " can end the graphical session. Choose another combination.";
inline constexpr const char* kReservedRestart = " can restart the computer. Choose another combination.";
std::string unusableKey(const std::string& keyName);

// What stops Bluetooth on this computer, and what fixes it: shown by the panel, the settings
// window and the guide while the adapter is not on.
struct BluetoothProblem {
  std::string title;
  std::string fix;
  bool settingsHelp = false;  // the desktop's Bluetooth settings can fix it
};
std::optional<BluetoothProblem> bluetoothProblem(BluetoothAdapterState state);

// The desktops' Bluetooth settings pages, tried in this order.
inline constexpr const char* kBluetoothSettingsCommands[][3] = {
    {"gnome-control-center", "bluetooth", nullptr},
    {"systemsettings", "kcm_bluetooth", nullptr},
    {"blueman-manager", nullptr, nullptr},
};

// The diagnostics heading of the live battery source's entries.
inline constexpr const char* kBatteryEntriesHeading = "\nBattery entries in BlueZ: ";

// What reading the media keys needs on Linux.
struct InputAccess {
  bool mediaKeyDevicesReadable = false;  // some input device that reports media keys can be read
  bool uinputWritable = false;           // keys can be sent on through /dev/uinput
  bool trusted() const { return mediaKeyDevicesReadable && uinputWritable; }
};

// What reading the media keys needs is called "key access" wherever a person meets it: the panel,
// the settings program and the diagnostics.
inline constexpr const char* kKeyAccess = "Key access";
// "Key access: not allowed (media-key input devices readable: yes, /dev/uinput writable: no)".
std::string accessibilityLine(const InputAccess& access);

// The key access panel ("Allow Key Access…", "requestAccessibility", the settings program's
// "Check Again"): the steps that grant access on this system, and what a check found.
struct KeyAccessSystem {
  std::string ruleFile;        // the udev rule the package installs
  bool ruleInstalled = false;  // a copy is in /etc/udev/rules.d already
  std::string userName;        // who runs the agent
};
struct KeyAccessStep {
  std::string text;
  std::string command;     // to run in a terminal; empty when the step is words only
  std::string privileged;  // the same, for a shell run with administrator rights (pkexec); may be empty
};
// What the administrator's dialog (pkexec) would be asked to do and what it grants, shown beside
// its button.
inline constexpr const char* kKeyAccessAdminGrant =
    "Or let Wrenhaven do the first step now: the system asks for an administrator's password, copies the "
    "rule and applies it. It lets the person logged in at this computer read every keyboard and mouse, "
    "and lets the programs they run type keys (/dev/uinput).";
inline constexpr const char* kKeyAccessAdminButton = "Allow with Administrator Rights…";
inline constexpr const char* kKeyAccessTitle = "Allow Key Access";
inline constexpr const char* kKeyAccessIntro =
    "Wrenhaven reads the media keys from the keyboards under /dev/input and passes every other key on "
    "through /dev/uinput. This user may not use them yet. Do one of these, then press Check Again.";
std::vector<KeyAccessStep> keyAccessSteps(const KeyAccessSystem& system);
// What a check found: "Key access is allowed: …" or "Still no key access: " and what is missing.
std::string keyAccessFinding(const InputAccess& access);

// The media keys row of the panel while the agent leaves the keys alone, and its action where
// reading the keys needs the input devices.
// Where the desktop itself passes the media keys on, and what key access adds.
inline constexpr const char* kMediaKeysOnTheDesktop =
    "GNOME and KDE send the media keys to a player themselves. With key access Wrenhaven sends them to the "
    "player used last, and holding ⏭︎ or ⏮︎ seeks.";
inline constexpr const char* kMediaKeysElsewhere = "▶︎, ⏭︎ and ⏮︎ go where the desktop sends them";
inline constexpr const char* kMediaKeysPaused = "Paused: the desktop handles the keys";
inline constexpr const char* kOpenAccessibility = "Allow Key Access…";
inline constexpr const char* kNeedsAccessibility = "Needs key access to read the keys";

// The tray holds what a menu bar holds elsewhere: the main icon and one icon per headphones.
inline constexpr const char* kShowInTray = "Show in Tray";
inline constexpr const char* kShowTrayIcon = "Show Tray Icon";
inline constexpr const char* kHideTrayIcon = "Hide Tray Icon";
// The main item's own menu, which the shell draws at the icon where the panel cannot open there
// (Wayland); "Open Wrenhaven…" opens the full panel.
inline constexpr const char* kKeepMusicQuality = "Keep Music Quality";
inline constexpr const char* kMediaKeysSwitch = "Media Keys";
inline constexpr const char* kOpenPanel = "Open Wrenhaven…";
inline constexpr const char* kHideTrayIconToolTip = "Open Wrenhaven again from the applications menu to bring it back.";
// Why the app volume section asks for audio recording.
inline constexpr const char* kAppVolumeRecording =
    "The sound server must let Wrenhaven capture what apps play to change one app's volume. Nothing is recorded.";

inline constexpr const char* kTrayMissingTitle = "No tray icon";
// After a combination, in the recorder: it is registered but does not work.
inline constexpr const char* kHotkeyTaken =
    " is taken: the desktop or another program keeps it. Press another combination.";
// Why the tray icon is not shown: no tray on this desktop (GNOME Shell without its AppIndicator
// extension, or another desktop without one), and what brings one.
std::string trayMissing(bool gnomeShell);

// The operating system's name and version from the text of /etc/os-release: PRETTY_NAME, else
// NAME and VERSION (or VERSION_ID), else "Linux".
std::string systemNameFromOsRelease(std::string_view osRelease);

}  // namespace wh::texts
