#pragma once
// Small services run around start-up: the offer to install a copy of the program that runs from a
// removable disk or as an AppImage outside the applications folder, opening the settings program,
// and starting at login.

#include <functional>
#include <string>

#include "core/runtime/Runtime.h"

namespace wh {

// Where the program runs from, and what the desktop can do with it. Operations that can fail
// answer an error text, empty on success.
class ProgramInstaller {
 public:
  enum class Choice { move, notNow };
  virtual ~ProgramInstaller() = default;
  // The program as the user handles it: the AppImage file, or the folder that holds the programs.
  virtual std::string programPath() const = 0;
  virtual bool isAppImage() const = 0;
  // True for a program that runs where it was built (a folder of a build tree).
  virtual bool inBuildTree() const = 0;
  // The folder installed copies go to.
  virtual std::string applicationsFolder() const = 0;
  virtual bool exists(const std::string& path) const = 0;
  virtual std::string moveToTrash(const std::string& path) = 0;
  virtual std::string copy(const std::string& from, const std::string& to) = 0;
  // Starts the program at `path` as a new process one second from now.
  virtual std::string launchLater(const std::string& path) = 0;
  // Shows the question and returns at once; `answered` runs on the main queue when the person
  // answers (`accept` is the default button). `detail` says what the answer will do on this system.
  // Where nobody can answer, it answers notNow.
  virtual void ask(const std::string& title, const std::string& text, const std::string& detail,
                   const std::string& accept, const std::string& decline, std::function<void(Choice)> answered) = 0;
  virtual void alert(const std::string& title, const std::string& text) = 0;
  // Ends this instance from the main queue.
  virtual void quit() = 0;
};

class MoveToApplications {
 public:
  explicit MoveToApplications(ProgramInstaller& installer) : installer_(installer) {}

  // Whether installing a copy helps: an AppImage that is not in the applications folder yet, or a
  // program on a removable disk (gone when the disk is). A program in its build tree never is.
  static bool worthMoving(const std::string& path, bool isAppImage, bool inBuildTree,
                          const std::string& applicationsFolder);
  // Asks where worth it and returns at once: start-up goes on beside the question. On "move" the
  // copy is installed, started a second later, and this instance quits.
  void offerIfNeeded();

 private:
  void move();
  // Where the copy goes.
  std::string target() const;

  ProgramInstaller& installer_;
  Lifetime lifetime_;
};

// The separate settings program.
class SettingsProgram {
 public:
  virtual ~SettingsProgram() = default;
  virtual std::string path() const = 0;
  virtual bool exists() const = 0;
  // Ends every running copy, then calls `done` on the main queue.
  virtual void endRunning(Work done) = 0;
  // Starts a new copy, in its first-run guide when `onboarding`; answers an error text or "".
  virtual std::string start(bool onboarding) = 0;
};

class SettingsLauncher {
 public:
  explicit SettingsLauncher(SettingsProgram& program) : program_(program) {}
  // Opens the settings program in the requested mode; a running copy is ended first.
  void open(bool onboarding);

 private:
  SettingsProgram& program_;
  Lifetime lifetime_;
};

// The desktop's list of programs started at login.
class LoginItemService {
 public:
  virtual ~LoginItemService() = default;
  virtual bool enabled() const = 0;
  virtual bool needsApproval() const = 0;
  virtual std::string setEnabled(bool on) = 0;
};

class LoginItem {
 public:
  explicit LoginItem(LoginItemService& service) : service_(service) {}
  void set(bool on);
  bool enabled() const { return service_.enabled(); }
  bool needsApproval() const { return service_.needsApproval(); }

 private:
  LoginItemService& service_;
};

// The chores the application delegate runs around start-up.
struct StartupChores {
  MoveToApplications& move;
  SettingsLauncher& settings;
};

}  // namespace wh
