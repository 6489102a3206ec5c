#include "platform/linux/bluetooth/LogindSleepWatcher.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusUnixFileDescriptor>
#include <QTimer>

#include <cstdint>

#include <fcntl.h>
#include <unistd.h>

#include "core/log/Log.h"
#include "platform/linux/dbus/DBusSignalRelay.h"

namespace wh::platform {

namespace {

constexpr const char* logindService = "org.freedesktop.login1";
constexpr const char* logindPath = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr int inhibitTimeoutMs = 5000;

}  // namespace

class LogindSleepWatcher::Observer final : public QObject, public Registration {
 public:
  using WillSleep = std::function<void(std::function<void()> done)>;

  Observer(MainQueue& main, QDBusConnection bus, std::chrono::milliseconds sleepWorkLimit, WillSleep willSleep,
           std::function<void()> didWake)
      : main_(main),
        bus_(std::move(bus)),
        sleepWorkLimit_(sleepWorkLimit),
        willSleep_(std::move(willSleep)),
        didWake_(std::move(didWake)),
        watcher_(QString::fromLatin1(logindService), bus_, QDBusServiceWatcher::WatchForOwnerChange),
        relay_(bus_, QString::fromLatin1(logindService), QString::fromLatin1(logindPath),
               QString::fromLatin1(managerInterface), QStringLiteral("PrepareForSleep"), QStringList(),
               [this](const QDBusMessage& message) { prepare(message); }) {
    if (!relay_.subscribed()) {
      Log::error("logind: cannot follow sleep and wake: " + bus_.lastError().message().toStdString());
    }
    QObject::connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
                     [this](const QString&, const QString& oldOwner, const QString& newOwner) {
                       // A lock held by an ended logind means nothing; the new one needs its own.
                       if (!oldOwner.isEmpty()) release();
                       if (!newOwner.isEmpty()) take();
                     });
    take();
  }

  ~Observer() override { release(); }

 private:
  void prepare(const QDBusMessage& message) {
    if (message.arguments().isEmpty()) return;
    // A round of sleep: what finishes a round that is over (the machine woke) does nothing.
    const std::uint64_t round = ++round_;
    if (message.arguments().first().toBool()) {
      sleeping_ = true;
      const std::function<void()> finish = lifetime_.guard([this, round] {
        if (round == round_) release();
      });
      QTimer::singleShot(sleepWorkLimit_, this, finish);
      main_.post(lifetime_.guard([this, finish] {
        if (!willSleep_) {
          finish();
          return;
        }
        MainQueue& main = main_;
        willSleep_([&main, finish] { main.post(finish); });
      }));
    } else {
      sleeping_ = false;
      take();
      main_.post(lifetime_.guard([this] {
        if (didWake_) didWake_();
      }));
    }
  }

  void take() {
    if (lock_ >= 0 || asking_) return;
    asking_ = true;
    auto call = QDBusMessage::createMethodCall(logindService, logindPath, managerInterface, QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep") << QString::fromLatin1(inhibitorWho) << QString::fromLatin1(inhibitorWhy)
         << QStringLiteral("delay");
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(call, inhibitTimeoutMs), this);
    QObject::connect(pending, &QDBusPendingCallWatcher::finished, this, [this, pending] {
      pending->deleteLater();
      asking_ = false;
      const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *pending;
      if (reply.isError()) {
        Log::error("logind: no sleep inhibitor: " + reply.error().message().toStdString());
        return;
      }
      // Our own descriptor: the lock lasts exactly as long as it is open.
      const int lock = ::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0);
      if (lock < 0) return;
      if (sleeping_) {
        // The machine began going to sleep while we asked; holding the lock now would only delay it.
        ::close(lock);
        return;
      }
      lock_ = lock;
    });
  }

  void release() {
    if (lock_ < 0) return;
    ::close(lock_);
    lock_ = -1;
  }

  MainQueue& main_;
  QDBusConnection bus_;
  std::chrono::milliseconds sleepWorkLimit_;
  WillSleep willSleep_;
  std::function<void()> didWake_;
  QDBusServiceWatcher watcher_;
  DBusSignalRelay relay_;
  int lock_ = -1;
  bool asking_ = false;
  bool sleeping_ = false;
  std::uint64_t round_ = 0;
  Lifetime lifetime_;
};

LogindSleepWatcher::LogindSleepWatcher(MainQueue& main, QDBusConnection bus, std::chrono::milliseconds sleepWorkLimit)
    : main_(main), bus_(std::move(bus)), sleepWorkLimit_(sleepWorkLimit) {}

LogindSleepWatcher::~LogindSleepWatcher() = default;

std::unique_ptr<Registration> LogindSleepWatcher::observe(std::function<void(std::function<void()> done)> willSleep,
                                                          std::function<void()> didWake) {
  return std::make_unique<Observer>(main_, bus_, sleepWorkLimit_, std::move(willSleep), std::move(didWake));
}

}  // namespace wh::platform
