#include "core/app/StartupChores.h"

#include <array>
#include <string_view>

#include "core/log/Log.h"

namespace wh {

namespace {

// Removable disks and temporary folders: a copy there is gone after a reboot or an unplug.
constexpr std::array<std::string_view, 4> temporaryPlaces{"/media/", "/run/media/", "/tmp/", "/var/tmp/"};

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

}  // namespace

bool MoveToApplications::runsFromTemporaryPlace(const std::string& path, bool isAppImage,
                                                const std::string& applicationsFolder) {
  for (auto place : temporaryPlaces) {
    if (startsWith(path, place)) return true;
  }
  return isAppImage && !startsWith(path, applicationsFolder + "/");
}

bool MoveToApplications::offerIfNeeded() {
  const std::string program = installer_.programPath();
  const std::string folder = installer_.applicationsFolder();
  if (!runsFromTemporaryPlace(program, installer_.isAppImage(), folder)) return false;
  const auto choice = installer_.ask(
      "Move Wrenhaven to Applications?",
      "It needs to live in your Applications folder to keep its permissions and start at login.",
      "Move to Applications", "Not Now");
  if (choice == ProgramInstaller::Choice::notNow) return false;

  const std::string target = folder + (installer_.isAppImage() ? "/Wrenhaven.AppImage" : "/Wrenhaven");
  std::string error;
  if (installer_.exists(target)) error = installer_.moveToTrash(target);
  if (error.empty()) error = installer_.copy(program, target);
  if (error.empty()) error = installer_.launchLater(target);
  if (!error.empty()) {
    Log::error("could not move the app: " + error);
    installer_.alert("Could not move the app",
                     "Drag Wrenhaven into your Applications folder yourself, then open it from there.");
    return false;
  }
  installer_.quit();
  return true;
}

void SettingsLauncher::open(bool onboarding) {
  if (!program_.exists()) {
    Log::info("settings app missing at " + program_.path());
    return;
  }
  program_.endRunning(lifetime_.guard([this, onboarding] {
    if (auto error = program_.start(onboarding); !error.empty()) Log::info("could not open settings: " + error);
  }));
}

void LoginItem::set(bool on) {
  if (auto error = service_.setEnabled(on); !error.empty()) Log::info("launch at login change failed: " + error);
}

}  // namespace wh
