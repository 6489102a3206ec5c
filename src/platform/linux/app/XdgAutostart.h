#pragma once
// Starting at login through the desktop's autostart folder: an entry named after the agent in
// $XDG_CONFIG_HOME/autostart. Turning it on copies the entry the package installed (which runs the
// agent under its systemd user unit where there is one); a program that was not installed gets an
// entry that starts it where it is.

#include <filesystem>
#include <string>

#include "core/app/StartupChores.h"

namespace wh::platform {

class XdgAutostart final : public LoginItemService {
 public:
  XdgAutostart(std::filesystem::path entry, std::filesystem::path installedEntry, std::filesystem::path program);
  // This program's entry, beside the installed one of its own installation prefix.
  static XdgAutostart forThisProgram();

  // An entry that is there and not switched off (Hidden, X-GNOME-Autostart-enabled=false).
  bool enabled() const override;
  bool needsApproval() const override { return false; }
  std::string setEnabled(bool on) override;

 private:
  std::string entryText() const;

  std::filesystem::path entry_;
  std::filesystem::path installedEntry_;
  std::filesystem::path program_;
};

}  // namespace wh::platform
