#pragma once
// Calls back whenever the agent's status signal arrives on the session bus.

#include <QDBusConnection>
#include <QObject>

#include <functional>

namespace wh::settingsapp {

class StatusSignal final : public QObject {
  Q_OBJECT

 public:
  StatusSignal(QDBusConnection bus, std::function<void()> arrived);
  ~StatusSignal() override;

 private Q_SLOTS:
  void received();

 private:
  QDBusConnection bus_;
  std::function<void()> arrived_;
  bool connected_ = false;
};

}  // namespace wh::settingsapp
