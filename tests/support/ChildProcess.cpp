#include "support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace wh::test {

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const Environment& changes) {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  // A group of its own, so that whatever it starts is stopped with it.
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  ::posix_spawnattr_setpgroup(&attributes, 0);

  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!changes.contains(text.substr(0, text.find('=')))) environment.push_back(text);
  }
  for (const auto& [name, value] : changes) {
    if (value) environment.push_back(name + "=" + *value);
  }
  std::vector<char*> args, envp;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  for (auto& entry : environment) envp.push_back(entry.data());
  args.push_back(nullptr);
  envp.push_back(nullptr);

  const int error = ::posix_spawnp(&pid_, args[0], &actions, &attributes, args.data(), envp.data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  ::close(pipeFds[1]);
  stdout_ = pipeFds[0];
  if (error != 0) {
    ::close(stdout_);
    throw std::runtime_error("could not start " + argv[0] + ": " + std::strerror(error));
  }
  ::fcntl(stdout_, F_SETFL, O_NONBLOCK);
}

ChildProcess::~ChildProcess() {
  ::kill(-pid_, SIGKILL);  // with anything it left behind in its group
  if (!status_) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::close(stdout_);
}

void ChildProcess::readAvailable() {
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(stdout_, buffer, sizeof buffer);
    if (got <= 0) return;
    output_.append(buffer, static_cast<std::size_t>(got));
  }
}

const std::string& ChildProcess::output() {
  readAvailable();
  return output_;
}

bool ChildProcess::running() {
  if (status_) return false;
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) == pid_) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return false;
  }
  return true;
}

bool ChildProcess::waitingForEvents() const {
  // The first field of /proc/<pid>/syscall is the number of the call the main thread is blocked in
  // ("running" while it runs).
  std::ifstream file("/proc/" + std::to_string(pid_) + "/syscall");
  long call = -1;
  if (!(file >> call)) return false;
  for (const long waiting : {
#ifdef SYS_poll
           static_cast<long>(SYS_poll),
#endif
           static_cast<long>(SYS_ppoll), static_cast<long>(SYS_epoll_pwait)}) {
    if (call == waiting) return true;
  }
  return false;
}

std::optional<int> ChildProcess::waitFor(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (running()) {
    readAvailable();
    if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  readAvailable();
  return status_;
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
  return eventually([&] { return output().find(text) != std::string::npos; }, timeout);
}

void ChildProcess::terminate(int signal) {
  if (!status_) ::kill(pid_, signal);
}

CommandResult runCommand(const std::vector<std::string>& argv, const ChildProcess::Environment& changes,
                         std::chrono::milliseconds timeout) {
  ChildProcess child(argv, changes);
  const auto status = child.waitFor(timeout);
  return {status, child.output()};
}

std::string findExecutable(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const auto candidate = std::filesystem::path(folder) / name;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate.string();
  }
  return {};
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace wh::test
