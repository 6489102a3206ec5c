#pragma once
// One connection to the PipeWire daemon on a thread of its own (libpipewire's thread loop, named
// for its use: the gain taps' is "wrenhaven.tap"), with a view of the daemon's registry. Every use
// of the core, of proxies and of filters made on it happens with the loop's lock held: locked(fn)
// runs fn so, and callbacks run on the loop's thread with the lock held. Waiting calls have a time
// limit and answer a Failure that carries the daemon's own message.
//
// The daemon is found as libpipewire finds it (PIPEWIRE_REMOTE, else "pipewire-0", in
// PIPEWIRE_RUNTIME_DIR, else XDG_RUNTIME_DIR); a remote that is an absolute path is taken as the
// daemon's socket.

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace wh::platform {

class PipeWireConnection {
 public:
  struct Failure {
    enum class Kind {
      unreachable,  // no daemon answered where it was looked for
      timeout,      // the daemon did not answer in time
      refused,      // the daemon answered with an error
      lost,         // the connection ended
    };
    Kind kind = Kind::unreachable;
    int code = 0;  // a negative errno, as libpipewire gives it
    std::string message;
    std::string text() const;
  };

  struct Options {
    std::string remote{};  // empty: libpipewire's own search
    std::string clientName = "Wrenhaven";
    std::string threadName = "wrenhaven.pipewire";
    double timeout = 2.0;  // seconds, for each wait
  };

  // An object the daemon announces, with the properties it announced it with.
  struct Global {
    std::uint32_t id = 0;
    std::string type;  // PW_TYPE_INTERFACE_Node, ...
    std::uint32_t version = 0;
    std::map<std::string, std::string> properties;
    const std::string* property(const std::string& key) const;
  };

  using Opened = std::variant<std::unique_ptr<PipeWireConnection>, Failure>;
  // Connects and waits for the daemon's first answer and the registry's first listing.
  static Opened open(const Options& options);

  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  // Runs fn with the loop's lock held (not from the loop's own thread, where it is held already).
  template <class Fn>
  auto locked(Fn&& fn) -> decltype(fn()) {
    Lock lock(loop_);
    return fn();
  }

  // Waits until the daemon has handled everything sent before (a core sync). Lock not held.
  std::optional<Failure> roundtrip();

  // The registry as last announced. Lock not held.
  std::vector<Global> globals(std::string_view type) const;
  std::optional<Global> global(std::uint32_t id) const;
  // Waits until an object of `type` whose properties include every one of `properties` is
  // announced (or already is), and answers it. Lock not held.
  std::variant<Global, Failure> waitForGlobal(std::string_view type,
                                              const std::map<std::string, std::string>& properties);
  // Waits until an object of `type` that `matches` is announced (or already is). Lock not held.
  std::variant<Global, Failure> waitForGlobal(std::string_view type, const std::function<bool(const Global&)>& matches);
  // Waits until the object is gone from the registry. Lock not held.
  bool waitUntilGone(std::uint32_t id);

  // The failure that ended the connection, if it ended. Lock not held.
  std::optional<Failure> failure() const;
  bool connected() const { return !failure(); }

  // For use with the lock held.
  pw_thread_loop* loop() const { return loop_; }
  pw_context* context() const { return context_; }
  pw_core* core() const { return core_; }
  double timeout() const { return options_.timeout; }
  // With the lock held: waits until `ready` holds (loop callbacks wake waiters through signal()),
  // the time runs out or the connection ends. Answers what ended the wait, nothing when ready.
  std::optional<Failure> waitLocked(const std::function<bool()>& ready);
  void signal() { pw_thread_loop_signal(loop_, false); }

 private:
  class Lock {
   public:
    explicit Lock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
    ~Lock() { pw_thread_loop_unlock(loop_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pw_thread_loop* loop_;
  };

  explicit PipeWireConnection(Options options);
  std::optional<Failure> connect();
  static void onCoreDone(void* self, std::uint32_t id, int seq);
  static void onCoreError(void* self, std::uint32_t id, int seq, int res, const char* message);
  static void onGlobal(void* self, std::uint32_t id, std::uint32_t permissions, const char* type,
                       std::uint32_t version, const spa_dict* props);
  static void onGlobalRemove(void* self, std::uint32_t id);

  Options options_;
  pw_thread_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  // With the lock held:
  std::map<std::uint32_t, Global> globals_;
  int lastDone_ = -1;
  std::optional<Failure> ended_;
  std::optional<Failure> lastError_;  // the last error of any object, for the call that caused it
  bool running_ = false;
};

}  // namespace wh::platform
