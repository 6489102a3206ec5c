#pragma once
// What launching decides before anything is built: a process hosted by a test runner starts
// nothing, and a second instance hands the reopen to the running one and quits.

#include "core/app/AppHost.h"
#include "core/runtime/Runtime.h"

namespace wh {

class LaunchGate {
 public:
  static constexpr const char* testRunnerVariable = "XCTestConfigurationFilePath";

  enum class Decision { run, hostedByTestRunner, anotherInstanceRuns };

  explicit LaunchGate(AppHost& host) : host_(host) {}
  LaunchGate(const LaunchGate&) = delete;
  LaunchGate& operator=(const LaunchGate&) = delete;

  // Asks the host, in this order: test runner? another instance? Only a process that runs holds
  // the single-instance claim; for a second instance the running one has been asked to reopen.
  Decision decide();

  // What a later instance's reopen does in this one; set once the agent is built.
  Work onReopen;

 private:
  AppHost& host_;
};

}  // namespace wh
