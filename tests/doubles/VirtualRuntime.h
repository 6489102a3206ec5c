#pragma once
// A deterministic runtime on a virtual clock. Nothing runs by itself: the test advances the
// clock, which runs every piece of main-queue work that falls due, in time order (work due at
// the same moment runs in the order it was scheduled), and drains the serial queues when it
// chooses, so that every timing rule can be checked in microseconds of real time.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/runtime/Runtime.h"

namespace wh {

class VirtualRuntime final : public Runtime, private MainQueue, private Clock {
 public:
  MainQueue& main() override { return *this; }
  const Clock& clock() const override { return *this; }
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label, QueuePriority priority) override;

  // Runs all main-queue work due now, including work that it posts for now; answers how many ran.
  std::size_t runReady();
  // Moves the clock forward, running due work at the moment it falls due.
  void advance(double seconds);
  // Runs every task queued on the serial queues (in queue creation order, each queue in order),
  // then the main-queue work they posted, until both are quiet.
  void drainSerialQueues();
  // Main-queue work scheduled (due now or later) that has not been cancelled.
  std::size_t pendingMainWork() const;
  // The delay until the next scheduled main-queue work, or a negative number when there is none.
  double nextDueIn() const;

  double now() const override { return now_; }
  std::chrono::system_clock::time_point wallNow() const override;

 private:
  class Queue;
  void post(Work work) override { schedule(now_, std::move(work)); }
  std::shared_ptr<WorkItem> after(double seconds, Work work) override;
  std::unique_ptr<RepeatingTimer> every(double interval, double tolerance, Work tick) override;
  std::shared_ptr<WorkItem> schedule(double at, Work work);
  bool runOneDueAt(double limit);
  std::vector<std::shared_ptr<Queue>> liveQueues() const;

  double now_ = 0;
  std::uint64_t sequence_ = 0;
  // Keyed by (due time, sequence), so equal times keep their scheduling order.
  std::map<std::pair<double, std::uint64_t>, std::shared_ptr<WorkItem>> scheduled_;
  std::vector<std::weak_ptr<Queue>> queues_;
};

}  // namespace wh
