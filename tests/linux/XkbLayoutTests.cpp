// Key names and codes from xkbcommon's layouts (the data of xkeyboard-config), as a Wayland session
// without an X server names the hotkeys' keys: the layout's own character for a stored key, and
// the stored key of a key the compositor reports.
#include <gtest/gtest.h>

#include "platform/linux/hotkeys/XkbLayout.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

// Stored key codes (US positions) and evdev key codes (+ 8 as Wayland gives them).
constexpr std::uint32_t kY = 0x10, kZ = 0x06, kSemicolon = 0x29, kA = 0x00;
constexpr std::uint32_t kKeyZ = 44 + 8, kKeyY = 21 + 8;

TEST(XkbLayout, NamesFollowTheLayoutAndReportedKeysMapBackToStoredCodes) {
  XkbLayout us("us"), german("de"), russian("ru");
  REQUIRE_RIG(us.usable() && german.usable() && russian.usable(), "xkeyboard-config's layouts are missing");
  struct Case {
    const char* name;
    const XkbLayout& layout;
    std::uint32_t stored;
    std::optional<std::string> character;
  };
  for (const Case& c : {Case{"us a", us, kA, "a"}, Case{"us ;", us, kSemicolon, ";"},
                        // German: ; is the shifted comma key, whose own character is the comma.
                        Case{"de ;", german, kSemicolon, ","}, Case{"de y", german, kY, "y"},
                        // A Russian layout has no key with a Latin letter.
                        Case{"ru a", russian, kA, std::nullopt}}) {
    EXPECT_EQ(c.layout.character(c.stored), c.character) << c.name;
  }
  // The key at the US Z position is Y on a German keyboard, and the other way round.
  EXPECT_EQ(us.keyCode(kKeyZ), kZ);
  EXPECT_EQ(german.keyCode(kKeyZ), kY);
  EXPECT_EQ(german.keyCode(kKeyY), kZ);
  EXPECT_EQ(russian.keyCode(kKeyZ), std::nullopt) << "a Cyrillic letter has no stored code";
}

}  // namespace
}  // namespace wh::platform
