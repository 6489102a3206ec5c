#pragma once
// "Allow Key Access": the steps that give this user the keyboards' input devices, each command
// ready to copy, the offer to run the first one through the system's administrator dialog
// (pkexec) with what it grants said beside it, and "Check Again", which looks at the devices and
// says what it found.

#include <QPointer>

#include <functional>
#include <vector>

#include "core/texts/PlatformTexts.h"
#include "ui/kit/NJPanel.h"

class QLabel;
class QVBoxLayout;

namespace wh::panels {

class KeyAccessWindow {
 public:
  // `steps` are shown as they are; `check` looks at the devices now.
  KeyAccessWindow(std::vector<texts::KeyAccessStep> steps, std::function<texts::InputAccess()> check);
  KeyAccessWindow(const KeyAccessWindow&) = delete;
  KeyAccessWindow& operator=(const KeyAccessWindow&) = delete;
  ~KeyAccessWindow();

  // After every check, opening included (the agent asks its media keys to start again).
  std::function<void(const texts::InputAccess&)> checked;

  // Opens the panel (or raises it) and checks.
  void show();
  QWidget* window() const { return window_; }

 private:
  nj::NJWindow* build();
  void addAdministratorOffer(QVBoxLayout& layout, QWidget* out);
  void check();

  std::vector<texts::KeyAccessStep> steps_;
  std::function<texts::InputAccess()> check_;
  QPointer<nj::NJWindow> window_;
  QPointer<QLabel> finding_;
};

}  // namespace wh::panels
