#pragma once
// BlueZ's objects as the adapters read them: one GetManagedObjects answer becomes the list of
// devices (address, names, paired, connected, class, battery) and the power state of each adapter.

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace wh::platform::bluez {

inline constexpr const char* service = "org.bluez";
inline constexpr const char* rootPath = "/";
inline constexpr const char* deviceInterface = "org.bluez.Device1";
inline constexpr const char* adapterInterface = "org.bluez.Adapter1";
inline constexpr const char* batteryInterface = "org.bluez.Battery1";
inline constexpr const char* objectManagerInterface = "org.freedesktop.DBus.ObjectManager";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

struct Device {
  QString path;
  std::string address;  // normal form; empty when BlueZ gave none
  std::string alias;
  std::string name;
  bool paired = false;
  bool connected = false;
  std::uint32_t deviceClass = 0;
  QString adapter;
  std::optional<int> battery;  // Battery1.Percentage

  // Major device class 4: audio and video (headphones, headsets, speakers).
  bool isAudio() const { return ((deviceClass >> 8) & 0x1F) == 4; }
  // The alias, else the name, else the address.
  std::string displayName() const;
  // Takes the Device1 properties that are present in `properties`.
  void apply(const QVariantMap& properties);
};

struct Tree {
  std::vector<Device> devices;             // in the order BlueZ listed them
  std::map<QString, bool> adapterPowered;  // adapter path -> Powered

  const Device* find(const std::string& normalAddress) const;
  // Whether the device's adapter is known to be switched off.
  bool adapterOff(const Device& device) const;
  // Whether some adapter is present and powered.
  bool anyAdapterOn() const;
};

// One object's interfaces with their properties (a{sa{sv}}), in the order given.
using Interfaces = std::vector<std::pair<QString, QVariantMap>>;
Interfaces readInterfaces(const QDBusArgument& argument);
// The device described by one object's interfaces, if it has Device1.
std::optional<Device> readDevice(const QString& path, const Interfaces& interfaces);
// Whether the adapter described by one object's interfaces is powered; nothing without Adapter1.
std::optional<bool> readAdapterPowered(const Interfaces& interfaces);

QDBusMessage managedObjectsCall();
// A GetManagedObjects answer read into a tree.
Tree readTree(const QDBusMessage& reply);
// Asks BlueZ for its objects, blocking for at most `timeoutMs`. On failure `error` holds the bus's
// or BlueZ's error (ServiceUnknown when BlueZ is not running, NoReply when it did not answer).
std::optional<Tree> fetchTree(const QDBusConnection& bus, int timeoutMs, QDBusError* error);

}  // namespace wh::platform::bluez
