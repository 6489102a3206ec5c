#include "app/StopSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>
#include <string>

#include "core/log/Log.h"

namespace wh::app {

namespace {

// A signal handler reaches nothing but process-wide state: the pipe's write end, while a
// StopSignals exists.
std::atomic<int> stopPipe{-1};
static_assert(std::atomic<int>::is_always_lock_free, "the handler may only touch a lock-free atomic");

extern "C" void onStopSignal(int signal) {
  const int saved = errno;
  const int fd = stopPipe.load();
  const auto byte = static_cast<unsigned char>(signal);
  if (fd >= 0 && ::write(fd, &byte, 1) < 0) {
    // A full pipe already holds a stop that the main loop has not read.
  }
  errno = saved;
}

std::string signalName(int signal) {
  switch (signal) {
    case SIGTERM: return "SIGTERM";
    case SIGINT: return "SIGINT";
    case SIGHUP: return "SIGHUP";
    default: return "signal " + std::to_string(signal);
  }
}

}  // namespace

StopSignals::StopSignals(std::function<void(int signal)> stop) : stop_(std::move(stop)) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    Log::error("cannot watch for stop signals: no pipe (errno " + std::to_string(errno) + ")");
    return;
  }
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
  stopPipe.store(writeEnd_);
  notifier_ = std::make_unique<QSocketNotifier>(readEnd_, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { readPipe(); });

  struct sigaction action = {};
  action.sa_handler = onStopSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART | SA_RESETHAND;
  for (std::size_t i = 0; i < std::size(handled); ++i) ::sigaction(handled[i], &action, &previous_[i]);
}

StopSignals::~StopSignals() {
  if (readEnd_ < 0) return;
  for (std::size_t i = 0; i < std::size(handled); ++i) ::sigaction(handled[i], &previous_[i], nullptr);
  stopPipe.store(-1);
  notifier_.reset();
  ::close(readEnd_);
  ::close(writeEnd_);
}

void StopSignals::readPipe() {
  unsigned char received[16];
  const auto count = ::read(readEnd_, received, sizeof received);
  for (ssize_t i = 0; i < count; ++i) {
    Log::info("stopping on " + signalName(received[i]));
    stop_(received[i]);
  }
}

}  // namespace wh::app
