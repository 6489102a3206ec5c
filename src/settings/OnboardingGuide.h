#pragma once
// The first-run guide: welcome, Bluetooth access, choosing headphones, music quality, media keys
// and start at login, one step at a time. Finishing it sets "onboardingDone". The step shown is kept
// in "onboardingStep", so that the guide reopens where the person left it.

#include <QWidget>

#include "settings/SettingsPages.h"

class QScrollArea;

namespace nj {
class NJButton;
}

namespace wh::settingsapp {

class OnboardingGuide final : public QWidget {
  Q_OBJECT

 public:
  enum class Step { welcome, bluetooth, headphones, musicQuality, mediaKeys, login, done };

  OnboardingGuide(Settings& settings, PageActions actions);
  ~OnboardingGuide() override;

  // Draws the current step again from the store, once the current event is done.
  void refresh();
  void go(Step step);
  Step step() const { return step_; }

 Q_SIGNALS:
  void finished();

 private:
  void redraw();
  void keep(Step step);

  Settings& settings_;
  PageActions actions_;
  PageBuilder pages_;
  Step step_ = Step::welcome;
  bool redrawQueued_ = false;
  QScrollArea* content_;
  nj::NJButton* back_;
  nj::NJButton* next_;
};

}  // namespace wh::settingsapp
