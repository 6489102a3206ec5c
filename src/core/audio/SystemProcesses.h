#pragma once
// Processes of the system itself that play sound (alert sounds, the desktop shell, speech, the
// sound server and its mixers, the agent) and never count as applications: no per-app volume for
// them, and a media key never goes to them. The app volume controller and the player tracker both
// read this one list.

#include <set>
#include <string>

#include "core/settings/Settings.h"

namespace wh {

// Application ids as the identity lookup gives them: a desktop entry's id where the program has
// one (the shells' entries name their programs in Exec), else the program's name, or the id a
// sound-server client carries.
inline const std::set<std::string>& ignoredSystemApps() {
  static const std::set<std::string> list{
      // The identifiers the agent started from.
      "com.apple.systemsoundserverd", "com.apple.coreaudiod", "com.apple.NotificationCenter",
      "com.apple.controlcenter", "com.apple.finder", "com.apple.Siri", "com.apple.accessibility.heard",
      // Event sounds, the desktop shells (by desktop entry and by program), screen readers' speech.
      "canberra-gtk-play", "org.gnome.Shell", "gnome-shell", "org.kde.plasmashell", "plasmashell",
      "speech-dispatcher", "orca",
      // The sound server's own processes, which play its loopbacks and filters.
      "pipewire", "wireplumber", "pipewire-pulse", "pipewire-media-session", "pulseaudio",
      // Mixers and their peak meters: GNOME's volume control client (shell, settings, media keys),
      // pavucontrol (its client's id, its desktop entries), KMix.
      "org.gnome.VolumeControl", "org.PulseAudio.pavucontrol", "org.pulseaudio.pavucontrol", "pavucontrol",
      "pavucontrol-qt", "org.kde.kmix",
      // The agent itself: its taps play through streams of its own.
      Shared::domain};
  return list;
}

}  // namespace wh
