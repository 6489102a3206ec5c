// Call detection over audio process lists, and the meeting-app list read from the settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "core/quality/CallDetector.h"
#include "doubles/MemoryStore.h"

namespace wh {
namespace {

AudioProcess capturing(std::string bundleID, std::string appID = "") {
  AudioProcess process;
  process.bundleID = std::move(bundleID);
  process.appID = appID.empty() ? process.bundleID : std::move(appID);
  process.runningInput = true;
  return process;
}

using List = std::vector<std::string>;

TEST(CallDetector, AMeetingAppCountsByItsOwnIdItsOwnersIdOrAsAHelperNamedAfterItsOwnId) {
  const List zoom{"us.zoom.xos"};
  // A helper of the app: both the prefix rule and the owner rule find it, and each alone does.
  EXPECT_TRUE(CallDetector::inCall({capturing("us.zoom.xos.audio", "us.zoom.xos")}, zoom));
  EXPECT_TRUE(CallDetector::inCall({capturing("us.zoom.xos.audio", "other")}, zoom));
  EXPECT_TRUE(CallDetector::inCall({capturing("helper", "us.zoom.xos")}, zoom));
  EXPECT_TRUE(CallDetector::inCall({capturing("", "us.zoom.xos")}, zoom)) << "no id of its own";
  EXPECT_TRUE(CallDetector::inCall({capturing("us.zoom.xos")}, zoom));
  // The prefix rule needs the dot, and reads only the process's own id.
  EXPECT_FALSE(CallDetector::inCall({capturing("com.microsoft.teams")}, {"com.microsoft.teams2"}));
  EXPECT_FALSE(CallDetector::inCall({capturing("com.microsoft.teams2")}, {"com.microsoft.teams"}));
  EXPECT_FALSE(CallDetector::inCall({capturing("com.microsoft.teams2x")}, {"com.microsoft.teams2"}));
  EXPECT_TRUE(CallDetector::inCall({capturing("com.microsoft.teams2.worker")}, {"com.microsoft.teams2"}));
  EXPECT_FALSE(CallDetector::inCall({capturing("helper", "us.zoom.xos.audio")}, zoom));
  // Exact comparisons: no case folding, no trimming.
  EXPECT_FALSE(CallDetector::inCall({capturing("com.apple.facetime")}, {"com.apple.FaceTime"}));
  EXPECT_FALSE(CallDetector::inCall({capturing("zoom ")}, {"zoom"}));
}

TEST(CallDetector, OnlyACapturingProcessMakesACall) {
  AudioProcess playing = capturing("us.zoom.xos");
  playing.runningInput = false;
  playing.runningOutput = true;
  EXPECT_FALSE(CallDetector::inCall({playing}, CallDetector::defaultMeetingApps()));

  AudioProcess recorder = capturing("org.gnome.SoundRecorder");
  EXPECT_FALSE(CallDetector::inCall({playing, recorder}, CallDetector::defaultMeetingApps()))
      << "a capturing process that is no meeting app and a meeting app that only plays";
  EXPECT_TRUE(CallDetector::inCall({recorder, playing, capturing("com.slack.Slack")}, CallDetector::defaultMeetingApps()));

  EXPECT_FALSE(CallDetector::inCall({}, CallDetector::defaultMeetingApps()));
  EXPECT_FALSE(CallDetector::inCall({capturing("us.zoom.xos")}, {})) << "an empty list finds no call";
}

TEST(CallDetector, TheBuiltInListKeepsTheElevenBundleIdsFirstAndAddsTheLinuxIdentitiesAfterThem) {
  const List first{"us.zoom.xos",           "com.microsoft.teams2",       "com.microsoft.teams",
                   "com.apple.FaceTime",    "com.tinyspeck.slackmacgap",  "com.hnc.Discord",
                   "net.whatsapp.WhatsApp", "desktop.WhatsApp",           "com.cisco.webexmeetingsapp",
                   "Cisco-Systems.Spark",   "com.skype.skype"};
  const List& list = CallDetector::defaultMeetingApps();
  ASSERT_GT(list.size(), first.size());
  EXPECT_EQ(List(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(first.size())), first);
  EXPECT_EQ(std::set<std::string>(list.begin(), list.end()).size(), list.size()) << "no entry twice";

  // The same applications as Linux reports them: Flatpak ids, desktop entry ids, executables.
  for (const char* linuxIdentity : {"us.zoom.Zoom", "Zoom", "zoom", "com.microsoft.Teams", "teams", "teams-for-linux",
                                    "com.slack.Slack", "slack", "com.discordapp.Discord", "discord", "Discord",
                                    "webex", "CiscoCollabHost", "com.skype.Client", "skypeforlinux"}) {
    const auto at = std::find(list.begin(), list.end(), linuxIdentity);
    ASSERT_NE(at, list.end()) << linuxIdentity;
    EXPECT_GE(at - list.begin(), static_cast<std::ptrdiff_t>(first.size())) << linuxIdentity;
    EXPECT_TRUE(CallDetector::inCall({capturing(linuxIdentity)}, list)) << linuxIdentity;
  }
  // Browsers hold calls too, but also play music: they are not meeting apps.
  for (const char* browser : {"firefox", "org.mozilla.firefox", "google-chrome", "chromium"}) {
    EXPECT_FALSE(CallDetector::inCall({capturing(browser)}, list)) << browser;
  }
}

class MeetingAppsSetting : public testing::Test {
 protected:
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
};

TEST_F(MeetingAppsSetting, AStoredStringArrayReplacesTheBuiltInListEvenWhenEmpty) {
  EXPECT_EQ(CallDetector::meetingApps(settings), CallDetector::defaultMeetingApps()) << "absent key";

  store.set(Keys::meetingApps, StoreValue::stringArray({"org.jitsi.jitsi-meet", "zoom"}));
  EXPECT_EQ(CallDetector::meetingApps(settings), (List{"org.jitsi.jitsi-meet", "zoom"}));

  store.set(Keys::meetingApps, StoreValue::stringArray({}));
  EXPECT_EQ(CallDetector::meetingApps(settings), List{});
  EXPECT_FALSE(CallDetector::inCall({capturing("us.zoom.xos")}, CallDetector::meetingApps(settings)));
}

TEST_F(MeetingAppsSetting, AValueOfAnotherTypeReadsAsTheBuiltInList) {
  const std::vector<StoreValue> wrong{
      StoreValue::string("us.zoom.xos"),
      StoreValue::boolean(false),
      StoreValue::number(3),
      StoreValue::fromJson(nlohmann::json::array({"zoom", 1})),
      StoreValue::fromJson(nlohmann::json{{"apps", {"zoom"}}}),
      StoreValue::data(R"(["zoom"])"),
  };
  for (const auto& value : wrong) {
    store.set(Keys::meetingApps, value);
    EXPECT_EQ(CallDetector::meetingApps(settings), CallDetector::defaultMeetingApps()) << value.json().dump();
  }
}

}  // namespace
}  // namespace wh
