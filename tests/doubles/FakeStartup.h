#pragma once
// The start-up chores' platform side, as a test sets it up, recording what was asked of it.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/app/StartupChores.h"

namespace wh::test {

class FakeInstaller : public ProgramInstaller {
 public:
  std::string programPath() const override { return path; }
  bool isAppImage() const override { return appImage; }
  std::string applicationsFolder() const override { return "/home/ada/Applications"; }
  bool exists(const std::string& target) const override { return existing == target; }
  std::string moveToTrash(const std::string& target) override { return act("trash " + target); }
  std::string copy(const std::string& from, const std::string& to) override { return act("copy " + from + " " + to); }
  std::string launchLater(const std::string& target) override { return act("launch " + target); }
  bool inBuildTree() const override { return buildTree; }
  void ask(const std::string&, const std::string&, const std::string& what, const std::string&, const std::string&,
           std::function<void(Choice)> answered) override {
    done.push_back("ask");
    detail = what;
    pending = std::move(answered);
  }
  // The person answers the open question.
  void answer(Choice choice) {
    if (auto answered = std::exchange(pending, nullptr)) answered(choice);
  }
  void alert(const std::string& title, const std::string&) override { done.push_back("alert " + title); }
  void quit() override { done.push_back("quit"); }

  std::string path = "/usr/bin";
  bool appImage = false;
  bool buildTree = false;
  std::string existing;
  std::string detail;  // of the last question
  std::function<void(Choice)> pending;
  std::string failing;  // the first word of the step that fails
  std::vector<std::string> done;

 private:
  std::string act(const std::string& step) {
    done.push_back(step);
    return step.rfind(failing + " ", 0) == 0 && !failing.empty() ? "Permission denied" : "";
  }
};

class FakeSettingsProgram : public SettingsProgram {
 public:
  std::string path() const override { return "/usr/bin/wrenhaven-settings"; }
  bool exists() const override { return present; }
  void endRunning(Work then) override {
    ++ended;
    pendingEnd = std::move(then);
  }
  std::string start(bool onboarding) override {
    starts.push_back(onboarding);
    return startError;
  }
  // The running copy has gone: the launcher goes on.
  void finishEnding() {
    if (auto then = std::exchange(pendingEnd, nullptr)) then();
  }

  bool present = true;
  std::string startError;
  int ended = 0;
  Work pendingEnd;
  std::vector<bool> starts;
};

class FakeLoginItems : public LoginItemService {
 public:
  bool enabled() const override { return on; }
  bool needsApproval() const override { return false; }
  std::string setEnabled(bool value) override {
    if (!refusal.empty()) return refusal;
    on = value;
    return "";
  }
  bool on = false;
  std::string refusal;
};

}  // namespace wh::test
