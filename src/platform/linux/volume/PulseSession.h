#pragma once
// One private connection to the sound server on a thread of its own (libpulse's threaded main
// loop), for blocking work: every call waits for the server's answer, with a time limit. The
// thread carries the name given, so the tap's audio thread is "wrenhaven.tap".

#include <pulse/pulseaudio.h>

#include <cstdint>
#include <string>

namespace wh::platform {

class PulseSession {
 public:
  PulseSession(const std::string& server, const std::string& clientName, const char* threadName, double timeout);
  ~PulseSession();
  PulseSession(const PulseSession&) = delete;
  PulseSession& operator=(const PulseSession&) = delete;

  // Connects and waits until the connection is ready. Answers 0, or the server's error number.
  int connect();
  bool connected() const;
  // The error number of the last failed call (PA_ERR_TIMEOUT when the answer did not come in time).
  int error() const;
  pa_context* context() const { return context_; }
  pa_mainloop_api* api() const { return api_; }

  // Holds the loop's lock: every use of the context and its streams happens under it.
  class Lock {
   public:
    explicit Lock(PulseSession& session) : loop_(session.loop_) { pa_threaded_mainloop_lock(loop_); }
    ~Lock() { pa_threaded_mainloop_unlock(loop_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pa_threaded_mainloop* loop_;
  };

  // With the lock held: waits until the operation has run its callbacks. False when it could not
  // start, the time ran out or the connection was lost.
  bool await(pa_operation* operation);
  // With the lock held: loads a module; its index, or PA_INVALID_INDEX when the server did not.
  std::uint32_t loadModule(const char* name, const std::string& arguments);
  // With the lock held: whether the server unloaded the module.
  bool unloadModule(std::uint32_t index);
  // With the lock held: waits until `ready` holds (callbacks wake the waiter through signal()), the
  // time runs out or, unless still connecting, the connection is lost.
  template <class Ready>
  bool awaitUntil(Ready ready, bool connecting = false) {
    startDeadline();
    while (!ready() && !late_ && (connecting || connected())) pa_threaded_mainloop_wait(loop_);
    const bool done = ready();
    stopDeadline();
    return done;
  }
  // From a callback: wakes the waiter.
  void signal() { pa_threaded_mainloop_signal(loop_, 0); }

 private:
  void startDeadline();
  void stopDeadline();

  pa_threaded_mainloop* loop_ = nullptr;
  pa_mainloop_api* api_ = nullptr;
  pa_context* context_ = nullptr;
  pa_time_event* deadline_ = nullptr;
  std::string server_;
  double timeout_;
  bool late_ = false;
  int timedOut_ = 0;
};

}  // namespace wh::platform
