#include <gtest/gtest.h>

#include "core/input/KeyCapabilities.h"

namespace wh {
namespace {

TEST(KeyCapabilities, ReadsBitsFromTheLeastSignificantWordAtTheEndAndAnythingElseReportsNothing) {
  // Media keys are bits 163-165: bits 35-37 of the third word from the end.
  const std::string mediaKeyboard = "3803078f800d001 feffffdfffefffff fffffffffffffffe";
  EXPECT_TRUE(reportsKey(mediaKeyboard, KeyCode::playPause));
  EXPECT_TRUE(reportsKey(mediaKeyboard, 1));   // KEY_ESC
  EXPECT_FALSE(reportsKey(mediaKeyboard, 0));  // KEY_RESERVED
  for (const char* media : {"1000000000 0 0\n",  // play/pause alone
                            "300 0 0 0",          // play and pause, each alone
                            // headphones over AVRCP, as BlueZ makes their input device
                            "2fc800 145200000000 0 10300 49e800000c00 e16800000000f f810000010000ffc"}) {
    EXPECT_TRUE(reportsMediaKeys(media)) << media;
  }
  EXPECT_FALSE(reportsKey("1000000000 0 0", KeyCode::nextSong));
  EXPECT_TRUE(reportsKey("10 0 0 0 0 0", KeyCode::playPause, 32)) << "32-bit kernels print 32-bit words";
  for (const char* other : {"10000 0 0 e0b0ffdf01cfffff fffffffffffffffe", "", "0", "zz 0 0"}) {
    EXPECT_FALSE(reportsMediaKeys(other)) << other;
  }
  EXPECT_FALSE(reportsKey("ff", -1));
}

}  // namespace
}  // namespace wh
