// Capturing the media keys: the kernel reader's event flow on descriptors that carry real
// input_event records, and the X11 root-window grabs on a private Xvfb display driven by XTest.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <unistd.h>

#include <mutex>
#include <thread>

#include "QtLoop.h"
#include "doubles/PipeKernelInput.h"
#include "platform/linux/mediakeys/EvdevCapture.h"
#include "platform/linux/mediakeys/X11KeyGrab.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/XvfbDisplay.h"

namespace wh::platform {
namespace {

using Key = MediaKeyEvent::Key;
using Records = std::vector<std::tuple<int, int, int>>;  // type, code, value

void send(int fd, const Records& records) {
  for (const auto& [type, code, value] : records) {
    input_event record{};
    record.type = static_cast<__u16>(type);
    record.code = static_cast<__u16>(code);
    record.value = value;
    ASSERT_EQ(::write(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  }
}

// What comes out within two seconds, up to `count` records, running the main loop when asked.
Records received(int fd, std::size_t count, bool runMainLoop) {
  Records out;
  for (int turn = 0; turn < 200 && out.size() < count; ++turn) {
    if (runMainLoop) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    pollfd ready{fd, POLLIN, 0};
    if (::poll(&ready, 1, 10) <= 0) continue;
    input_event record;
    while (::read(fd, &record, sizeof record) == static_cast<ssize_t>(sizeof record)) out.emplace_back(record.type, record.code, record.value);
  }
  return out;
}

TEST(EvdevCapture, OrdinaryKeysGoStraightOutMediaKeysWaitForTheDecisionButNotLongAndKeyboardsComeAndGo) {
  test::qtApplication();
  QtRuntime runtime;
  auto owned = std::make_unique<PipeKernelInput>();
  PipeKernelInput& kernel = *owned;
  auto board = kernel.plug("/dev/input/event3");
  std::vector<MediaKeyEvent> decided;
  int timeouts = 0;
  EvdevCapture capture(std::move(owned), runtime.main(),
                       {[&](const MediaKeyEvent& event) {
                          decided.push_back(event);
                          return event.key == Key::play;
                        },
                        [&](MediaKeySource::Disabled) { ++timeouts; }},
                       0.25);  // generous: the machine may be busy
  ASSERT_TRUE(test::spinUntil([&] { return capture.isEnabled(); }));

  const Records syn{{EV_SYN, SYN_REPORT, 0}};
  struct Row {
    const char* what;
    Records in;
    bool mainLoopRuns;
    Records out;
  };
  const Row rows[] = {
      {"an ordinary key never waits", {{EV_KEY, KEY_A, 1}, {EV_SYN, SYN_REPORT, 0}}, false, {{EV_KEY, KEY_A, 1}, {EV_SYN, SYN_REPORT, 0}}},
      {"play is swallowed", {{EV_KEY, KEY_PLAYPAUSE, 1}, {EV_SYN, SYN_REPORT, 0}}, true, syn},
      {"next is let through", {{EV_KEY, KEY_NEXTSONG, 1}, {EV_SYN, SYN_REPORT, 0}}, true, {{EV_KEY, KEY_NEXTSONG, 1}, {EV_SYN, SYN_REPORT, 0}}},
      {"an undecided key goes through", {{EV_KEY, KEY_PLAYPAUSE, 0}, {EV_SYN, SYN_REPORT, 0}}, false, {{EV_KEY, KEY_PLAYPAUSE, 0}, {EV_SYN, SYN_REPORT, 0}}},
  };
  for (const auto& row : rows) {
    send(board.keys, row.in);
    EXPECT_EQ(received(board.out, row.out.size(), row.mainLoopRuns), row.out) << row.what;
  }
  test::spinFor(50);
  EXPECT_EQ(timeouts, 1);
  EXPECT_EQ(decided, (std::vector<MediaKeyEvent>{{Key::play, true, false}, {Key::next, true, false}}))
      << "the main thread does not decide a key that went by";

  ::close(board.keys);  // unplugged
  ASSERT_TRUE(test::spinUntil([&] { return !capture.isEnabled(); }));
  auto again = kernel.plug("/dev/input/event4");
  [[maybe_unused]] auto told = ::write(kernel.changes[1], "c", 1);
  ASSERT_TRUE(test::spinUntil([&] { return capture.isEnabled(); })) << "plugged in again";
  send(again.keys, {{EV_KEY, KEY_B, 1}});
  EXPECT_EQ(received(again.out, 1, false), (Records{{EV_KEY, KEY_B, 1}}));
  ::close(again.keys);
}

TEST(X11KeyGrab, PressRepeatAndReleaseArriveAKeyLetThroughReachesTheFocusAndAKeyHeldElsewhereIsLeftAlone) {
  test::qtApplication();
  test::XvfbDisplay display;
  if (!display.available()) GTEST_SKIP() << display.whyNot();
  xcb_connection_t* other = xcb_connect(display.name().c_str(), nullptr);
  ASSERT_EQ(xcb_connection_has_error(other), 0);
  const xcb_keysym_t play = 0x1008FF14, next = 0x1008FF17, previous = 0x1008FF16;
  const auto screen = xcb_setup_roots_iterator(xcb_get_setup(other)).data;
  xcb_grab_key(other, 1, screen->root, XCB_MOD_MASK_ANY, display.keyCode(0x1008FF3E), XCB_GRAB_MODE_ASYNC,
               XCB_GRAB_MODE_ASYNC);  // XF86AudioRewind
  const xcb_window_t window = xcb_generate_id(other);
  const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
  xcb_create_window(other, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 50, 50, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                    screen->root_visual, XCB_CW_EVENT_MASK, &events);
  xcb_map_window(other, window);
  xcb_set_input_focus(other, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
  free(xcb_get_input_focus_reply(other, xcb_get_input_focus(other), nullptr));

  std::vector<MediaKeyEvent> seen;
  auto grab = X11KeyGrab::start({[&](const MediaKeyEvent& event) {
                                   seen.push_back(event);
                                   return event.key != Key::previous;
                                 },
                                 {}},
                                display.name().c_str());
  ASSERT_TRUE(grab);
  EXPECT_EQ(grab->heldElsewhere(), std::set<std::string>{"XF86AudioRewind"});

  display.key(play, true);
  display.key(play, false);
  display.key(next, true);
  test::spinFor(1200);  // the server repeats the held key
  display.key(next, false);
  display.key(previous, true);
  display.key(previous, false);
  ASSERT_TRUE(test::spinUntil([&] { return seen.size() >= 6 && seen.back().key == Key::previous && !seen.back().isDown; }));
  EXPECT_EQ(seen.front(), (MediaKeyEvent{Key::play, true, false}));
  EXPECT_EQ(seen[1], (MediaKeyEvent{Key::play, false, false}));
  EXPECT_EQ(seen[2], (MediaKeyEvent{Key::next, true, false}));
  const auto repeats = std::count(seen.begin(), seen.end(), MediaKeyEvent{Key::next, true, true});
  EXPECT_GE(repeats, 3) << "held for 1.2 s";
  EXPECT_EQ(static_cast<std::size_t>(repeats) + 6, seen.size()) << "no release between the repeats";

  std::vector<std::uint8_t> sentOn;  // key events that reached the focus window, sent by the grab
  test::spinUntil([&] {
    while (xcb_generic_event_t* event = xcb_poll_for_event(other)) {
      if (event->response_type & 0x80) sentOn.push_back(reinterpret_cast<xcb_key_press_event_t*>(event)->detail);
      free(event);
    }
    return sentOn.size() >= 2;
  }, 2000);
  const auto previousCode = display.keyCode(previous);
  EXPECT_EQ(sentOn, (std::vector<std::uint8_t>{previousCode, previousCode}));
  xcb_disconnect(other);
}

}  // namespace
}  // namespace wh::platform
