#include "platform/linux/mediakeys/X11KeyGrab.h"

#include <xcb/xcb_keysyms.h>
// The XKB header names a field `explicit`, which C++ reserves; clang warns of the renaming macro.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#include <cstdlib>

#include "core/log/Log.h"

namespace wh::platform {

namespace {

struct KeySymbol {
  xcb_keysym_t symbol;
  const char* name;
  MediaKeyEvent::Key key;
};

constexpr KeySymbol mediaSymbols[] = {
    {0x1008FF14, "XF86AudioPlay", MediaKeyEvent::Key::play},
    {0x1008FF31, "XF86AudioPause", MediaKeyEvent::Key::play},
    {0x1008FF17, "XF86AudioNext", MediaKeyEvent::Key::next},
    {0x1008FF16, "XF86AudioPrev", MediaKeyEvent::Key::previous},
    {0x1008FF97, "XF86AudioForward", MediaKeyEvent::Key::fast},
    {0x1008FF3E, "XF86AudioRewind", MediaKeyEvent::Key::rewind},
};

// The X protocol's error for a grab that another client holds.
constexpr std::uint8_t accessError = 10;

}  // namespace

std::unique_ptr<X11KeyGrab> X11KeyGrab::start(MediaKeySource::Handler handler, const char* display,
                                              std::shared_ptr<std::set<std::string>> heldElsewhere) {
  const char* name = display ? display : std::getenv("DISPLAY");
  if (!heldElsewhere) heldElsewhere = std::make_shared<std::set<std::string>>();
  std::unique_ptr<X11KeyGrab> grab(new X11KeyGrab(std::move(handler), name ? name : "", std::move(heldElsewhere)));
  if (!grab->connect()) return nullptr;
  return grab;
}

X11KeyGrab::X11KeyGrab(MediaKeySource::Handler handler, std::string display,
                       std::shared_ptr<std::set<std::string>> heldElsewhere)
    : handler_(std::move(handler)), display_(std::move(display)), heldElsewhere_(std::move(heldElsewhere)) {}

X11KeyGrab::~X11KeyGrab() { disconnect(); }

bool X11KeyGrab::isEnabled() const { return connection_ && xcb_connection_has_error(connection_) == 0; }

void X11KeyGrab::enable() {
  if (isEnabled()) return;
  disconnect();
  connect();
}

bool X11KeyGrab::connect() {
  if (display_.empty()) return false;
  connection_ = xcb_connect(display_.c_str(), nullptr);
  if (xcb_connection_has_error(connection_)) {
    disconnect();
    return false;
  }
  root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;

  // Held keys then repeat as presses without releases in between.
  if (auto* reply = xcb_xkb_use_extension_reply(connection_, xcb_xkb_use_extension(connection_, 1, 0), nullptr)) {
    free(reply);
    const auto flag = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
    free(xcb_xkb_per_client_flags_reply(
        connection_, xcb_xkb_per_client_flags(connection_, XCB_XKB_ID_USE_CORE_KBD, flag, flag, 0, 0, 0), nullptr));
  }

  keys_.clear();
  xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection_);
  for (const auto& media : mediaSymbols) {
    bool held = false;
    xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, media.symbol);
    for (auto* code = codes; code && *code != XCB_NO_SYMBOL; ++code) {
      auto* error = xcb_request_check(connection_, xcb_grab_key_checked(connection_, 1, root_, XCB_MOD_MASK_ANY, *code,
                                                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
      if (!error) keys_[*code] = media.key;
      held = held || (error && error->error_code == accessError);
      free(error);
    }
    free(codes);
    // Said when the key is taken, not at every attempt while it stays taken.
    if (!held) {
      heldElsewhere_->erase(media.name);
    } else if (heldElsewhere_->insert(media.name).second) {
      Log::info(std::string("media key ") + media.name + " is held by another program");
    }
  }
  xcb_key_symbols_free(symbols);
  if (keys_.empty()) {
    disconnect();
    return false;
  }
  notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { readEvents(); });
  xcb_flush(connection_);
  return true;
}

void X11KeyGrab::disconnect() {
  notifier_.reset();
  if (connection_) xcb_disconnect(connection_);
  connection_ = nullptr;
  down_.clear();
}

void X11KeyGrab::readEvents() {
  while (xcb_generic_event_t* generic = xcb_poll_for_event(connection_)) {
    const std::uint8_t type = generic->response_type & 0x7F;
    if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
      auto* key = reinterpret_cast<xcb_key_press_event_t*>(generic);
      if (const auto found = keys_.find(key->detail); found != keys_.end()) {
        const bool isDown = type == XCB_KEY_PRESS;
        const bool isRepeat = isDown && !down_.insert(key->detail).second;
        if (!isDown) down_.erase(key->detail);
        if (!handler_.decide({found->second, isDown, isRepeat})) {
          // Let through: the window with the focus gets the key as it came.
          auto* focus = xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr);
          if (focus && focus->focus != XCB_NONE && focus->focus != XCB_INPUT_FOCUS_POINTER_ROOT) {
            key->event = focus->focus;
            const auto mask = isDown ? XCB_EVENT_MASK_KEY_PRESS : XCB_EVENT_MASK_KEY_RELEASE;
            xcb_send_event(connection_, 1, focus->focus, mask, reinterpret_cast<const char*>(key));
          }
          free(focus);
        }
      }
    }
    free(generic);
  }
  xcb_flush(connection_);
  if (xcb_connection_has_error(connection_)) notifier_->setEnabled(false);
}

}  // namespace wh::platform
