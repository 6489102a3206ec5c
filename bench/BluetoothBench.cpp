#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <time.h>

#include <algorithm>
#include <memory>

#include "core/bluetooth/BluetoothManager.h"
#include "core/notify/NotificationCenter.h"
#include "core/settings/Settings.h"
#include "doubles/MemoryStore.h"
#include "platform/linux/bluetooth/BluezStack.h"
#include "platform/linux/runtime/QtRuntime.h"

// How long the main thread stalls while headphones connect and disconnect: the real BluezStack
// and BluetoothManager against python3-dbusmock's bluetoothd on a private bus, with a 1 ms probe
// timer on the main loop recording the largest gap between its ticks.

namespace {

using namespace wh;

// A private dbus-daemon with dbusmock's bluetoothd on it, one adapter and paired headphones.
class MockBluez {
 public:
  static constexpr const char* address = "AA:BB:CC:DD:EE:FF";

  MockBluez() {
    daemon_.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
    if (!daemon_.waitForReadyRead(5000)) return;
    bus_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), bus_);
    mock_.setProcessEnvironment(environment);
    mock_.start("/usr/bin/python3", {"-m", "dbusmock", "--template", "bluez5"});
    const QString mock = "o = lambda p: dbus.Interface(b.get_object('org.bluez', p), '%1')\n";
    for (int tries = 0; tries < 100 && !ready_; ++tries) {
      QThread::msleep(100);
      ready_ = run("b = dbus.bus.BusConnection(sys.argv[1])\n" + mock.arg("org.bluez.Mock") +
                   "o('/').AddAdapter('hci0', 'bench')\no('/').AddDevice('hci0', '" + address + "', 'Bench Buds')\n" +
                   mock.arg("org.freedesktop.DBus.Mock") + "d = o('/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF')\n"
                   "d.UpdateProperties('org.bluez.Device1', {'Paired': True, 'Class': dbus.UInt32(0x240404)})\n"
                   "for m, up in (('Connect', True), ('Disconnect', False)):\n"
                   "  d.AddMethod('org.bluez.Device1', m, '', '', \"self.UpdateProperties('org.bluez.Device1', "
                   "{'Connected': dbus.Boolean(%s)})\" % up)\n");
    }
  }
  ~MockBluez() {
    mock_.kill();
    mock_.waitForFinished();
    daemon_.kill();
    daemon_.waitForFinished();
  }
  bool ready() const { return ready_; }
  const QString& bus() const { return bus_; }

 private:
  bool run(const QString& code) const {
    QProcess python;
    python.start("/usr/bin/python3", {"-c", "import sys, dbus\n" + code, bus_});
    return python.waitForFinished(10000) && python.exitStatus() == QProcess::NormalExit && python.exitCode() == 0;
  }

  QProcess daemon_, mock_;
  QString bus_;
  bool ready_ = false;
};

QCoreApplication& application() {
  static int argc = 1;
  static char name[] = "wrenhaven_bench";
  static char* argv[] = {name, nullptr};
  if (QCoreApplication::instance() == nullptr) new QCoreApplication(argc, argv);
  return *QCoreApplication::instance();
}

// The main thread's processor time, in milliseconds.
double threadMilliseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The largest gap between two probe ticks on the main loop (wall time, which also holds the
// machine's own scheduling delays), and the largest processor time the main thread spent between
// two ticks (its own work only), in milliseconds.
struct Stall {
  double gap = 0, work = 0;
  void add(const Stall& other) { gap = std::max(gap, other.gap), work = std::max(work, other.work); }
};

// Turns the main loop until the phase is `kind` and the settling and fast-poll refreshes that
// follow have had their turn (`window`), probing every millisecond.
Stall spinUntil(const BluetoothManager& manager, BluetoothManager::Phase::Kind kind, int window = 2500) {
  QElapsedTimer clock, since;
  clock.start();
  since.start();
  double cpuSince = threadMilliseconds();
  Stall longest;
  QTimer probe;
  probe.setTimerType(Qt::PreciseTimer);
  const auto tick = [&] {
    const double cpu = threadMilliseconds();
    longest.add({static_cast<double>(since.nsecsElapsed()) / 1e6, cpu - cpuSince});
    since.restart();
    cpuSince = cpu;
  };
  QObject::connect(&probe, &QTimer::timeout, tick);
  probe.start(1);
  const auto reached = [&] { auto phase = manager.phaseOf(MockBluez::address); return phase && phase->kind() == kind; };
  while ((!reached() || clock.elapsed() < window) && clock.elapsed() < 10000) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  tick();
  return longest;
}

void BM_MainThreadStallDuringConnect(benchmark::State& state) {
  application();
  MockBluez bluez;
  if (!bluez.ready()) {
    state.SkipWithError("dbus-daemon or python3-dbusmock's bluez5 template did not start");
    return;
  }
  const QString name = QStringLiteral("bench-bluez");
  {
    platform::QtRuntime runtime;
    MemoryStore store;
    NotificationCenter notifications;
    Settings settings(store, notifications, true, nullptr);
    settings.addDevice(MockBluez::address, "Bench Buds");
    platform::BluezStack stack(runtime.main(), QDBusConnection::connectToBus(bluez.bus(), name));
    struct NoSleep final : SleepWatcher {
      std::unique_ptr<Registration> observe(std::function<void(std::function<void()>)>, std::function<void()>) override {
        return nullptr;
      }
    } sleep;
    BluetoothManager manager(runtime, settings, stack, sleep);
    manager.start();
    spinUntil(manager, BluetoothManager::Phase::Kind::disconnected, 0);
    Stall longest;
    // toggles:0 measures the loop alone, the baseline of the machine.
    const bool toggles = state.range(0) != 0;
    for (auto _ : state) {
      for (const auto kind : {BluetoothManager::Phase::Kind::connected, BluetoothManager::Phase::Kind::disconnected}) {
        if (toggles) manager.toggle(MockBluez::address);
        longest.add(spinUntil(manager, toggles ? kind : BluetoothManager::Phase::Kind::disconnected));
      }
    }
    state.counters["longest_gap_ms"] = longest.gap;
    state.counters["longest_work_ms"] = longest.work;
  }
  QDBusConnection::disconnectFromBus(name);
}
BENCHMARK(BM_MainThreadStallDuringConnect)->ArgName("toggles")->Arg(1)->Arg(0)->Iterations(2)->Unit(benchmark::kMillisecond);

}  // namespace
