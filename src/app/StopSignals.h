#pragma once
// SIGTERM, SIGINT and SIGHUP (a service manager's stop, Ctrl+C, the end of the session or of the
// terminal) end the agent the way its Quit does. The handler only writes the signal's number to a
// pipe; the main loop reads it and calls `stop`, which ends the event loop, after which the agent
// tears down as after Quit. Each handler runs once: the same signal again ends the process at once,
// for a teardown that does not finish.

#include <csignal>
#include <functional>
#include <iterator>
#include <memory>

class QSocketNotifier;

namespace wh::app {

class StopSignals {
 public:
  // At most one at a time: the handler reaches its pipe through a process-wide slot.
  explicit StopSignals(std::function<void(int signal)> stop);
  ~StopSignals();  // the handlers that were there before come back
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  static constexpr int handled[] = {SIGTERM, SIGINT, SIGHUP};

 private:
  void readPipe();

  std::function<void(int)> stop_;
  int readEnd_ = -1;
  int writeEnd_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
  struct sigaction previous_[std::size(handled)] = {};
};

}  // namespace wh::app
