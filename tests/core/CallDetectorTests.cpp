// Call detection over audio process lists, and the meeting-app list read from the settings.
#include <gtest/gtest.h>

#include "core/quality/CallDetector.h"
#include "doubles/MemoryStore.h"

namespace wh {
namespace {

using List = std::vector<std::string>;

TEST(CallDetector, ACapturingProcessIsInACallByItsOwnIdItsOwnersIdOrAsAHelperNamedAfterItsOwnId) {
  const std::vector<std::tuple<std::string, std::string, bool, List, bool>> cases = {
      // bundleID, appID, capturing, meeting apps, in a call
      {"us.zoom.xos", "us.zoom.xos", true, {"org.example.Notes", "us.zoom.xos"}, true},
      {"us.zoom.xos", "us.zoom.xos", false, {"us.zoom.xos"}, false},
      {"us.zoom.xos.audio", "other", true, {"us.zoom.xos"}, true},
      {"", "us.zoom.xos", true, {"us.zoom.xos"}, true},
      {"helper", "us.zoom.xos.audio", true, {"us.zoom.xos"}, false},
      {"com.microsoft.teams2", "com.microsoft.teams2", true, {"com.microsoft.teams"}, false},
      {"com.microsoft.teams", "com.microsoft.teams", true, {"com.microsoft.teams2"}, false},
      {"com.apple.facetime", "com.apple.facetime", true, {"com.apple.FaceTime"}, false},
      {"us.zoom.xos", "us.zoom.xos", true, {}, false},
  };
  for (const auto& [bundleID, appID, capturing, meetingApps, inCall] : cases) {
    const AudioProcess notes{1, 10, "org.example.Notes", false, true, "org.example.Notes"};  // open, not capturing
    const AudioProcess process{2, 11, bundleID, capturing, !capturing, appID};
    EXPECT_EQ(CallDetector::inCall({notes, process}, meetingApps), inCall) << bundleID << " of " << appID;
  }
}

TEST(CallDetector, AMeetingAppsSettingThatIsNoStringArrayReadsAsTheBuiltInList) {
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  store.set(Keys::meetingApps, StoreValue::fromJson(nlohmann::json::array({"zoom", 1})));
  EXPECT_EQ(CallDetector::meetingApps(settings), CallDetector::defaultMeetingApps());
}

}  // namespace
}  // namespace wh
