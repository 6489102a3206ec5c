#include <gtest/gtest.h>

#include "core/texts/PlatformTexts.h"

namespace wh::texts {
namespace {

TEST(SystemName, PrefersThePrettyNameThenNameAndVersion) {
  for (const auto& [osRelease, name] : std::vector<std::pair<std::string, std::string>>{
           {"NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", "Debian GNU/Linux 12 (bookworm)"},
           {"# comment\nNAME=Fedora\nVERSION=\"40 (Workstation Edition)\"\n", "Fedora 40 (Workstation Edition)"},
           {"NAME='Arch Linux'\nVERSION_ID=rolling", "Arch Linux rolling"},
           {"NAME=\"A \\\"quoted\\\" OS\"", "A \"quoted\" OS"},
           {"VERSION_ID=1.0", "Linux 1.0"}, {"garbage without equals\n=\n", "Linux"}}) {
    EXPECT_EQ(systemNameFromOsRelease(osRelease), name) << osRelease;
  }
}

}  // namespace
}  // namespace wh::texts
