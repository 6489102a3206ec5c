#pragma once
// The idle-play panel drawn with the kit: a small window at the top of the screen, in front of
// everything and without taking the focus, that offers the installed players.

#include <QPointer>

#include "core/mediakeys/IdlePlay.h"
#include "ui/kit/NJPanel.h"

namespace wh::panels {

class IdlePlayWindow final : public IdlePlayPanel {
 public:
  IdlePlayWindow() = default;
  IdlePlayWindow(const IdlePlayWindow&) = delete;
  IdlePlayWindow& operator=(const IdlePlayWindow&) = delete;
  ~IdlePlayWindow() override;

  void show(const IdlePlayView& view) override;
  void close() override;

  // The window while it is shown.
  QWidget* window() const { return window_; }

  // Builds the panel's content for `view`, unshown.
  static nj::NJWindow* build(const IdlePlayView& view);

 private:
  QPointer<QWidget> window_;
};

}  // namespace wh::panels
