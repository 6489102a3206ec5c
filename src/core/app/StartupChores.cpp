#include "core/app/StartupChores.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/log/Log.h"

namespace wh {

namespace {

// Removable disks: a copy there is gone when the disk is unplugged.
constexpr std::array<std::string_view, 2> removablePlaces{"/media/", "/run/media/"};

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

}  // namespace

bool MoveToApplications::worthMoving(const std::string& path, bool isAppImage, bool inBuildTree,
                                     const std::string& applicationsFolder) {
  if (isAppImage) return !startsWith(path, applicationsFolder + "/");
  if (inBuildTree) return false;
  return std::ranges::any_of(removablePlaces, [&](std::string_view place) { return startsWith(path, place); });
}

void MoveToApplications::offerIfNeeded() {
  if (!worthMoving(installer_.programPath(), installer_.isAppImage(), installer_.inBuildTree(),
                   installer_.applicationsFolder())) {
    return;
  }
  const std::string copy = target();
  std::string detail = "Wrenhaven will be copied to " + copy + " and started from there";
  if (installer_.exists(copy)) detail += ", in place of the copy there, which goes to the trash";
  detail += ". This copy then quits. Start-up goes on while you decide.";
  installer_.ask("Move Wrenhaven to Applications?",
                 "It needs to live in your Applications folder to keep its permissions and start at login.", detail,
                 "Move to Applications", "Not Now", lifetime_.guard([this](ProgramInstaller::Choice choice) {
                   if (choice == ProgramInstaller::Choice::move) move();
                 }));
}

std::string MoveToApplications::target() const {
  return installer_.applicationsFolder() + (installer_.isAppImage() ? "/Wrenhaven.AppImage" : "/Wrenhaven");
}

void MoveToApplications::move() {
  const std::string program = installer_.programPath();
  const std::string target = this->target();
  std::string error;
  if (installer_.exists(target)) error = installer_.moveToTrash(target);
  if (error.empty()) error = installer_.copy(program, target);
  if (error.empty()) error = installer_.launchLater(target);
  if (!error.empty()) {
    Log::error("could not move the app: " + error);
    installer_.alert("Could not move the app",
                     "Drag Wrenhaven into your Applications folder yourself, then open it from there.");
    return;
  }
  installer_.quit();
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
