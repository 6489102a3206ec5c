#pragma once
// A private X display (Xvfb) for tests, on a display number the server picks itself.

#include <xcb/xcb.h>

#include <memory>
#include <string>

#include "support/ChildProcess.h"

namespace wh::test {

class XvfbDisplay {
 public:
  XvfbDisplay();
  ~XvfbDisplay();
  XvfbDisplay(const XvfbDisplay&) = delete;
  XvfbDisplay& operator=(const XvfbDisplay&) = delete;
  bool available() const { return !name_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // ":<n>", for DISPLAY.
  const std::string& name() const { return name_; }
  // The first key code of a key symbol.
  xcb_keycode_t keyCode(xcb_keysym_t symbol) const;
  // Presses or releases the key of a symbol, as a keyboard would (XTest).
  void key(xcb_keysym_t symbol, bool press) const;

 private:
  std::unique_ptr<ChildProcess> process_;
  std::string name_, whyNot_;
  xcb_connection_t* connection_ = nullptr;
};

}  // namespace wh::test
