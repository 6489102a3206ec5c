#pragma once
// Time and scheduling as the rest of the core sees them. Every component that waits, retries or
// polls does so through these interfaces, so the same code runs on the real event loop and on
// the virtual clock of the tests.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace wh {

using Work = std::function<void()>;

// One piece of delayed work. Cancelling it before it runs means it never runs.
class WorkItem {
 public:
  void cancel() { state_.store(State::cancelled); }
  bool isCancelled() const { return state_.load() == State::cancelled; }
  bool isPending() const { return state_.load() == State::pending; }

  // Called by the queue that owns the item: runs the work unless it was cancelled.
  void perform() {
    State expected = State::pending;
    if (state_.compare_exchange_strong(expected, State::done) && work_) {
      Work work = std::move(work_);
      work();
    }
  }

  explicit WorkItem(Work work) : work_(std::move(work)) {}

 private:
  enum class State { pending, cancelled, done };
  std::atomic<State> state_{State::pending};
  Work work_;
};

// A field that holds at most one delayed work item: assigning a new one cancels the old one, and
// so does destroying the holder. Delayed work is held and replaced, never stacked.
class HeldWork {
 public:
  HeldWork() = default;
  HeldWork(const HeldWork&) = delete;
  HeldWork& operator=(const HeldWork&) = delete;
  ~HeldWork() { cancel(); }

  HeldWork& operator=(std::shared_ptr<WorkItem> item) {
    cancel();
    item_ = std::move(item);
    return *this;
  }
  void cancel() {
    if (item_) item_->cancel();
    item_.reset();
  }
  bool isPending() const { return item_ && item_->isPending(); }

 private:
  std::shared_ptr<WorkItem> item_;
};

// A repeating timer; it stops when invalidated or destroyed.
class RepeatingTimer {
 public:
  virtual ~RepeatingTimer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
};

// The main queue: all state of the agent lives on the thread that runs it.
class MainQueue {
 public:
  virtual ~MainQueue() = default;
  // Runs the work on the main thread on a later turn of the loop. Safe from any thread.
  virtual void post(Work work) = 0;
  // Runs the work on the main thread after the delay unless the returned item is cancelled.
  // Safe from any thread.
  virtual std::shared_ptr<WorkItem> after(double seconds, Work work) = 0;
  // Calls tick every interval; the system may fire up to `tolerance` seconds late to save wake-ups.
  virtual std::unique_ptr<RepeatingTimer> every(double interval, double tolerance, Work tick) = 0;
};

// A private queue that runs one task at a time, in order, off the main thread.
class SerialQueue {
 public:
  virtual ~SerialQueue() = default;
  virtual const std::string& label() const = 0;
  virtual void async(Work task) = 0;
  // Runs the task on the queue and returns when it has run (after every task queued before it).
  virtual void sync(Work task) = 0;
};

enum class QueuePriority { userInteractive, userInitiated, utility, background };

class Clock {
 public:
  virtual ~Clock() = default;
  // Monotonic seconds since an arbitrary origin: for delays, polls and ages.
  virtual double now() const = 0;
  // The wall-clock time: for time stamps.
  virtual std::chrono::system_clock::time_point wallNow() const = 0;
};

class Runtime {
 public:
  virtual ~Runtime() = default;
  virtual MainQueue& main() = 0;
  virtual const Clock& clock() const = 0;
  virtual std::shared_ptr<SerialQueue> makeSerialQueue(std::string label, QueuePriority priority) = 0;
};

// Ties callbacks to the life of their owner: work guarded by a Lifetime does nothing once the
// owner (and with it the Lifetime) is gone. Used for everything that comes back to the main
// queue later, so a late answer never reaches a destroyed component.
class Lifetime {
 public:
  Lifetime() : token_(std::make_shared<char>(0)) {}
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;

  class Weak {
   public:
    bool alive() const { return !token_.expired(); }

   private:
    friend class Lifetime;
    explicit Weak(std::weak_ptr<char> token) : token_(std::move(token)) {}
    std::weak_ptr<char> token_;
  };

  Weak weak() const { return Weak(token_); }

  template <class F>
  auto guard(F f) const {
    return [owner = weak(), f = std::move(f)](auto&&... args) mutable {
      if (owner.alive()) f(std::forward<decltype(args)>(args)...);
    };
  }

 private:
  std::shared_ptr<char> token_;
};

// Runs `work` on `queue`, then hands its result to `done` on the main queue, unless the owner
// has gone by then.
template <class Result>
void runThenMain(SerialQueue& queue, MainQueue& main, const Lifetime& owner,
                 std::function<Result()> work, std::function<void(Result)> done) {
  queue.async([&main, alive = owner.weak(), work = std::move(work), done = std::move(done)]() mutable {
    auto result = std::make_shared<Result>(work());
    main.post([alive, result, done = std::move(done)] {
      if (alive.alive()) done(std::move(*result));
    });
  });
}

inline void runThenMain(SerialQueue& queue, MainQueue& main, const Lifetime& owner, Work work, Work done) {
  queue.async([&main, alive = owner.weak(), work = std::move(work), done = std::move(done)]() mutable {
    work();
    main.post([alive, done = std::move(done)] {
      if (alive.alive()) done();
    });
  });
}

}  // namespace wh
