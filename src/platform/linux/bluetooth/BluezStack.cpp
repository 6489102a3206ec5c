#include "platform/linux/bluetooth/BluezStack.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QTimer>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "core/log/Log.h"
#include "core/settings/Address.h"
#include "platform/linux/bluetooth/BluezObjects.h"
#include "platform/linux/dbus/DBusSignalRelay.h"

namespace wh::platform {

namespace {

bool oneOf(const QString& name, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(), [&](const char* candidate) { return name == QLatin1String(candidate); });
}

bool mentions(const QString& text, std::initializer_list<const char*> words) {
  return std::any_of(words.begin(), words.end(),
                     [&](const char* word) { return text.contains(QLatin1String(word), Qt::CaseInsensitive); });
}

// Shown by notifications: a device the agent can use that has a live link.
bool linked(const bluez::Device& device) { return device.paired && device.connected && !device.address.empty(); }

std::string describe(const QDBusError& error) {
  return (error.name() + QStringLiteral(": ") + error.message()).toStdString();
}

}  // namespace

BluetoothStatus bluezStatus(const QDBusError& error) {
  const QString name = error.name();
  const QString message = error.message();
  // BlueZ 5.66 and later put a reason such as "br-connection-page-timeout" into Failed's message.
  if (name == QLatin1String("org.bluez.Error.NotReady") || mentions(message, {"not powered", "not-powered"})) {
    return BluetoothStatus::bluetoothOff;
  }
  if (oneOf(name, {"org.freedesktop.DBus.Error.NoReply", "org.freedesktop.DBus.Error.Timeout",
                   "org.freedesktop.DBus.Error.TimedOut"}) ||
      mentions(message, {"timeout", "timed out"})) {
    return BluetoothStatus::timeout;
  }
  if (oneOf(name, {"org.bluez.Error.DoesNotExist", "org.freedesktop.DBus.Error.UnknownObject",
                   "org.freedesktop.DBus.Error.UnknownInterface", "org.freedesktop.DBus.Error.UnknownMethod",
                   "org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner"}) ||
      mentions(message, {"host is down", "host-down"})) {
    return BluetoothStatus::notFound;
  }
  return BluetoothStatus::failed;
}

