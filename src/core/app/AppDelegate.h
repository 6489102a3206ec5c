#pragma once
// The agent's start-up order, the coalesced refresh that every component's change callback
// asks for, and the reactions to settings changes and to the user opening the program again.

#include <functional>
#include <string>
#include <vector>

#include "core/app/AppHost.h"
#include "core/app/BuildInfo.h"
#include "core/notify/NotificationCenter.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

class AppDelegate {
 public:
  static constexpr const char* testRunnerVariable = "XCTestConfigurationFilePath";

  AppDelegate(Runtime& runtime, Settings& settings, NotificationCenter& notifications, AppHost& host,
              BuildInfo build);
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  void applicationDidFinishLaunching();
  // The user opened the program while it runs. Answers true (handled).
  bool applicationShouldHandleReopen();

  // The refresh action: asks for one refresh on the next main-queue turn, however often it is
  // called before that turn. Safe to keep after the delegate is gone (it then does nothing).
  const std::function<void()>& refreshAction() const { return refreshAction_; }
  // What a refresh does, in the order added: redraw the status menu, the device items, publish.
  void addRefreshStep(std::function<void()> step) { refreshSteps_.push_back(std::move(step)); }

  // Whether launching got past the test-runner and second-instance checks.
  bool started() const { return started_; }

  // The first log line of a running agent.
  std::string startLine() const;

 private:
  void refresh();
  void settingsChanged(const std::string& object);

  Runtime& runtime_;
  Settings& settings_;
  NotificationCenter& notifications_;
  AppHost& host_;
  BuildInfo build_;
  bool refreshPending_ = false;
  bool started_ = false;
  std::vector<std::function<void()>> refreshSteps_;
  std::function<void()> refreshAction_;
  NotificationCenter::Observation settingsObservation_;
  Lifetime lifetime_;
};

}  // namespace wh
