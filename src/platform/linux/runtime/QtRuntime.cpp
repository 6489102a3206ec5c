#include "platform/linux/runtime/QtRuntime.h"

#include <QCoreApplication>
#include <QEvent>
#include <QThread>
#include <QTimer>

#include <cmath>

#include "platform/linux/runtime/ThreadSerialQueue.h"

namespace wh::platform {

namespace {

constexpr auto workArrived = QEvent::User;

int toMilliseconds(double seconds) {
  if (!(seconds > 0)) return 0;
  return static_cast<int>(std::min(std::ceil(seconds * 1000.0), 2.0e9));
}

}  // namespace

class QtRuntime::Timer final : public RepeatingTimer {
 public:
  // Made on the main thread, like every component that keeps a timer.
  Timer(double interval, double tolerance, Work tick) : timer_(new QTimer) {
    timer_->setInterval(std::max(1, toMilliseconds(interval)));
    // Qt's coarse timers may fire up to 5% late; allow that when the caller's tolerance does.
    timer_->setTimerType(tolerance >= interval * 0.05 ? Qt::CoarseTimer : Qt::PreciseTimer);
    QObject::connect(timer_, &QTimer::timeout, timer_, std::move(tick));
    timer_->start();
  }
  // A tick may drop its own timer, so the QTimer is deleted once its signal has returned.
  ~Timer() override {
    timer_->stop();
    timer_->disconnect();
    timer_->deleteLater();
  }
  void invalidate() override { timer_->stop(); }
  bool isValid() const override { return timer_->isActive(); }

 private:
  QTimer* timer_;
};

QtRuntime::QtRuntime() = default;
QtRuntime::~QtRuntime() = default;

std::shared_ptr<SerialQueue> QtRuntime::makeSerialQueue(std::string label, QueuePriority priority) {
  return std::make_shared<ThreadSerialQueue>(std::move(label), priority);
}

double QtRuntime::now() const {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::chrono::system_clock::time_point QtRuntime::wallNow() const { return std::chrono::system_clock::now(); }

void QtRuntime::Inbox::post(Work work) {
  auto* wake = new QEvent(workArrived);  // made before the lock is left, like the work
  {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
  }
  QCoreApplication::postEvent(this, wake);
}

bool QtRuntime::Inbox::event(QEvent* event) {
  Work work;
  {
    std::lock_guard lock(mutex_);  // taken before the event is read: see post()
    if (event->type() == workArrived && !work_.empty()) {
      work = std::move(work_.front());
      work_.pop_front();
    }
  }
  if (!work) return QObject::event(event);
  work();
  return true;
}

void QtRuntime::post(Work work) { inbox_.post(std::move(work)); }

std::shared_ptr<WorkItem> QtRuntime::after(double seconds, Work work) {
  auto item = std::make_shared<WorkItem>(std::move(work));
  const int ms = toMilliseconds(seconds);
  auto start = [this, item, ms] {
    QTimer::singleShot(ms, Qt::PreciseTimer, &inbox_, [item] { item->perform(); });
  };
  // Timers belong to the main thread; from another thread, go there first.
  if (QThread::currentThread() == inbox_.thread()) {
    start();
  } else {
    inbox_.post(std::move(start));
  }
  return item;
}

std::unique_ptr<RepeatingTimer> QtRuntime::every(double interval, double tolerance, Work tick) {
  return std::make_unique<Timer>(interval, tolerance, std::move(tick));
}

}  // namespace wh::platform
