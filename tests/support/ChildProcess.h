#pragma once
// A real child process for tests: started with its own environment, its standard output
// captured, waited for with a time limit, and killed (with its process group) when dropped.

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace wh::test {

class ChildProcess {
 public:
  using Environment = std::map<std::string, std::optional<std::string>>;  // nullopt unsets

  // Starts `argv` with the parent's environment changed by `changes`.
  ChildProcess(const std::vector<std::string>& argv, const Environment& changes = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  // The exit status once the process has ended within the time, else nothing. A process ended
  // by a signal reports 128 + the signal number.
  std::optional<int> waitFor(std::chrono::milliseconds timeout);
  bool running();
  // Whether the process's main thread is blocked waiting for events (poll, ppoll or epoll), as an
  // event loop with nothing to do is.
  bool waitingForEvents() const;
  // Standard output so far (reads what is available without blocking).
  const std::string& output();
  // Reads standard output until it contains `text` or the time runs out.
  bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout);
  void terminate(int signal);

 private:
  void readAvailable();
  pid_t pid_ = -1;
  int stdout_ = -1;
  std::optional<int> status_;
  std::string output_;
};

// Runs a command to its end and answers its exit status and output (empty status on time-out).
struct CommandResult {
  std::optional<int> status;
  std::string output;
};
CommandResult runCommand(const std::vector<std::string>& argv, const ChildProcess::Environment& changes = {},
                         std::chrono::milliseconds timeout = std::chrono::seconds(30));

// The path of an executable found on PATH, or empty.
std::string findExecutable(const std::string& name);

// Polls `condition` every few milliseconds until it holds or the time runs out.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds timeout = std::chrono::seconds(10));

}  // namespace wh::test