// The live copy of BlueZ's objects, kept on the main thread and read from any thread. Every
// device's last known state is kept, so that a property change, an object going away or
// bluetoothd ending or coming back can be told apart from what was already reported.
class BluezStack::Mirror final : public QObject {
 public:
  Mirror(MainQueue& main, QDBusConnection bus, int queryMs)
      : main_(main),
        bus_(std::move(bus)),
        queryMs_(queryMs),
        watcher_(QString::fromLatin1(bluez::service), bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    const QString service = QString::fromLatin1(bluez::service);
    for (const char* interface : {bluez::deviceInterface, bluez::adapterInterface}) {
      relays_.push_back(std::make_unique<DBusSignalRelay>(
          bus_, service, QString(), bluez::propertiesInterface, QStringLiteral("PropertiesChanged"),
          QStringList{QString::fromLatin1(interface)}, [this](const QDBusMessage& m) { changed(m); }));
    }
    relays_.push_back(std::make_unique<DBusSignalRelay>(
        bus_, service, bluez::rootPath, bluez::objectManagerInterface, QStringLiteral("InterfacesAdded"),
        QStringList(), [this](const QDBusMessage& m) { added(m); }));
    relays_.push_back(std::make_unique<DBusSignalRelay>(
        bus_, service, bluez::rootPath, bluez::objectManagerInterface, QStringLiteral("InterfacesRemoved"),
        QStringList(), [this](const QDBusMessage& m) { removed(m); }));
    for (const auto& relay : relays_) {
      if (!relay->subscribed()) Log::error("BlueZ: could not follow its objects: " + describe(bus_.lastError()));
    }
    QObject::connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
                     [this](const QString&, const QString& oldOwner, const QString& newOwner) {
                       ownerChanged(oldOwner, newOwner);
                     });
    // What is connected at start is the starting point, not news.
    read(true);
  }

  // A copy of the objects; nothing while they are not known.
  std::optional<bluez::Tree> snapshot() const {
    std::lock_guard lock(mutex_);
    return tree_;
  }

  using Callback = std::function<void(const std::string&)>;
  struct Listener {
    Callback connected, disconnected;
    std::function<void()> readable;
  };
  void listen(const Listener* listener) { listeners_.push_back(listener); }
  void forget(const Listener* listener) { std::erase(listeners_, listener); }

  // bluetoothd's absence, then its adapters.
  BluetoothAdapterState adapterState() const {
    std::lock_guard lock(mutex_);
    if (!tree_) return absent_ ? BluetoothAdapterState::noService : BluetoothAdapterState::unknown;
    if (tree_->adapterPowered.empty()) return BluetoothAdapterState::noAdapter;
    return tree_->anyAdapterOn() ? BluetoothAdapterState::on : BluetoothAdapterState::off;
  }
  void listenToAdapter(const std::function<void()>* listener) { adapterListeners_.push_back(listener); }
  void forgetAdapter(const std::function<void()>* listener) { std::erase(adapterListeners_, listener); }

 private:
  void report(bool isConnected, const std::string& address) {
    for (const Listener* listener : listeners_) {
      const Callback& callback = isConnected ? listener->connected : listener->disconnected;
      if (callback) post(listener, [callback, address] { callback(address); });
    }
  }

  // Tells the adapter's listeners when what `adapterState` answers is not what they were told last.
  void adapterMaybeChanged() {
    const BluetoothAdapterState now = adapterState();
    if (now == told_) return;
    told_ = now;
    for (const auto* listener : adapterListeners_) {
      main_.post(lifetime_.guard([this, listener] {
        if (std::find(adapterListeners_.begin(), adapterListeners_.end(), listener) != adapterListeners_.end()) (*listener)();
      }));
    }
  }

  void setAbsent(bool absent) {
    {
      std::lock_guard lock(mutex_);
      absent_ = absent;
    }
    adapterMaybeChanged();
  }

  // Runs `work` on a later turn of the main loop while the registration is still there.
  void post(const Listener* listener, std::function<void()> work) {
    main_.post(lifetime_.guard([this, listener, work = std::move(work)] {
      if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) work();
    }));
  }

  // Whether the copy is there to be changed. A change that comes while it is not filled is
  // remembered, so that the read on its way is followed by another one: its answer may predate it.
  bool filled() {
    missed_ = missed_ || !tree_;
    return tree_.has_value();
  }

  bluez::Device* device(const QString& path) {
    if (!tree_) return nullptr;
    for (auto& device : tree_->devices) {
      if (device.path == path) return &device;
    }
    return nullptr;
  }

  // Stores the device's new state and reports a change of its link.
  void store(const bluez::Device& next) {
    std::unique_lock lock(mutex_);
    if (!filled()) return;
    bluez::Device* slot = device(next.path);
    const bool was = slot != nullptr && linked(*slot);
    if (slot == nullptr) {
      tree_->devices.push_back(next);
    } else {
      *slot = next;
    }
    lock.unlock();
    if (linked(next) != was) report(!was, next.address);
  }

  void read(bool quietly) {
    missed_ = false;
    auto* call = new QDBusPendingCallWatcher(bus_.asyncCall(bluez::managedObjectsCall(), queryMs_), this);
    QObject::connect(call, &QDBusPendingCallWatcher::finished, this, [this, call, quietly, epoch = epoch_] {
      call->deleteLater();
      if (epoch != epoch_) return;
      if (!call->isError()) {
        replace(bluez::readTree(call->reply()), quietly);
        if (missed_) read(quietly);
        return;
      }
      // Only a bluetoothd that did not answer is asked again; one that is not there (yet) brings a
      // new read when it arrives, and a refusal stays a refusal.
      const QDBusError error = call->error();
      const BluetoothStatus status = bluezStatus(error);
      if (status == BluetoothStatus::notFound) return setAbsent(true);
      Log::error("BlueZ: could not read its objects: " + describe(error));
      if (status != BluetoothStatus::timeout) return;
      QTimer::singleShot(BluezStack::rereadDelay, this, [this, quietly, epoch] {
        if (epoch == epoch_ && !snapshot()) read(quietly);
      });
    });
  }

  void replace(bluez::Tree next, bool quietly) {
    std::unique_lock lock(mutex_);
    const bool wasReadable = tree_.has_value();
    const bluez::Tree before = tree_.value_or(bluez::Tree{});
    tree_ = next;
    absent_ = false;
    lock.unlock();
    adapterMaybeChanged();
    for (const Listener* listener : listeners_) {
      if (!wasReadable && listener->readable) post(listener, listener->readable);
    }
    if (quietly) return;
    const auto isLinked = [](const bluez::Tree& tree, const QString& path) {
      return std::any_of(tree.devices.begin(), tree.devices.end(),
                         [&](const bluez::Device& device) { return device.path == path && linked(device); });
    };
    for (const auto& device : before.devices) {
      if (linked(device) && !isLinked(next, device.path)) report(false, device.address);
    }
    for (const auto& device : next.devices) {
      if (linked(device) && !isLinked(before, device.path)) report(true, device.address);
    }
  }

  void changed(const QDBusMessage& message) {
    if (message.arguments().size() < 2) return;
    const auto properties = qdbus_cast<QVariantMap>(message.arguments().at(1));
    if (message.arguments().at(0).toString() == QLatin1String(bluez::adapterInterface)) {
      if (!properties.contains(QStringLiteral("Powered"))) return;
      {
        std::lock_guard lock(mutex_);
        if (filled()) tree_->adapterPowered[message.path()] = properties.value(QStringLiteral("Powered")).toBool();
      }
      adapterMaybeChanged();
      return;
    }
    std::unique_lock lock(mutex_);
    if (!filled()) return;
    const bluez::Device* known = device(message.path());
    if (known == nullptr) {
      // A device this copy has not seen yet: read everything again.
      lock.unlock();
      read(false);
      return;
    }
    bluez::Device next = *known;
    lock.unlock();
    next.apply(properties);
    store(next);
  }

  void added(const QDBusMessage& message) {
    if (message.arguments().size() < 2) return;
    const QString path = message.arguments().at(0).value<QDBusObjectPath>().path();
    const auto interfaces = bluez::readInterfaces(message.arguments().at(1).value<QDBusArgument>());
    if (const auto powered = bluez::readAdapterPowered(interfaces)) {
      {
        std::lock_guard lock(mutex_);
        if (filled()) tree_->adapterPowered[path] = *powered;
      }
      adapterMaybeChanged();
    }
    if (auto device = bluez::readDevice(path, interfaces)) store(*device);
  }

  void removed(const QDBusMessage& message) {
    if (message.arguments().size() < 2) return;
    const QString path = message.arguments().at(0).value<QDBusObjectPath>().path();
    const auto interfaces = qdbus_cast<QStringList>(message.arguments().at(1));
    std::unique_lock lock(mutex_);
    if (!filled()) return;
    if (interfaces.contains(QString::fromLatin1(bluez::adapterInterface))) {
      tree_->adapterPowered.erase(path);
      lock.unlock();
      adapterMaybeChanged();
      lock.lock();
      if (!tree_) return;
    }
    if (!interfaces.contains(QString::fromLatin1(bluez::deviceInterface))) return;
    const auto it = std::find_if(tree_->devices.begin(), tree_->devices.end(),
                                 [&](const bluez::Device& device) { return device.path == path; });
    if (it == tree_->devices.end()) return;
    const bluez::Device gone = *it;
    tree_->devices.erase(it);
    lock.unlock();
    if (linked(gone)) report(false, gone.address);
  }

  void ownerChanged(const QString& oldOwner, const QString& newOwner) {
    if (!oldOwner.isEmpty()) {
      // bluetoothd ended (or was replaced): every link it held is gone, and reads still on their
      // way describe the old process.
      ++epoch_;
      std::unique_lock lock(mutex_);
      const std::optional<bluez::Tree> before = std::exchange(tree_, std::nullopt);
      lock.unlock();
      if (before) {
        for (const auto& device : before->devices) {
          if (linked(device)) report(false, device.address);
        }
      }
    }
    setAbsent(newOwner.isEmpty());
    if (!newOwner.isEmpty()) read(false);
  }

  MainQueue& main_;
  QDBusConnection bus_;
  int queryMs_;
  mutable std::mutex mutex_;
  std::optional<bluez::Tree> tree_;  // guarded by mutex_; written on the main thread only
  std::vector<const Listener*> listeners_;
  std::vector<const std::function<void()>*> adapterListeners_;
  bool absent_ = false;  // guarded by mutex_: bluetoothd is not on the bus
  BluetoothAdapterState told_ = BluetoothAdapterState::unknown;
  std::uint64_t epoch_ = 0;
  bool missed_ = false;  // a change came while the copy was not filled
  QDBusServiceWatcher watcher_;
  std::vector<std::unique_ptr<DBusSignalRelay>> relays_;
  Lifetime lifetime_;
};

