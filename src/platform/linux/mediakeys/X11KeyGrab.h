#pragma once
// The media keys through grabs on the X11 root window, for an X11 session where the input
// devices cannot be read. Press, auto-repeat (made detectable through XKB) and release all
// arrive here; a key that is let through is sent on to the window that has the focus. Play and
// pause both count as the play key. A key another program already grabbed is reported and left
// to it.

#include <xcb/xcb.h>

#include <QSocketNotifier>

#include <map>
#include <memory>
#include <set>
#include <string>

#include "core/mediakeys/MediaKeySource.h"

namespace wh::platform {

class X11KeyGrab final : public KeyCapture {
 public:
  // Connects to `display` (null: $DISPLAY) and grabs the keys; null when the display cannot be
  // reached or no key could be grabbed. `heldElsewhere` names the keys already reported as held
  // by another program: share it between grabs so that each is reported once while it stays held.
  static std::unique_ptr<X11KeyGrab> start(MediaKeySource::Handler handler, const char* display = nullptr,
                                           std::shared_ptr<std::set<std::string>> heldElsewhere = {});
  ~X11KeyGrab() override;
  X11KeyGrab(const X11KeyGrab&) = delete;
  X11KeyGrab& operator=(const X11KeyGrab&) = delete;

  bool isEnabled() const override;
  void enable() override;

 private:
  X11KeyGrab(MediaKeySource::Handler handler, std::string display, std::shared_ptr<std::set<std::string>> heldElsewhere);
  bool connect();
  void disconnect();
  void readEvents();

  MediaKeySource::Handler handler_;
  std::string display_;
  xcb_connection_t* connection_ = nullptr;
  xcb_window_t root_ = 0;
  std::map<xcb_keycode_t, MediaKeyEvent::Key> keys_;
  std::set<xcb_keycode_t> down_;
  std::shared_ptr<std::set<std::string>> heldElsewhere_;  // key symbol names another program holds, reported
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace wh::platform
