#include "support/XvfbDisplay.h"

#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <cstdlib>

namespace wh::test {

XvfbDisplay::XvfbDisplay() {
  const std::string server = findExecutable("Xvfb");
  if (server.empty()) {
    whyNot_ = "Xvfb is not installed (scripts/install-deps.sh installs it)";
    return;
  }
  process_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{server, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "640x480x24"});
  if (!process_->waitForOutput("\n", std::chrono::seconds(10))) {
    whyNot_ = "Xvfb did not start";
    process_.reset();
    return;
  }
  const std::string& output = process_->output();
  name_ = ":" + output.substr(0, output.find('\n'));
  connection_ = xcb_connect(name_.c_str(), nullptr);
}

XvfbDisplay::~XvfbDisplay() {
  if (connection_) xcb_disconnect(connection_);
}

xcb_keycode_t XvfbDisplay::keyCode(xcb_keysym_t symbol) const {
  xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection_);
  xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, symbol);
  const xcb_keycode_t first = codes ? codes[0] : 0;
  free(codes);
  xcb_key_symbols_free(symbols);
  return first;
}

void XvfbDisplay::key(xcb_keysym_t symbol, bool press) const {
  const auto root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
  xcb_test_fake_input(connection_, press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keyCode(symbol), XCB_CURRENT_TIME, root, 0, 0, 0);
  free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));  // the server has it
}

}  // namespace wh::test
