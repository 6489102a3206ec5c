#pragma once
// Processes of the system itself that play sound (alert sounds, the desktop shell, speech) and
// never count as applications: no per-app volume for them, and a media key never goes to them.

#include <string>
#include <vector>

namespace wh {

// The identifiers the agent started from, then the ones the same roles carry on Linux desktops.
inline const std::vector<std::string>& ignoredSystemApps() {
  static const std::vector<std::string> list{
      "com.apple.systemsoundserverd", "com.apple.coreaudiod", "com.apple.NotificationCenter",
      "com.apple.controlcenter",      "com.apple.finder",     "com.apple.Siri",
      "com.apple.accessibility.heard",
      // Linux: event sounds, the shells and their notification daemons, screen readers' speech.
      "canberra-gtk-play", "org.gnome.Shell", "gnome-shell", "org.kde.plasmashell", "plasmashell",
      "speech-dispatcher", "orca"};
  return list;
}

}  // namespace wh
