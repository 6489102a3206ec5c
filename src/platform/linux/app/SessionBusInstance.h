#pragma once
// The agent's well-known name on the session bus. Owning it makes this process the one running
// agent; a later instance finds the owner through it and asks it to reopen.

#include <QObject>

#include <functional>

#include "platform/linux/app/BusNames.h"

namespace wh::platform {

class SessionBusInstance final : public QObject {
  Q_OBJECT
  // moc takes only a literal here: bus::interfaceName.
  Q_CLASSINFO("D-Bus Interface", "com.quintelbarrows.wrenhaven")

 public:

  // Claims the name. Answers true when this process now owns it, or when there is no session
  // bus to ask (then nobody can tell two instances apart, and this one runs). Answers false
  // when another process owns it; that process has then been asked to reopen. `name` is the
  // agent's name unless the settings program claims its own.
  bool claim(std::function<void()> reopen, const char* name = bus::agentName);

 public Q_SLOTS:
  // Called over the bus by a later instance.
  Q_SCRIPTABLE void Reopen();

 private:
  std::function<void()> reopen_;
};

}  // namespace wh::platform
