// The kernel reader's event flow on descriptors that carry real input_event records.
#include <gtest/gtest.h>

#include <linux/input.h>
#include <poll.h>
#include <signal.h>

#include <algorithm>

#include "QtLoop.h"
#include "doubles/PipeKernelInput.h"
#include "platform/linux/mediakeys/EvdevCapture.h"
#include "platform/linux/mediakeys/X11KeyGrab.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/CapturedLog.h"
#include "support/RigRequired.h"
#include "support/XvfbDisplay.h"

namespace wh::platform {
namespace {

using Key = MediaKeyEvent::Key;
using Records = std::vector<std::tuple<int, int, int>>;  // type, code, value

Records with(int code, int value) { return {{EV_KEY, code, value}, {EV_SYN, SYN_REPORT, 0}}; }  // a key and its report

bool press(std::pair<int, int> board, const Records& in) {
  for (const auto& [type, code, value] : in) {
    const input_event record{{0, 0}, static_cast<__u16>(type), static_cast<__u16>(code), value};
    if (::write(board.first, &record, sizeof record) != sizeof record) return false;
  }
  return true;
}

// Writes the records, then collects up to `count` records let through, running the main loop if asked.
Records through(std::pair<int, int> board, const Records& in, std::size_t count, bool runMainLoop) {
  if (!press(board, in)) return {};
  Records out;
  input_event record;
  for (int turn = 0; turn < 200 && out.size() < count; ++turn) {
    if (runMainLoop) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    pollfd ready{board.second, POLLIN, 0};
    ::poll(&ready, 1, 10);
    while (::read(board.second, &record, sizeof record) == sizeof record) out.emplace_back(record.type, record.code, record.value);
  }
  return out;
}

TEST(EvdevCapture, OrdinaryKeysGoStraightOutMediaKeysWaitForTheDecisionButNotLongAndKeyboardsComeAndGo) {
  test::qtApplication();
  QtRuntime runtime;
  auto owned = std::make_unique<PipeKernelInput>();
  PipeKernelInput& kernel = *owned;
  const auto board = kernel.plug("/dev/input/event3");
  std::vector<MediaKeyEvent> decided;  // play is swallowed, the other keys let through
  int timeouts = 0;
  auto decide = [&](const MediaKeyEvent& event) { return decided.push_back(event), event.key == Key::play; };
  EvdevCapture capture(std::move(owned), runtime.main(), {decide, [&](MediaKeySource::Disabled) { ++timeouts; }},
                       0.25);  // generous: the machine may be busy
  ASSERT_TRUE(test::spinUntil([&] { return capture.isEnabled(); }));

  const Records syn{{EV_SYN, SYN_REPORT, 0}};
  const std::tuple<const char*, Records, bool, Records> rows[] = {
      {"an ordinary key never waits", with(KEY_A, 1), false, with(KEY_A, 1)},
      {"play is swallowed", with(KEY_PLAYPAUSE, 1), true, syn},
      {"next is let through", with(KEY_NEXTSONG, 1), true, with(KEY_NEXTSONG, 1)},
      {"an undecided key goes through", with(KEY_PLAYPAUSE, 0), false, with(KEY_PLAYPAUSE, 0)},
  };
  for (const auto& [what, in, mainLoopRuns, out] : rows) EXPECT_EQ(through(board, in, out.size(), mainLoopRuns), out) << what;
  test::spinFor(50);
  EXPECT_EQ(timeouts, 1);
  EXPECT_EQ(decided, (std::vector<MediaKeyEvent>{{Key::play, true, false}, {Key::next, true, false}}))
      << "the main thread does not decide a key that went by";

  ::close(board.first);  // unplugged
  ASSERT_TRUE(test::spinUntil([&] { return !capture.isEnabled(); }));
  const auto again = kernel.plug("/dev/input/event4");
  capture.enable();
  EXPECT_EQ(through(again, with(KEY_B, 1), 2, false), with(KEY_B, 1)) << "plugged in again";
  ::close(again.first);
}

// BlueZ's device for headphones over AVRCP has play and pause as two keys and no EV_REP; so do most
// keyboards' separate consumer-control devices.
TEST(EvdevCapture, PlayAndPauseAreThePlayKeyAndAHeldKeyRepeatsHereOnlyWhereTheKernelMakesNoRepeats) {
  test::qtApplication();
  QtRuntime runtime;
  auto kernel = std::make_unique<PipeKernelInput>();
  const auto keyboard = kernel->plug("/dev/input/event3");
  const auto headphones = kernel->plug("/dev/input/event7", {.repeats = false});
  std::vector<MediaKeyEvent> decided;
  auto swallow = [&](const MediaKeyEvent& event) { return decided.push_back(event), true; };
  EvdevCapture capture(std::move(kernel), runtime.main(), {swallow, {}}, 0.25);

  Records playPause;
  for (const auto& key : {with(KEY_PLAYCD, 1), with(KEY_PLAYCD, 0), with(KEY_PAUSECD, 1), with(KEY_PAUSECD, 0)}) {
    playPause.insert(playPause.end(), key.begin(), key.end());
  }
  EXPECT_EQ(through(headphones, playPause, 4, true), Records(4, {EV_SYN, SYN_REPORT, 0})) << "all swallowed";
  const MediaKeyEvent down{Key::play, true, false}, up{Key::play, false, false};
  EXPECT_EQ(decided, (std::vector<MediaKeyEvent>{down, up, down, up}));

  // Held together: next on the keyboard (pressed first), previous on the headphones.
  decided.clear();
  ASSERT_TRUE(press(keyboard, with(KEY_NEXTSONG, 1)) && test::spinUntil([&] { return decided.size() == 1; }));
  ASSERT_TRUE(press(headphones, with(KEY_PREVIOUSSONG, 1)));
  auto count = [&](MediaKeyEvent event) { return std::count(decided.begin(), decided.end(), event); };
  ASSERT_TRUE(test::spinUntil([&] { return count({Key::previous, true, true}) >= 2; }));
  ASSERT_TRUE(press(keyboard, with(KEY_NEXTSONG, 0)) && press(headphones, with(KEY_PREVIOUSSONG, 0)));
  ASSERT_TRUE(test::spinUntil([&] { return decided.back() == MediaKeyEvent{Key::previous, false, false}; }));
  EXPECT_EQ(count({Key::next, true, true}), 0) << "repeats of next would have come before those of previous";
  for (const auto& board : {keyboard, headphones}) ::close(board.first);
}

// However the reader is stopped or held up, it keeps no key and leaves no keyboard grabbed.
TEST(EvdevCapture, TheReaderNeverKeepsAKeyItsWaitFailingTheMainThreadSilentOrATwinRefusing) {
  // A reader that lets go of a keyboard closes its end of the harness's pipe, which may still be
  // written to: the write must fail with EPIPE, not end the test process.
  struct IgnorePipeSignal {
    struct sigaction previous {};
    IgnorePipeSignal() {
      struct sigaction ignore {};
      ignore.sa_handler = SIG_IGN;
      ::sigaction(SIGPIPE, &ignore, &previous);
    }
    ~IgnorePipeSignal() { ::sigaction(SIGPIPE, &previous, nullptr); }
  } ignorePipeSignal;
  test::qtApplication();
  test::CapturedLog log;
  QtRuntime runtime;
  const MediaKeySource::Handler swallow{[](const MediaKeyEvent&) { return true; }, {}};
  auto closed = [](PipeKernelInput& kernel, std::size_t count) {
    std::vector<std::string> paths;
    test::spinUntil([&] { return (paths = kernel.closedSoFar()).size() >= count; });
    return std::sort(paths.begin(), paths.end()), paths;
  };
  {  // the reader's wait fails while a key is on its way
    auto owned = std::make_unique<PipeKernelInput>();
    PipeKernelInput& kernel = *owned;
    const auto one = kernel.plug("/dev/input/event3"), two = kernel.plug("/dev/input/event4");
    EvdevCapture capture(std::move(owned), runtime.main(), swallow, 0.25);
    EXPECT_TRUE(capture.isEnabled()) << "grabbed before the constructor returns";
    kernel.failWaits = true;
    ASSERT_TRUE(press(one, with(KEY_NEXTSONG, 1)));
    EXPECT_EQ(closed(kernel, 2), (std::vector<std::string>{"/dev/input/event3", "/dev/input/event4"}));
    EXPECT_TRUE(log->has("the media key reader stopped: Cannot allocate memory"));
    for (const auto& board : {one, two}) ::close(board.first);
  }
  {  // the main thread begins to decide and takes far longer than the limit
    auto kernel = std::make_unique<PipeKernelInput>();
    const auto board = kernel->plug("/dev/input/event3");
    Records meanwhile;  // what the reader let through while the main thread was deciding
    int timeouts = 0;
    EvdevCapture capture(std::move(kernel), runtime.main(),
                         {[&](const MediaKeyEvent&) { return meanwhile = through(board, {}, 2, false), true; },
                          [&](MediaKeySource::Disabled) { ++timeouts; }},
                         0.05);
    ASSERT_TRUE(press(board, with(KEY_NEXTSONG, 1)));
    EXPECT_TRUE(test::spinUntil([&] { return timeouts == 1; }));
    EXPECT_EQ(meanwhile, with(KEY_NEXTSONG, 1));
    ::close(board.first);
  }
  {  // a twin refuses a key: that keyboard is let go of, so that its keys reach the system again
    auto owned = std::make_unique<PipeKernelInput>();
    PipeKernelInput& kernel = *owned;
    const auto board = kernel.plug("/dev/input/event5", {.twinRefuses = true});
    EvdevCapture capture(std::move(owned), runtime.main(), swallow, 0.25);
    ASSERT_TRUE(press(board, with(KEY_A, 1)));
    EXPECT_EQ(closed(kernel, 1), std::vector<std::string>{"/dev/input/event5"});
    EXPECT_TRUE(log->has("could not pass keys on through the twin of /dev/input/event5 (Bad file descriptor); letting go of it"));
    ::close(board.first);
  }
}

TEST(X11KeyGrab, PlayAndPauseAreThePlayKeyAndAKeyHeldElsewhereIsSaidOnceWhileItStaysHeld) {
  test::XvfbDisplay display;
  REQUIRE_RIG(display.available, "no Xvfb with xdotool");
  test::qtApplication();
  test::CapturedLog log;
  auto reported = std::make_shared<std::set<std::string>>();
  auto other = X11KeyGrab::start({[](const MediaKeyEvent&) { return true; }, {}}, display.name.c_str());
  ASSERT_TRUE(other);
  std::vector<MediaKeyEvent> decided;
  const MediaKeySource::Handler record{[&](const MediaKeyEvent& event) { return decided.push_back(event), true; }, {}};
  for (int tick = 0; tick < 3; ++tick) EXPECT_FALSE(X11KeyGrab::start(record, display.name.c_str(), reported));
  other.reset();  // the other program lets go; the server notices when it has read the disconnection
  std::unique_ptr<X11KeyGrab> grab;
  ASSERT_TRUE(test::spinUntil([&] { return (grab = X11KeyGrab::start(record, display.name.c_str(), reported)) != nullptr; }));
  for (const char* name : {"XF86AudioPause", "XF86AudioNext"}) {
    EXPECT_EQ(std::count(log->lines.begin(), log->lines.end(), std::string("media key ") + name + " is held by another program"), 1);
  }
  display.xdotool("key", "XF86AudioPause");
  display.xdotool("key", "XF86AudioPlay");
  ASSERT_TRUE(test::spinUntil([&] { return decided.size() >= 4; }));
  const MediaKeyEvent down{Key::play, true, false}, up{Key::play, false, false};
  EXPECT_EQ(decided, (std::vector<MediaKeyEvent>{down, up, down, up}));
}

}  // namespace
}  // namespace wh::platform
