#pragma once
// The real runtime: the main queue is the Qt event loop of the main thread, serial queues are
// threads of their own, and the clock is the system's.

#include <QObject>

#include <deque>
#include <mutex>

#include "core/runtime/Runtime.h"

namespace wh::platform {

class QtRuntime final : public Runtime, private MainQueue, private Clock {
 public:
  // Must be made on the thread that runs the Qt event loop, after the application object.
  QtRuntime();
  ~QtRuntime() override;

  MainQueue& main() override { return *this; }
  const Clock& clock() const override { return *this; }
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label, QueuePriority priority) override;

  double now() const override;
  std::chrono::system_clock::time_point wallNow() const override;

 private:
  class Timer;
  // Work for the main thread, in the order it was posted. It is kept here, under a lock of our
  // own, and each post wakes the main thread with an event that runs the oldest piece: so what
  // the poster did before posting visibly happens before the work runs, to ThreadSanitizer too,
  // which cannot see the locks inside Qt's event queue.
  class Inbox final : public QObject {
   public:
    void post(Work work);

   protected:
    bool event(QEvent* event) override;

   private:
    std::mutex mutex_;
    std::deque<Work> work_;
  };

  void post(Work work) override;
  std::shared_ptr<WorkItem> after(double seconds, Work work) override;
  std::unique_ptr<RepeatingTimer> every(double interval, double tolerance, Work tick) override;

  // Work is delivered through this object's thread affinity, so posts from other threads land
  // on the main thread.
  Inbox inbox_;
};

}  // namespace wh::platform
