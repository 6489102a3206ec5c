#include <gtest/gtest.h>

#include "core/texts/PlatformTexts.h"

namespace wh::texts {
namespace {

TEST(SystemName, PrefersThePrettyNameThenNameAndVersion) {
  EXPECT_EQ(systemNameFromOsRelease("NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"),
            "Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(systemNameFromOsRelease("# comment\nNAME=Fedora\nVERSION=\"40 (Workstation Edition)\"\n"),
            "Fedora 40 (Workstation Edition)");
  EXPECT_EQ(systemNameFromOsRelease("NAME='Arch Linux'\nVERSION_ID=rolling"), "Arch Linux rolling");
  EXPECT_EQ(systemNameFromOsRelease("NAME=\"A \\\"quoted\\\" OS\""), "A \"quoted\" OS");
  EXPECT_EQ(systemNameFromOsRelease("VERSION_ID=1.0"), "Linux 1.0");
  EXPECT_EQ(systemNameFromOsRelease(""), "Linux");
  EXPECT_EQ(systemNameFromOsRelease("garbage without equals\n=\n"), "Linux");
}

}  // namespace
}  // namespace wh::texts
