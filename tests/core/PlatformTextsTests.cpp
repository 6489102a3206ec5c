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

TEST(KeyAccess, TheStepsFollowWhatIsInPlaceAndTheFindingNamesOnlyWhatIsMissing) {
  const auto commands = [](const KeyAccessSystem& system) {
    std::string all;
    for (const auto& step : keyAccessSteps(system)) all += step.command + "|";
    return all;
  };
  const std::string trigger = "sudo udevadm trigger --subsystem-match=input --subsystem-match=misc";
  EXPECT_EQ(commands({"/opt/wh/share/wrenhaven/udev/70-wrenhaven-input.rules", false, "ada"}),
            "sudo cp /opt/wh/share/wrenhaven/udev/70-wrenhaven-input.rules /etc/udev/rules.d/ && sudo udevadm control "
            "--reload && " + trigger + "|sudo usermod -aG input ada|");
  EXPECT_EQ(commands({"/usr/share/wrenhaven/udev/70-wrenhaven-input.rules", true, ""}),
            "sudo udevadm control --reload && " + trigger + "|sudo usermod -aG input $USER|")
      << "a rule in place is applied, not copied again";

  EXPECT_EQ(keyAccessFinding({false, true}), "Still no key access: no keyboard with media keys can be read.");
  EXPECT_EQ(keyAccessFinding({true, false}), "Still no key access: /dev/uinput cannot be written.");
  EXPECT_EQ(keyAccessFinding({true, true}).rfind("Key access is allowed", 0), 0U);
}

}  // namespace
}  // namespace wh::texts
