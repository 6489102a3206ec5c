#pragma once
// Whether the user is in a call right now: some meeting application is capturing audio. A pure
// function over the audio process list and a list of meeting-app identifiers; it keeps no state
// and reads no settings (callers read the list, see meetingApps, and pass it in every time).
//
// The built-in meeting-app list, in this order. The first eleven entries are the applications'
// macOS bundle identifiers, the list every build of the agent starts from; the entries after
// them are the identities the same applications carry on Linux, where an audio process's
// `bundleID` is its desktop application id (systemd app unit, Flatpak id, desktop entry id) or,
// failing those, its executable's name:
//
//   Application      macOS bundle identifiers                  Linux identities (kind)
//   Zoom             us.zoom.xos                               us.zoom.Zoom (Flatpak), Zoom (desktop
//                                                              entry of the .deb/.rpm), zoom (executable)
//   Microsoft Teams  com.microsoft.teams2, com.microsoft.teams com.microsoft.Teams (Flatpak), teams
//                                                              (desktop entry and executable of the
//                                                              .deb/.rpm client), teams-for-linux
//                                                              (desktop entry and executable) and
//                                                              com.github.IsmaelMartinez.teams_for_linux
//                                                              (Flatpak) of the Teams for Linux client
//   FaceTime         com.apple.FaceTime                        none: no Linux client
//   Slack            com.tinyspeck.slackmacgap                 com.slack.Slack (Flatpak), slack (desktop
//                                                              entry and executable), slack_slack (Snap
//                                                              desktop entry)
//   Discord          com.hnc.Discord                           com.discordapp.Discord (Flatpak), discord
//                                                              (desktop entry), Discord (executable)
//   WhatsApp         net.whatsapp.WhatsApp, desktop.WhatsApp   none: no Linux client
//   Webex            com.cisco.webexmeetingsapp,               webex (desktop entry), CiscoCollabHost
//                    Cisco-Systems.Spark                       (executable)
//   Skype            com.skype.skype                           com.skype.Client (Flatpak), skypeforlinux
//                                                              (desktop entry and executable),
//                                                              skype_skypeforlinux (Snap desktop entry)
//
// Browsers are not meeting applications: a call in a browser tab is not detected. Users add
// identities (or replace the list) through the "meetingApps" setting.

#include <string>
#include <vector>

#include "core/audio/AudioProcesses.h"
#include "core/settings/Settings.h"

namespace wh {

class CallDetector {
 public:
  CallDetector() = delete;

  // True when a process that is capturing audio belongs to a meeting app: for some entry `app`,
  // in list order, its `bundleID` equals `app`, its `appID` equals `app`, or its `bundleID`
  // begins with `app` + "." (a helper of the app). Exact, case-sensitive comparisons; an empty
  // list never finds a call.
  static bool inCall(const std::vector<AudioProcess>& processes, const std::vector<std::string>& meetingApps);

  // The built-in list above, in its order.
  static const std::vector<std::string>& defaultMeetingApps();

  // The list to use now: the string array stored under "meetingApps" as it stands (an empty
  // array included); the built-in list when the key is absent or holds anything else.
  static std::vector<std::string> meetingApps(const Settings& settings);
};

}  // namespace wh
