#include <gtest/gtest.h>

#include "core/input/KeyCapabilities.h"

namespace wh {
namespace {

TEST(KeyCapabilities, ReadsBitsFromTheLeastSignificantWordAtTheEnd) {
  // A keyboard with media keys: bits 163-165 are bits 35-37 of the third word from the end.
  const std::string keyboard = "10000 0 0 e0b0ffdf01cfffff fffffffffffffffe";
  EXPECT_FALSE(reportsMediaKeys(keyboard)) << "that third word from the end is 0";
  const std::string mediaKeyboard = "3803078f800d001 feffffdfffefffff fffffffffffffffe";
  EXPECT_TRUE(reportsKey(mediaKeyboard, KeyCode::playPause));
  EXPECT_TRUE(reportsMediaKeys(mediaKeyboard));
  EXPECT_TRUE(reportsKey(mediaKeyboard, 1));   // KEY_ESC
  EXPECT_FALSE(reportsKey(mediaKeyboard, 0));  // KEY_RESERVED
  // Only play/pause (bit 164 = word 2, bit 36).
  EXPECT_TRUE(reportsMediaKeys("1000000000 0 0\n"));
  EXPECT_FALSE(reportsKey("1000000000 0 0", KeyCode::nextSong));
}

TEST(KeyCapabilities, AnythingElseReportsNothing) {
  EXPECT_FALSE(reportsMediaKeys(""));
  EXPECT_FALSE(reportsMediaKeys("0"));
  EXPECT_FALSE(reportsMediaKeys("zz 0 0"));
  EXPECT_FALSE(reportsKey("ff", -1));
  // 32-bit kernels print 32-bit words.
  EXPECT_TRUE(reportsKey("10 0 0 0 0 0", KeyCode::playPause, 32));
}

}  // namespace
}  // namespace wh
