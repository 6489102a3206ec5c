#include "platform/linux/bluetooth/BluezStack.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>

#include <algorithm>
#include <map>

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

// Follows BlueZ for one registration. Every device's last known state is kept, so that a property
// change, an object going away or bluetoothd ending or coming back can be told apart from what
// was already reported.
class BluezStack::Observer final : public QObject, public Registration {
 public:
  using Callback = std::function<void(const std::string&)>;

  Observer(MainQueue& main, QDBusConnection bus, int queryMs, Callback connected, Callback disconnected)
      : main_(main),
        bus_(std::move(bus)),
        queryMs_(queryMs),
        connected_(std::move(connected)),
        disconnected_(std::move(disconnected)),
        watcher_(QString::fromLatin1(bluez::service), bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    const QString service = QString::fromLatin1(bluez::service);
    relays_.push_back(std::make_unique<DBusSignalRelay>(
        bus_, service, QString(), bluez::propertiesInterface, QStringLiteral("PropertiesChanged"),
        QStringList{QString::fromLatin1(bluez::deviceInterface)}, [this](const QDBusMessage& m) { changed(m); }));
    relays_.push_back(std::make_unique<DBusSignalRelay>(
        bus_, service, bluez::rootPath, bluez::objectManagerInterface, QStringLiteral("InterfacesAdded"),
        QStringList(), [this](const QDBusMessage& m) { added(m); }));
    relays_.push_back(std::make_unique<DBusSignalRelay>(
        bus_, service, bluez::rootPath, bluez::objectManagerInterface, QStringLiteral("InterfacesRemoved"),
        QStringList(), [this](const QDBusMessage& m) { removed(m); }));
    for (const auto& relay : relays_) {
      if (!relay->subscribed()) Log::error("BlueZ: could not follow connection changes: " + describe(bus_.lastError()));
    }
    QObject::connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
                     [this](const QString&, const QString& oldOwner, const QString& newOwner) {
                       ownerChanged(oldOwner, newOwner);
                     });
    // What is connected now is the starting point, not news.
    read(true);
  }

 private:
  void report(bool isConnected, const std::string& address) {
    const Callback& callback = isConnected ? connected_ : disconnected_;
    if (callback) main_.post(lifetime_.guard([callback, address] { callback(address); }));
  }

  // Stores the device's new state and reports a change of its link.
  void store(const QString& path, const bluez::Device& next) {
    bluez::Device& slot = devices_[path];
    const bool was = linked(slot);
    slot = next;
    if (linked(next) != was) report(!was, next.address);
  }

  void read(bool quietly) {
    auto* call = new QDBusPendingCallWatcher(bus_.asyncCall(bluez::managedObjectsCall(), queryMs_), this);
    QObject::connect(call, &QDBusPendingCallWatcher::finished, this, [this, call, quietly, epoch = epoch_] {
      call->deleteLater();
      // Not running (yet): its arrival on the bus brings a new read.
      if (epoch != epoch_ || call->isError()) return;
      replace(bluez::readTree(call->reply()), quietly);
    });
  }

  void replace(const bluez::Tree& tree, bool quietly) {
    std::map<QString, bluez::Device> next;
    for (const auto& device : tree.devices) next[device.path] = device;
    if (!quietly) {
      const auto isLinked = [](const std::map<QString, bluez::Device>& devices, const QString& path) {
        const auto it = devices.find(path);
        return it != devices.end() && linked(it->second);
      };
      for (const auto& [path, device] : devices_) {
        if (linked(device) && !isLinked(next, path)) report(false, device.address);
      }
      for (const auto& [path, device] : next) {
        if (linked(device) && !isLinked(devices_, path)) report(true, device.address);
      }
    }
    devices_ = std::move(next);
  }

  void changed(const QDBusMessage& message) {
    const auto it = devices_.find(message.path());
    if (it == devices_.end()) {
      // A device this observer has not seen yet: read everything again.
      read(false);
      return;
    }
    if (message.arguments().size() < 2) return;
    bluez::Device next = it->second;
    next.apply(qdbus_cast<QVariantMap>(message.arguments().at(1)));
    store(message.path(), next);
  }

  void added(const QDBusMessage& message) {
    if (message.arguments().size() < 2) return;
    const QString path = message.arguments().at(0).value<QDBusObjectPath>().path();
    const auto interfaces = bluez::readInterfaces(message.arguments().at(1).value<QDBusArgument>());
    if (auto device = bluez::readDevice(path, interfaces)) store(path, *device);
  }

  void removed(const QDBusMessage& message) {
    if (message.arguments().size() < 2) return;
    const QString path = message.arguments().at(0).value<QDBusObjectPath>().path();
    const auto interfaces = qdbus_cast<QStringList>(message.arguments().at(1));
    const auto it = devices_.find(path);
    if (it == devices_.end() || !interfaces.contains(QString::fromLatin1(bluez::deviceInterface))) return;
    if (linked(it->second)) report(false, it->second.address);
    devices_.erase(it);
  }

  void ownerChanged(const QString& oldOwner, const QString& newOwner) {
    if (!oldOwner.isEmpty()) {
      // bluetoothd ended (or was replaced): every link it held is gone, and reads still on their
      // way describe the old process.
      ++epoch_;
      for (const auto& [path, device] : devices_) {
        if (linked(device)) report(false, device.address);
      }
      devices_.clear();
    }
    if (!newOwner.isEmpty()) read(false);
  }

  MainQueue& main_;
  QDBusConnection bus_;
  int queryMs_;
  Callback connected_;
  Callback disconnected_;
  std::map<QString, bluez::Device> devices_;
  std::uint64_t epoch_ = 0;
  QDBusServiceWatcher watcher_;
  std::vector<std::unique_ptr<DBusSignalRelay>> relays_;
  Lifetime lifetime_;
};

