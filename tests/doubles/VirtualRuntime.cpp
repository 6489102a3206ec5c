#include "doubles/VirtualRuntime.h"

#include <algorithm>

namespace wh {

class VirtualRuntime::Queue final : public SerialQueue {
 public:
  explicit Queue(std::string label) : label_(std::move(label)) {}
  const std::string& label() const override { return label_; }
  void async(Work task) override { tasks_.push_back(std::move(task)); }
  void sync(Work task) override {
    runAll();
    task();
  }
  std::size_t runAll() {
    std::size_t count = 0;
    while (!tasks_.empty()) {
      Work task = std::move(tasks_.front());
      tasks_.pop_front();
      task();
      ++count;
    }
    return count;
  }
  std::size_t pending() const { return tasks_.size(); }

 private:
  std::string label_;
  std::deque<Work> tasks_;
};

class VirtualRuntime::Timer final : public RepeatingTimer {
 public:
  Timer(VirtualRuntime& runtime, double interval, Work tick)
      : runtime_(runtime), interval_(interval), tick_(std::make_shared<Work>(std::move(tick))) {
    schedule(runtime_.now_ + interval_);
  }
  ~Timer() override { invalidate(); }
  void invalidate() override {
    valid_ = false;
    next_.cancel();
  }
  bool isValid() const override { return valid_; }

 private:
  void schedule(double at) {
    next_ = runtime_.schedule(at, [this, at] {
      // Reschedule first so that a tick which invalidates the timer stops it for good.
      schedule(at + interval_);
      auto tick = tick_;
      (*tick)();
    });
  }

  VirtualRuntime& runtime_;
  double interval_;
  std::shared_ptr<Work> tick_;
  HeldWork next_;
  bool valid_ = true;
};

VirtualRuntime::VirtualRuntime() = default;
VirtualRuntime::~VirtualRuntime() = default;

std::chrono::system_clock::time_point VirtualRuntime::wallNow() const {
  // A fixed origin keeps time stamps reproducible: 2026-01-01T00:00:00Z plus the virtual time.
  using namespace std::chrono;
  return system_clock::time_point(seconds(1767225600)) +
         duration_cast<system_clock::duration>(duration<double>(now_));
}

std::shared_ptr<SerialQueue> VirtualRuntime::makeSerialQueue(std::string label, QueuePriority) {
  auto queue = std::make_shared<Queue>(std::move(label));
  queues_.push_back(queue);
  return queue;
}

SerialQueue* VirtualRuntime::serialQueue(const std::string& label) const {
  for (const auto& weak : queues_) {
    if (auto queue = weak.lock(); queue && queue->label() == label) return queue.get();
  }
  return nullptr;
}

void VirtualRuntime::post(Work work) { schedule(now_, std::move(work)); }

std::shared_ptr<WorkItem> VirtualRuntime::after(double seconds, Work work) {
  return schedule(now_ + std::max(0.0, seconds), std::move(work));
}

std::unique_ptr<RepeatingTimer> VirtualRuntime::every(double interval, double, Work tick) {
  return std::make_unique<Timer>(*this, std::max(interval, 1e-6), std::move(tick));
}

std::shared_ptr<WorkItem> VirtualRuntime::schedule(double at, Work work) {
  auto item = std::make_shared<WorkItem>(std::move(work));
  scheduled_.emplace(std::make_pair(at, sequence_++), Entry{item});
  return item;
}

bool VirtualRuntime::runOneDueAt(double limit) {
  while (!scheduled_.empty()) {
    auto first = scheduled_.begin();
    if (first->first.first > limit) return false;
    now_ = std::max(now_, first->first.first);
    auto item = std::move(first->second.item);
    scheduled_.erase(first);
    if (item->isCancelled()) continue;
    item->perform();
    return true;
  }
  return false;
}

std::size_t VirtualRuntime::runReady() {
  std::size_t count = 0;
  while (runOneDueAt(now_)) ++count;
  return count;
}

void VirtualRuntime::advance(double seconds) {
  const double target = now_ + std::max(0.0, seconds);
  while (runOneDueAt(target)) {
  }
  now_ = target;
}

std::size_t VirtualRuntime::drainSerialQueues() {
  std::size_t total = 0;
  for (;;) {
    std::size_t round = 0;
    // Copy: a task may create a new queue.
    auto queues = queues_;
    for (const auto& weak : queues) {
      if (auto queue = weak.lock()) round += queue->runAll();
    }
    round += runReady();
    total += round;
    if (round == 0) break;
  }
  std::erase_if(queues_, [](const auto& weak) { return weak.expired(); });
  return total;
}

std::size_t VirtualRuntime::pendingSerialTasks() const {
  std::size_t count = 0;
  for (const auto& weak : queues_) {
    if (auto queue = weak.lock()) count += queue->pending();
  }
  return count;
}

std::size_t VirtualRuntime::pendingMainWork() const {
  return static_cast<std::size_t>(std::count_if(scheduled_.begin(), scheduled_.end(), [](const auto& entry) {
    return !entry.second.item->isCancelled();
  }));
}

double VirtualRuntime::nextDueIn() const {
  for (const auto& [key, entry] : scheduled_) {
    if (!entry.item->isCancelled()) return std::max(0.0, key.first - now_);
  }
  return -1;
}

}  // namespace wh
