#pragma once
// The channel between the agent and the settings program on the session bus: the signals
// `status` (no arguments) and `command` (the command text and a dictionary of user info), named
// in BusNames.h.

#include <QDBusConnection>
#include <QObject>
#include <QVariantMap>

#include "core/app/AgentChannel.h"
#include "platform/linux/app/BusNames.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh::platform {

class SessionBusChannel final : public QObject, public AgentChannel, public CommandSender {
  Q_OBJECT

 public:
  explicit SessionBusChannel(QDBusConnection bus = QDBusConnection::sessionBus());
  ~SessionBusChannel() override;

  // The agent's side.
  void postStatus() override;
  std::unique_ptr<Registration> listen(CommandHandler handler) override;
  bool settingsAppRunning() override;

  // The settings program's side.
  void send(const std::string& command, const nlohmann::json& userInfo) override;

  // Converts the user info between the bus's and the core's forms (plain values only).
  static nlohmann::json toJson(const QVariantMap& userInfo);
  static QVariantMap fromJson(const nlohmann::json& userInfo);

 private Q_SLOTS:
  void commandReceived(const QString& command, const QVariantMap& userInfo);

 private:
  class Listening;
  QDBusConnection bus_;
  CommandHandler handler_;
  bool connected_ = false;
};

}  // namespace wh::platform
