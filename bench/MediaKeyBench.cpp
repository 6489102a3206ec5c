#include <benchmark/benchmark.h>
#include <linux/input.h>
#include <poll.h>

#include <condition_variable>
#include <deque>
#include <thread>

#include "doubles/PipeKernelInput.h"
#include "platform/linux/mediakeys/EvdevCapture.h"

// What the media key reader adds to a key on a grabbed keyboard: from the record entering the
// reader to it leaving through the keyboard's twin. A media key that is let through makes the round
// trip to the main thread for its decision; an ordinary key goes straight out.

namespace {

using namespace wh;

// An idle main thread: runs what is posted at once, on a thread of its own.
class IdleMainQueue final : public MainQueue {
 public:
  IdleMainQueue() : thread_([this] { run(); }) {}
  ~IdleMainQueue() override {
    post({});
    thread_.join();
  }
  void post(Work work) override {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    ready_.notify_one();
  }
  std::shared_ptr<WorkItem> after(double, Work) override { return nullptr; }
  std::unique_ptr<RepeatingTimer> every(double, double, Work) override { return nullptr; }

 private:
  void run() {
    for (;;) {
      std::unique_lock lock(mutex_);
      ready_.wait(lock, [&] { return !work_.empty(); });
      Work work = std::move(work_.front());
      work_.pop_front();
      lock.unlock();
      if (!work) return;
      work();
    }
  }
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<Work> work_;
  std::thread thread_;
};

void throughTheReader(benchmark::State& state, __u16 code) {
  IdleMainQueue main;
  auto kernel = std::make_unique<PipeKernelInput>();
  const auto [keys, twin] = kernel->plug("/dev/input/event0");
  platform::EvdevCapture capture(std::move(kernel), main, {[](const MediaKeyEvent&) { return false; }, {}});
  const input_event records[2] = {{{0, 0}, EV_KEY, code, 1}, {{0, 0}, EV_SYN, SYN_REPORT, 0}};
  input_event out[2];
  for (auto _ : state) {
    if (::write(keys, records, sizeof records) != sizeof records) state.SkipWithError("write failed");
    std::size_t got = 0;
    while (got < sizeof out) {
      pollfd ready{twin, POLLIN, 0};
      ::poll(&ready, 1, 1000);
      const ssize_t bytes = ::read(twin, reinterpret_cast<char*>(out) + got, sizeof out - got);
      if (bytes > 0) got += static_cast<std::size_t>(bytes);
    }
  }
  ::close(keys);
  ::close(twin);
}

void BM_MediaKeyLetThroughAfterItsDecision(benchmark::State& state) { throughTheReader(state, KEY_NEXTSONG); }
BENCHMARK(BM_MediaKeyLetThroughAfterItsDecision)->UseRealTime();

void BM_OrdinaryKeyOnAGrabbedKeyboard(benchmark::State& state) { throughTheReader(state, KEY_A); }
BENCHMARK(BM_OrdinaryKeyOnAGrabbedKeyboard)->UseRealTime();

}  // namespace
