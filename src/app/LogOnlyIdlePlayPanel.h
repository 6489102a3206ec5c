#pragma once
// An idle-play panel that shows nothing: it writes what the panel would show to the log. It
// stands in until the panel is drawn with the UI kit.

#include "core/log/Log.h"
#include "core/mediakeys/IdlePlay.h"

namespace wh::app {

class LogOnlyIdlePlayPanel final : public IdlePlayPanel {
 public:
  void show(const IdlePlayView& view) override {
    std::string offered;
    for (const auto player : view.players) offered += (offered.empty() ? "" : ", ") + displayName(player);
    Log::info(std::string("idle play panel (log only): ") + IdlePlayView::title + "; " + view.prompt() + "; offers " +
              (offered.empty() ? "nothing installed" : offered));
  }
  void close() override { Log::info("idle play panel (log only) closed"); }
};

}  // namespace wh::app
