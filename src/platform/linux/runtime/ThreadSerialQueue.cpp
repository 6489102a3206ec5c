#include "platform/linux/runtime/ThreadSerialQueue.h"

#include <pthread.h>
#include <sys/resource.h>

#include <future>

namespace wh::platform {

ThreadSerialQueue::ThreadSerialQueue(std::string label, QueuePriority priority)
    : label_(std::move(label)), thread_([this, priority] { run(priority); }) {}

ThreadSerialQueue::~ThreadSerialQueue() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void ThreadSerialQueue::async(Work task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

void ThreadSerialQueue::sync(Work task) {
  if (thread_.get_id() == std::this_thread::get_id()) {
    task();  // Already on the queue: waiting for ourselves would never end.
    return;
  }
  std::promise<void> done;
  auto finished = done.get_future();
  async([&task, &done] {
    task();
    done.set_value();
  });
  finished.wait();
}

void ThreadSerialQueue::run(QueuePriority priority) {
  // Thread names are limited to 15 characters; keep the most telling end of the label.
  std::string name = label_.size() > 15 ? label_.substr(label_.size() - 15) : label_;
  ::pthread_setname_np(::pthread_self(), name.c_str());
  if (priority == QueuePriority::utility || priority == QueuePriority::background) {
    // A nicer thread for work nobody waits on (log writes, battery reads).
    ::setpriority(PRIO_PROCESS, 0, priority == QueuePriority::background ? 10 : 5);
  }
  for (;;) {
    Work task;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
      if (tasks_.empty()) return;  // stopping, and nothing left to do
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

}  // namespace wh::platform
