#pragma once
// The settings window: a list of pages on the left, the chosen page on the right, and a line on
// top when the agent is not running (with a button to start it) or does not answer when asked for
// its status.

#include <QWidget>

#include <functional>

#include "settings/SettingsPages.h"

class QLabel;
class QListWidget;
class QScrollArea;
class QTimer;

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
    // Asks the agent for its status (answered by the status signal); null: never asked.
    std::function<void()> askStatus;
    // How long an answer may take before the window says what it shows may be out of date.
    int answerWaitMs = 3000;
  };

  SettingsWindow(Settings& settings, PageActions actions, Agent agent);

  // Draws everything again from the store, once the current event is done (the control that
  // caused the change may be one of those replaced). `statusAnswered` marks the status as fresh.
  void refresh();
  void statusAnswered();
  // Asks the running agent for its status; call once the status signal is followed, and whenever
  // the agent (re)starts.
  void askStatus();
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
  bool waiting_ = false;  // asked, and the answer may still come
  bool redrawQueued_ = false;
  QLabel* banner_;
  nj::NJButton* startAgent_;
  QTimer* answerWait_;
  QListWidget* navigation_;
  QScrollArea* content_;
};

}  // namespace wh::settingsapp