// One registration for connection notifications.
class BluezStack::Observer final : public Registration {
 public:
  Observer(Mirror& mirror, Mirror::Listener listener) : mirror_(mirror), listener_(std::move(listener)) {
    mirror_.listen(&listener_);
  }
  ~Observer() override { mirror_.forget(&listener_); }

 private:
  Mirror& mirror_;
  Mirror::Listener listener_;
};

// One registration for the adapter's state.
class BluezStack::AdapterObserver final : public Registration {
 public:
  AdapterObserver(Mirror& mirror, std::function<void()> changed)
      : mirror_(mirror), changed_(std::move(changed)) {
    mirror_.listenToAdapter(&changed_);
  }
  ~AdapterObserver() override { mirror_.forgetAdapter(&changed_); }

 private:
  Mirror& mirror_;
  std::function<void()> changed_;
};

BluezStack::BluezStack(MainQueue& main, QDBusConnection bus, std::chrono::milliseconds callTimeout)
    : main_(main),
      bus_(std::move(bus)),
      callTimeout_(callTimeout),
      mirror_(std::make_unique<Mirror>(main_, bus_, queryMilliseconds())) {}

BluezStack::~BluezStack() = default;

int BluezStack::queryMilliseconds() const {
  return static_cast<int>(std::min(queryTimeout, callTimeout_).count());
}

