#include "platform/linux/bluetooth/BluezUPowerBatterySources.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QVariantMap>

#include <algorithm>
#include <cmath>

#include "platform/linux/bluetooth/BluezObjects.h"

namespace wh::platform {

namespace {

constexpr const char* upowerService = "org.freedesktop.UPower";
constexpr const char* upowerPath = "/org/freedesktop/UPower";
constexpr const char* upowerDeviceInterface = "org.freedesktop.UPower.Device";

// UPower's device kinds that are worn or listened to: headset, speakers, headphones, other audio.
bool isAudioKind(unsigned kind) { return kind == 17 || kind == 18 || kind == 19 || kind == 21; }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Six pairs of hex digits joined by one separator (":", "-" or "_"), not inside a longer run of
// hex digits.
std::optional<std::string> findAddress(std::string_view text) {
  constexpr std::size_t length = 17;
  for (std::size_t start = 0; start + length <= text.size(); ++start) {
    if (start > 0 && hexValue(text[start - 1]) >= 0) continue;
    if (start + length < text.size() && hexValue(text[start + length]) >= 0) continue;
    const char separator = text[start + 2];
    if (separator != ':' && separator != '-' && separator != '_') continue;
    std::string address;
    bool valid = true;
    for (std::size_t i = 0; i < length && valid; ++i) {
      const char c = text[start + i];
      if (i % 3 == 2) {
        valid = c == separator;
        if (valid) address.push_back('-');
      } else {
        const int value = hexValue(c);
        valid = value >= 0;
        if (valid) address.push_back("0123456789abcdef"[value]);
      }
    }
    if (valid) return address;
  }
  return std::nullopt;
}

QVariantMap deviceProperties(const QDBusConnection& bus, const QString& path, int timeoutMs) {
  auto call = QDBusMessage::createMethodCall(upowerService, path, bluez::propertiesInterface, QStringLiteral("GetAll"));
  call << QString::fromLatin1(upowerDeviceInterface);
  const QDBusMessage reply = bus.call(call, QDBus::Block, timeoutMs);
  if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
  return qdbus_cast<QVariantMap>(reply.arguments().first());
}

}  // namespace

std::optional<std::string> upowerDeviceAddress(std::string_view serial, std::string_view nativePath) {
  if (auto address = findAddress(serial)) return address;
  return findAddress(nativePath);
}

BluezUPowerBatterySources::BluezUPowerBatterySources(QDBusConnection bus, std::chrono::milliseconds timeout)
    : bus_(std::move(bus)), timeoutMs_(static_cast<int>(timeout.count())) {}

std::vector<BatteryEntry> BluezUPowerBatterySources::readLive() {
  std::vector<BatteryEntry> entries;
  QDBusError error;
  const auto tree = bluez::fetchTree(bus_, timeoutMs_, &error);
  if (!tree) return entries;
  const auto now = std::chrono::system_clock::now();
  for (const auto& device : tree->devices) {
    if (!device.battery) continue;
    BatteryEntry entry;
    const std::string name = device.displayName();
    if (!name.empty()) entry.name = name;
    if (!device.address.empty()) entry.address = device.address;
    entry.levels.single = device.battery;
    entry.levels.readAt = now;
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::map<std::string, BatteryLevels> BluezUPowerBatterySources::readSlow() {
  std::map<std::string, BatteryLevels> levels;
  const auto call = QDBusMessage::createMethodCall(upowerService, upowerPath, upowerService,
                                                   QStringLiteral("EnumerateDevices"));
  const QDBusMessage reply = bus_.call(call, QDBus::Block, timeoutMs_);
  if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return levels;
  const auto paths = qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().first());
  for (const auto& path : paths) {
    const QVariantMap properties = deviceProperties(bus_, path.path(), timeoutMs_);
    if (!isAudioKind(properties.value(QStringLiteral("Type")).toUInt())) continue;
    if (!properties.contains(QStringLiteral("Percentage"))) continue;
    const auto address = upowerDeviceAddress(properties.value(QStringLiteral("Serial")).toString().toStdString(),
                                             properties.value(QStringLiteral("NativePath")).toString().toStdString());
    if (!address) continue;
    const double percentage = properties.value(QStringLiteral("Percentage")).toDouble();
    if (!std::isfinite(percentage)) continue;
    BatteryLevels level;
    level.single = static_cast<int>(std::lround(std::clamp(percentage, 0.0, 100.0)));
    level.readAt = std::chrono::system_clock::now();
    levels[*address] = level;
  }
  return levels;
}

}  // namespace wh::platform
