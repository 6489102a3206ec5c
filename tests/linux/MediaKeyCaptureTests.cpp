// The kernel reader's event flow on descriptors that carry real input_event records.
#include <gtest/gtest.h>

#include <linux/input.h>
#include <poll.h>

#include "QtLoop.h"
#include "doubles/PipeKernelInput.h"
#include "platform/linux/mediakeys/EvdevCapture.h"
#include "platform/linux/runtime/QtRuntime.h"

namespace wh::platform {
namespace {

using Key = MediaKeyEvent::Key;
using Records = std::vector<std::tuple<int, int, int>>;  // type, code, value

// Writes the records, then collects up to `count` records let through, running the main loop if asked.
Records through(std::pair<int, int> board, const Records& in, std::size_t count, bool runMainLoop) {
  for (const auto& [type, code, value] : in) {
    const input_event record{{0, 0}, static_cast<__u16>(type), static_cast<__u16>(code), value};
    if (::write(board.first, &record, sizeof record) != sizeof record) return {};
  }
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
  auto with = [&](int code, int value) { return Records{{EV_KEY, code, value}, syn[0]}; };  // a key and its report
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

}  // namespace
}  // namespace wh::platform
