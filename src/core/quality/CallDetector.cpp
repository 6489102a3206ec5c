#include "core/quality/CallDetector.h"

#include <algorithm>

namespace wh {

namespace {

// One meeting-app entry against one process: the process itself, the application that owns it,
// or a helper named after the process's own id (never after the owner's id).
bool matches(const AudioProcess& process, const std::string& app) {
  if (process.bundleID == app) return true;
  if (process.appID == app) return true;
  return process.bundleID.size() > app.size() && process.bundleID.starts_with(app) &&
         process.bundleID[app.size()] == '.';
}

}  // namespace

bool CallDetector::inCall(const std::vector<AudioProcess>& processes, const std::vector<std::string>& meetingApps) {
  return std::any_of(processes.begin(), processes.end(), [&](const AudioProcess& process) {
    if (!process.runningInput) return false;  // open but not capturing: not a call
    return std::any_of(meetingApps.begin(), meetingApps.end(),
                       [&](const std::string& app) { return matches(process, app); });
  });
}

const std::vector<std::string>& CallDetector::defaultMeetingApps() {
  static const std::vector<std::string> list{
      // macOS bundle identifiers
      "us.zoom.xos",
      "com.microsoft.teams2",
      "com.microsoft.teams",
      "com.apple.FaceTime",
      "com.tinyspeck.slackmacgap",
      "com.hnc.Discord",
      "net.whatsapp.WhatsApp",
      "desktop.WhatsApp",
      "com.cisco.webexmeetingsapp",
      "Cisco-Systems.Spark",
      "com.skype.skype",
      // Zoom on Linux
      "us.zoom.Zoom",
      "Zoom",
      "zoom",
      // Microsoft Teams on Linux
      "com.microsoft.Teams",
      "teams",
      "teams-for-linux",
      "com.github.IsmaelMartinez.teams_for_linux",
      // Slack on Linux
      "com.slack.Slack",
      "slack",
      "slack_slack",
      // Discord on Linux
      "com.discordapp.Discord",
      "discord",
      "Discord",
      // Webex on Linux
      "webex",
      "CiscoCollabHost",
      // Skype on Linux
      "com.skype.Client",
      "skypeforlinux",
      "skype_skypeforlinux",
  };
  return list;
}

std::vector<std::string> CallDetector::meetingApps(const Settings& settings) {
  const auto value = settings.store().object(Keys::meetingApps);
  if (!value) return defaultMeetingApps();
  if (auto list = value->asStringArray()) return std::move(*list);
  return defaultMeetingApps();
}

}  // namespace wh