namespace {

// A device that is not there: unknown while some adapter is on, else Bluetooth is off.
BluetoothError missing(const bluez::Tree& tree) {
  return tree.anyAdapterOn() ? BluetoothError::unknownDevice : BluetoothError::bluetoothOff;
}

}  // namespace

BluetoothResult<std::vector<PairedDevice>> BluezStack::pairedAudioDevices() {
  const auto tree = mirror_->snapshot();
  if (!tree) return BluetoothError::unreachable;
  std::vector<PairedDevice> paired;
  for (const auto& device : tree->devices) {
    if (device.paired && device.isAudio() && !device.address.empty()) {
      paired.push_back({device.address, device.displayName(), device.connected});
    }
  }
  return paired;
}

BluetoothResult<bool> BluezStack::isConnected(const std::string& address) {
  const auto tree = mirror_->snapshot();
  if (!tree) return BluetoothError::unreachable;
  const auto* device = tree->find(normalizeAddress(address));
  if (device == nullptr) return missing(*tree);
  return device->connected;
}

BluetoothResult<std::map<std::string, bool>> BluezStack::connectionStates() {
  const auto tree = mirror_->snapshot();
  if (!tree) return BluetoothError::unreachable;
  std::map<std::string, bool> states;
  for (const auto& device : tree->devices) {
    if (!device.address.empty()) states[device.address] = device.connected;
  }
  return states;
}

BluetoothResult<BluetoothStatus> BluezStack::openConnection(const std::string& address) {
  return changeConnection(address, true);
}

BluetoothResult<BluetoothStatus> BluezStack::closeConnection(const std::string& address) {
  return changeConnection(address, false);
}

BluetoothResult<BluetoothStatus> BluezStack::changeConnection(const std::string& address, bool connect) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + callTimeout_;
  const auto remaining = [&] {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<long long>(1, left));
  };
  const std::string normal = normalizeAddress(address);
  const std::string verb = connect ? "connect" : "disconnect";

  const auto tree = mirror_->snapshot();
  if (!tree) {
    Log::info("BlueZ: cannot " + verb + " " + normal + ": bluetoothd is not there");
    return BluetoothError::unreachable;
  }
  const auto* device = tree->find(normal);
  if (device == nullptr) return missing(*tree);
  if (device->connected == connect) return BluetoothStatus::success;
  if (connect && tree->adapterOff(*device)) {
    Log::info("BlueZ: cannot connect " + normal + ": the adapter is off");
    return BluetoothStatus::bluetoothOff;
  }
  const auto call = QDBusMessage::createMethodCall(bluez::service, device->path, bluez::deviceInterface,
                                                   connect ? QStringLiteral("Connect") : QStringLiteral("Disconnect"));
  const QDBusMessage reply = bus_.call(call, QDBus::Block, remaining());
  if (reply.type() == QDBusMessage::ReplyMessage) return BluetoothStatus::success;

  const QDBusError failure(reply);
  // Someone else got there first.
  if (failure.name() == QLatin1String(connect ? "org.bluez.Error.AlreadyConnected" : "org.bluez.Error.NotConnected")) {
    return BluetoothStatus::success;
  }
  BluetoothStatus status = bluezStatus(failure);
  if (status == BluetoothStatus::failed) {
    // A device removed while the call ran is out of reach, whatever BlueZ said about the call.
    // (Asked of BlueZ itself: the live copy may not have heard of the removal yet.)
    QDBusError ignored;
    const auto after = bluez::fetchTree(bus_, std::min(queryMilliseconds(), remaining()), &ignored);
    if (after && after->find(normal) == nullptr) status = BluetoothStatus::notFound;
  }
  Log::info("BlueZ: " + verb + " " + normal + " failed: " + describe(failure));
  return status;
}

std::unique_ptr<Registration> BluezStack::observeConnections(std::function<void(const std::string&)> connected,
                                                             std::function<void(const std::string&)> disconnected,
                                                             std::function<void()> readable) {
  return std::make_unique<Observer>(
      *mirror_, Mirror::Listener{std::move(connected), std::move(disconnected), std::move(readable)});
}

BluetoothAdapterState BluezStack::adapterState() { return mirror_->adapterState(); }

std::unique_ptr<Registration> BluezStack::observeAdapter(std::function<void()> changed) {
  return std::make_unique<AdapterObserver>(*mirror_, std::move(changed));
}

}  // namespace wh::platform
