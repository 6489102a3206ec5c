#pragma once
// A serial queue on its own thread: tasks run one at a time, in the order they were queued.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "core/runtime/Runtime.h"

namespace wh::platform {

class ThreadSerialQueue final : public SerialQueue {
 public:
  ThreadSerialQueue(std::string label, QueuePriority priority);
  // Runs what is still queued, then ends the thread.
  ~ThreadSerialQueue() override;

  const std::string& label() const override { return label_; }
  void async(Work task) override;
  void sync(Work task) override;

 private:
  void run(QueuePriority priority);

  std::string label_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Work> tasks_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace wh::platform
