#include "platform/linux/app/SessionBusChannel.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "core/log/Log.h"

namespace wh::platform {

class SessionBusChannel::Listening final : public Registration {
 public:
  explicit Listening(SessionBusChannel& channel) : channel_(channel) {}
  ~Listening() override { channel_.handler_ = nullptr; }

 private:
  SessionBusChannel& channel_;
};

SessionBusChannel::SessionBusChannel(QDBusConnection bus) : bus_(std::move(bus)) {}

SessionBusChannel::~SessionBusChannel() {
  if (connected_) {
    bus_.disconnect(QString(), bus::objectPath, bus::interfaceName, bus::commandSignal, this,
                    SLOT(commandReceived(QString, QVariantMap)));
  }
}

void SessionBusChannel::postStatus() {
  if (!bus_.isConnected()) return;
  bus_.send(QDBusMessage::createSignal(bus::objectPath, bus::interfaceName, bus::statusSignal));
}

std::unique_ptr<Registration> SessionBusChannel::listen(CommandHandler handler) {
  handler_ = std::move(handler);
  if (!connected_ && bus_.isConnected()) {
    // From any sender: the settings program has no well-known name while it starts.
    connected_ = bus_.connect(QString(), bus::objectPath, bus::interfaceName, bus::commandSignal, this,
                              SLOT(commandReceived(QString, QVariantMap)));
    if (!connected_) Log::error("cannot listen for commands: " + bus_.lastError().message().toStdString());
  }
  return std::make_unique<Listening>(*this);
}

bool SessionBusChannel::settingsAppRunning() {
  if (!bus_.isConnected()) return false;
  return bus_.interface()->isServiceRegistered(bus::settingsName).value();
}

void SessionBusChannel::send(const std::string& command, const nlohmann::json& userInfo) {
  if (!bus_.isConnected()) return;
  auto message = QDBusMessage::createSignal(bus::objectPath, bus::interfaceName, bus::commandSignal);
  message << QString::fromStdString(command) << fromJson(userInfo);
  bus_.send(message);
}

void SessionBusChannel::commandReceived(const QString& command, const QVariantMap& userInfo) {
  if (handler_) handler_(command.toStdString(), toJson(userInfo));
}

nlohmann::json SessionBusChannel::toJson(const QVariantMap& userInfo) {
  nlohmann::json out = nlohmann::json::object();
  for (auto it = userInfo.begin(); it != userInfo.end(); ++it) {
    const QVariant& value = it.value();
    const std::string key = it.key().toStdString();
    switch (value.metaType().id()) {
      case QMetaType::Bool:
        out[key] = value.toBool();
        break;
      case QMetaType::QString:
        out[key] = value.toString().toStdString();
        break;
      case QMetaType::Int:
      case QMetaType::LongLong:
      case QMetaType::Short:
        out[key] = value.toLongLong();
        break;
      case QMetaType::UInt:
      case QMetaType::ULongLong:
      case QMetaType::UShort:
      case QMetaType::UChar:
        out[key] = value.toULongLong();
        break;
      case QMetaType::Double:
        out[key] = value.toDouble();
        break;
      default:
        break;  // containers and other types carry nothing a command reads
    }
  }
  return out;
}

QVariantMap SessionBusChannel::fromJson(const nlohmann::json& userInfo) {
  QVariantMap out;
  if (!userInfo.is_object()) return out;
  for (const auto& [key, value] : userInfo.items()) {
    const QString name = QString::fromStdString(key);
    if (value.is_boolean()) {
      out[name] = value.get<bool>();
    } else if (value.is_string()) {
      out[name] = QString::fromStdString(value.get<std::string>());
    } else if (value.is_number_unsigned()) {
      // Above the largest signed number it would arrive negative.
      out[name] = static_cast<qulonglong>(value.get<std::uint64_t>());
    } else if (value.is_number_integer()) {
      out[name] = static_cast<qlonglong>(value.get<std::int64_t>());
    } else if (value.is_number()) {
      out[name] = value.get<double>();
    }
  }
  return out;
}

}  // namespace wh::platform
