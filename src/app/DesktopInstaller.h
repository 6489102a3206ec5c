#pragma once
// Installing a copy that runs from a removable disk, or an AppImage, into ~/Applications: the program
// is the AppImage file when it runs as one, else the folder that holds the programs.

#include <string>

#include "core/app/StartupChores.h"

namespace wh::app {

class DesktopInstaller final : public ProgramInstaller {
 public:
  // What runs an installed copy: the AppImage itself, or this program inside the copied folder.
  static constexpr const char* programName = "wrenhaven";

  std::string programPath() const override;
  bool isAppImage() const override;
  bool inBuildTree() const override;
  std::string applicationsFolder() const override;
  bool exists(const std::string& path) const override;
  std::string moveToTrash(const std::string& path) override;
  std::string copy(const std::string& from, const std::string& to) override;
  std::string launchLater(const std::string& path) override;
  void ask(const std::string& title, const std::string& text, const std::string& detail, const std::string& accept,
           const std::string& decline, std::function<void(Choice)> answered) override;
  void alert(const std::string& title, const std::string& text) override;
  void quit() override;
};

}  // namespace wh::app
