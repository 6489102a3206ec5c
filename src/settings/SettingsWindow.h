#pragma once
// The settings window: a list of pages on the left, the chosen page on the right, and a line on
// top when the agent is not running (with a button to start it) or has not answered yet.

#include <QWidget>

#include <functional>

#include "settings/SettingsPages.h"

class QLabel;
class QListWidget;
class QScrollArea;

namespace nj {
class NJButton;
}

namespace wh::settingsapp {

class SettingsWindow final : public QWidget {
  Q_OBJECT

 public:
  struct Agent {
    std::function<bool()> running;
    std::function<void()> start;
  };

  SettingsWindow(Settings& settings, PageActions actions, Agent agent);

  // Draws everything again from the store, once the current event is done (the control that
  // caused the change may be one of those replaced). `statusAnswered` marks the status as fresh.
  void refresh();
  void statusAnswered();
  void showPage(PageBuilder::Page page);
  // The sound server's devices, for the microphone choice.
  void setAudioDevices(std::vector<AudioDevice> devices);

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void styleNavigation();
  void redraw();
  void rebuildPage();

  Settings& settings_;
  PageBuilder pages_;
  Agent agent_;
  std::optional<std::vector<AudioDevice>> devices_;
  bool fresh_ = false;
  bool redrawQueued_ = false;
  QLabel* banner_;
  nj::NJButton* startAgent_;
  QListWidget* navigation_;
  QScrollArea* content_;
};

}  // namespace wh::settingsapp