BluezStack::BluezStack(MainQueue& main, QDBusConnection bus, std::chrono::milliseconds callTimeout)
    : main_(main), bus_(std::move(bus)), callTimeout_(callTimeout) {}

BluezStack::~BluezStack() = default;

int BluezStack::queryMilliseconds() const {
  return static_cast<int>(std::min(queryTimeout, callTimeout_).count());
}

std::vector<PairedDevice> BluezStack::pairedAudioDevices() {
  std::vector<PairedDevice> paired;
  QDBusError error;
  const auto tree = bluez::fetchTree(bus_, queryMilliseconds(), &error);
  if (!tree) return paired;
  for (const auto& device : tree->devices) {
    if (device.paired && device.isAudio() && !device.address.empty()) {
      paired.push_back({device.address, device.displayName(), device.connected});
    }
  }
  return paired;
}

std::optional<bool> BluezStack::isConnected(const std::string& address) {
  QDBusError error;
  const auto tree = bluez::fetchTree(bus_, queryMilliseconds(), &error);
  if (!tree) return std::nullopt;
  const auto* device = tree->find(normalizeAddress(address));
  if (device == nullptr) return std::nullopt;
  return device->connected;
}

std::map<std::string, bool> BluezStack::connectionStates() {
  std::map<std::string, bool> states;
  QDBusError error;
  const auto tree = bluez::fetchTree(bus_, queryMilliseconds(), &error);
  if (!tree) return states;
  for (const auto& device : tree->devices) {
    if (!device.address.empty()) states[device.address] = device.connected;
  }
  return states;
}

std::optional<BluetoothStatus> BluezStack::openConnection(const std::string& address) {
  return changeConnection(address, true);
}

std::optional<BluetoothStatus> BluezStack::closeConnection(const std::string& address) {
  return changeConnection(address, false);
}

std::optional<BluetoothStatus> BluezStack::changeConnection(const std::string& address, bool connect) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + callTimeout_;
  const auto remaining = [&] {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<long long>(1, left));
  };
  const std::string normal = normalizeAddress(address);
  const std::string verb = connect ? "connect" : "disconnect";

  QDBusError error;
  const auto tree = bluez::fetchTree(bus_, std::min(queryMilliseconds(), remaining()), &error);
  if (!tree) {
    Log::info("BlueZ: cannot " + verb + " " + normal + ": " + describe(error));
    return bluezStatus(error);
  }
  const auto* device = tree->find(normal);
  if (device == nullptr) return std::nullopt;
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
    QDBusError ignored;
    const auto after = bluez::fetchTree(bus_, std::min(queryMilliseconds(), remaining()), &ignored);
    if (after && after->find(normal) == nullptr) status = BluetoothStatus::notFound;
  }
  Log::info("BlueZ: " + verb + " " + normal + " failed: " + describe(failure));
  return status;
}

std::unique_ptr<Registration> BluezStack::observeConnections(std::function<void(const std::string&)> connected,
                                                             std::function<void(const std::string&)> disconnected) {
  return std::make_unique<Observer>(main_, bus_, queryMilliseconds(), std::move(connected), std::move(disconnected));
}

}  // namespace wh::platform
