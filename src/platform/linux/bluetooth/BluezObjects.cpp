#include "platform/linux/bluetooth/BluezObjects.h"

#include <QDBusObjectPath>

#include <algorithm>

#include "core/settings/Address.h"

namespace wh::platform::bluez {

std::string Device::displayName() const {
  if (!alias.empty()) return alias;
  if (!name.empty()) return name;
  return address;
}

void Device::apply(const QVariantMap& properties) {
  for (auto it = properties.begin(); it != properties.end(); ++it) {
    const QString& key = it.key();
    const QVariant& value = it.value();
    if (key == QLatin1String("Address")) {
      address = normalizeAddress(value.toString().toStdString());
    } else if (key == QLatin1String("Alias")) {
      alias = value.toString().toStdString();
    } else if (key == QLatin1String("Name")) {
      name = value.toString().toStdString();
    } else if (key == QLatin1String("Paired")) {
      paired = value.toBool();
    } else if (key == QLatin1String("Connected")) {
      connected = value.toBool();
    } else if (key == QLatin1String("Class")) {
      deviceClass = value.toUInt();
    } else if (key == QLatin1String("Adapter")) {
      adapter = value.value<QDBusObjectPath>().path();
    }
  }
}

const Device* Tree::find(const std::string& normalAddress) const {
  for (const auto& device : devices) {
    if (!device.address.empty() && device.address == normalAddress) return &device;
  }
  return nullptr;
}

bool Tree::adapterOff(const Device& device) const {
  const auto it = adapterPowered.find(device.adapter);
  return it != adapterPowered.end() && !it->second;
}

bool Tree::anyAdapterOn() const {
  return std::any_of(adapterPowered.begin(), adapterPowered.end(), [](const auto& adapter) { return adapter.second; });
}

Interfaces readInterfaces(const QDBusArgument& argument) {
  Interfaces interfaces;
  argument.beginMap();
  while (!argument.atEnd()) {
    QString name;
    QVariantMap properties;
    argument.beginMapEntry();
    argument >> name >> properties;
    argument.endMapEntry();
    interfaces.emplace_back(std::move(name), std::move(properties));
  }
  argument.endMap();
  return interfaces;
}

std::optional<Device> readDevice(const QString& path, const Interfaces& interfaces) {
  std::optional<Device> device;
  std::optional<int> battery;
  for (const auto& [name, properties] : interfaces) {
    if (name == QLatin1String(deviceInterface)) {
      device.emplace();
      device->path = path;
      device->apply(properties);
    } else if (name == QLatin1String(batteryInterface) && properties.contains(QStringLiteral("Percentage"))) {
      battery = properties.value(QStringLiteral("Percentage")).toInt();
    }
  }
  if (device) device->battery = battery;
  return device;
}

std::optional<bool> readAdapterPowered(const Interfaces& interfaces) {
  for (const auto& [name, properties] : interfaces) {
    if (name == QLatin1String(adapterInterface)) return properties.value(QStringLiteral("Powered"), true).toBool();
  }
  return std::nullopt;
}

QDBusMessage managedObjectsCall() {
  return QDBusMessage::createMethodCall(service, rootPath, objectManagerInterface, QStringLiteral("GetManagedObjects"));
}

Tree readTree(const QDBusMessage& reply) {
  Tree tree;
  if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return tree;
  const auto argument = reply.arguments().first().value<QDBusArgument>();
  argument.beginMap();
  while (!argument.atEnd()) {
    QDBusObjectPath path;
    argument.beginMapEntry();
    argument >> path;
    const Interfaces interfaces = readInterfaces(argument);
    argument.endMapEntry();
    if (auto device = readDevice(path.path(), interfaces)) {
      tree.devices.push_back(std::move(*device));
      continue;
    }
    if (const auto powered = readAdapterPowered(interfaces)) tree.adapterPowered[path.path()] = *powered;
  }
  argument.endMap();
  return tree;
}

std::optional<Tree> fetchTree(const QDBusConnection& bus, int timeoutMs, QDBusError* error) {
  const QDBusMessage reply = bus.call(managedObjectsCall(), QDBus::Block, std::max(1, timeoutMs));
  if (reply.type() != QDBusMessage::ReplyMessage) {
    if (error != nullptr) *error = QDBusError(reply);
    return std::nullopt;
  }
  return readTree(reply);
}

}  // namespace wh::platform::bluez
