#include "doubles/VirtualRuntime.h"

#include <algorithm>
#include <deque>

namespace wh {

class VirtualRuntime::Queue final : public SerialQueue {
 public:
  explicit Queue(std::string label) : label_(std::move(label)) {}
  const std::string& label() const override { return label_; }
  void async(Work task) override { tasks.push_back(std::move(task)); }
  void sync(Work task) override {
    runAll();
    task();
  }
  std::size_t runAll() {
    std::size_t count = 0;
    for (; !tasks.empty(); ++count) {
      Work task = std::move(tasks.front());
      tasks.pop_front();
      task();
    }
    return count;
  }
 private:
  std::deque<Work> tasks;
  std::string label_;
};

namespace {

// Reschedules itself before each tick, so that a tick which invalidates the timer stops it for good.
class Timer final : public RepeatingTimer {
 public:
  using Schedule = std::function<std::shared_ptr<WorkItem>(double, Work)>;
  Timer(Schedule schedule, double interval, Work tick)
      : schedule_(std::move(schedule)), interval_(interval), tick_(std::make_shared<Work>(std::move(tick))) {
    arm();
  }
  void invalidate() override { next_.cancel(); }
  bool isValid() const override { return next_.isPending(); }

 private:
  void arm() {
    next_ = schedule_(interval_, [this, tick = tick_] {
      arm();
      (*tick)();
    });
  }
  Schedule schedule_;
  double interval_;
  std::shared_ptr<Work> tick_;
  HeldWork next_;
};

}  // namespace

std::chrono::system_clock::time_point VirtualRuntime::wallNow() const {
  // A fixed origin keeps time stamps reproducible: 2026-01-01T00:00:00Z plus the virtual time.
  using namespace std::chrono;
  return system_clock::time_point(seconds(1767225600)) + duration_cast<system_clock::duration>(duration<double>(now_));
}

std::shared_ptr<SerialQueue> VirtualRuntime::makeSerialQueue(std::string label, QueuePriority) {
  auto queue = std::make_shared<Queue>(std::move(label));
  queues_.push_back(queue);
  return queue;
}

std::vector<std::shared_ptr<VirtualRuntime::Queue>> VirtualRuntime::liveQueues() const {
  std::vector<std::shared_ptr<Queue>> live;
  for (const auto& weak : queues_) {
    if (auto queue = weak.lock()) live.push_back(queue);
  }
  return live;
}

std::shared_ptr<WorkItem> VirtualRuntime::after(double seconds, Work work) {
  return schedule(now_ + std::max(0.0, seconds), std::move(work));
}

std::unique_ptr<RepeatingTimer> VirtualRuntime::every(double interval, double, Work tick) {
  return std::make_unique<Timer>([this](double delay, Work work) { return after(delay, std::move(work)); },
                                 std::max(interval, 1e-6), std::move(tick));
}

std::shared_ptr<WorkItem> VirtualRuntime::schedule(double at, Work work) {
  auto item = std::make_shared<WorkItem>(std::move(work));
  scheduled_.emplace(std::make_pair(at, sequence_++), item);
  return item;
}

bool VirtualRuntime::runOneDueAt(double limit) {
  while (!scheduled_.empty() && scheduled_.begin()->first.first <= limit) {
    now_ = std::max(now_, scheduled_.begin()->first.first);
    auto item = std::move(scheduled_.begin()->second);
    scheduled_.erase(scheduled_.begin());
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

void VirtualRuntime::drainSerialQueues() {
  for (std::size_t round = 1; round > 0;) {
    round = 0;
    for (const auto& queue : liveQueues()) round += queue->runAll();  // a task may make a new queue
    round += runReady();
  }
  std::erase_if(queues_, [](const auto& weak) { return weak.expired(); });
}

std::size_t VirtualRuntime::pendingMainWork() const {
  return static_cast<std::size_t>(
      std::count_if(scheduled_.begin(), scheduled_.end(), [](const auto& entry) { return !entry.second->isCancelled(); }));
}

double VirtualRuntime::nextDueIn() const {
  for (const auto& [key, item] : scheduled_) {
    if (!item->isCancelled()) return std::max(0.0, key.first - now_);
  }
  return -1;
}

}  // namespace wh
