// The gain tap's rate control on a simulated line: a monitor handing over 5 ms pieces at its own
// clock, the control deciding what is played into the output stream and at which rate, and an
// output device reading the stream in periods of its own clock (times in microseconds).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/volume/TapRateControl.h"

namespace wh {
namespace {

constexpr std::uint32_t nominal = 48000;
constexpr std::int64_t piece = 240;   // the monitor's 5 ms
constexpr std::int64_t prebuf = 480;  // a stream plays from 10 ms on, also after it ran dry
constexpr std::int64_t second = 1000000;
constexpr double margin = TapRateControl::defaultMargin;

struct Setup {
  double drift = 0;                    // the monitor's clock against the device's: +0.005 is 0.5 % faster
  std::int64_t period = 256;           // frames the device reads at a time
  std::int64_t burst = 0;              // frames the monitor hands over at once at the start
  std::int64_t deviceStart = 0;        // when the device starts reading
  std::vector<std::int64_t> pauses{};  // when the whole server stops, for `pauseLength`; then the
  std::int64_t pauseLength = 0;        // device catches up before the monitor's pieces come
};

class Line {
 public:
  explicit Line(Setup setup, double base = margin) : setup_(std::move(setup)), control(nominal, base) {}

  // Runs both clocks up to `until`; the device goes first at equal times.
  void run(std::int64_t until) {
    for (;;) {
      const auto monitorAt = delayed(std::int64_t(double(pieces_ * piece * second) / nominal / (1 + setup_.drift)));
      const auto deviceAt = delayed(setup_.deviceStart + periods_ * setup_.period * second / nominal);
      now_ = std::min(monitorAt, deviceAt);
      if (now_ > until) return;
      deviceAt <= monitorAt ? read() : pump();
    }
  }

  // The lowest and highest low point between two times, in seconds.
  std::pair<double, double> lowPoints(std::int64_t from, std::int64_t to) const {
    std::pair<double, double> span{1e9, -1e9};
    for (const auto& [at, fill] : lowPoints_) {
      if (at >= from && at <= to) span = {std::min(span.first, fill), std::max(span.second, fill)};
    }
    return span;
  }

  Setup setup_;
  TapRateControl control;
  std::vector<std::int64_t> dry;  // when the stream ran dry
  double mostHeld = 0;            // seconds

 private:
  std::int64_t delayed(std::int64_t at) const {
    for (const std::int64_t pause : setup_.pauses) {
      if (at >= pause && at < pause + setup_.pauseLength) return pause + setup_.pauseLength;
    }
    return at;
  }

  // What the tap does with a piece of the monitor's sound; the server answers its fill at once.
  void pump() {
    if (pieces_++ == 0) written_ += std::int64_t(control.startFrames());
    const std::int64_t frames = piece + (pieces_ == 1 ? setup_.burst : 0);
    const auto played = frames - std::int64_t(control.drop(std::uint64_t(frames), written_ - read_));
    written_ += played;
    mostHeld = std::max(mostHeld, double(written_ - read_) / nominal);
    control.lowPoint(written_ - read_ - played);
    lowPoints_.emplace_back(now_, double(written_ - read_ - played) / nominal);
    if (const auto rate = control.adjust()) rate_ = *rate;
  }

  void read() {
    ++periods_;
    owed_ += double(setup_.period) * rate_ / nominal;
    const auto frames = std::int64_t(owed_);
    owed_ -= double(frames);
    if (stalled_ && written_ - read_ < prebuf) return;
    stalled_ = written_ - read_ < frames;
    if (stalled_) {
      dry.push_back(now_);
      control.ranDry();
    }
    read_ = std::min(written_, read_ + frames);
  }

  std::int64_t now_ = 0, pieces_ = 0, periods_ = 0, written_ = 0, read_ = 0;
  double owed_ = 0;
  std::uint32_t rate_ = nominal;
  bool stalled_ = true;
  std::vector<std::pair<std::int64_t, double>> lowPoints_;
};

TEST(TapRateControl, ADriftOfHalfAPercentEitherWaySettlesOnTheMarginWithoutDropsOrRunsDry) {
  struct Case {
    double drift;
    std::int64_t period;
  };
  // Device periods of 5.3 ms, and 21.3 ms as PipeWire's in a virtual machine.
  for (const Case test : {Case{0.005, 256}, Case{-0.005, 256}, Case{0.005, 1024}, Case{-0.005, 1024}, Case{0, 1024}}) {
    SCOPED_TRACE(testing::Message() << "drift " << test.drift << ", device period " << test.period);
    Line line({.drift = test.drift, .period = test.period});
    line.run(300 * second);
    EXPECT_TRUE(line.dry.empty());
    EXPECT_EQ(line.control.dropped(), 0U);
    const auto [lowest, highest] = line.lowPoints(60 * second, 300 * second);
    EXPECT_NEAR(lowest, margin, 0.004);
    EXPECT_LT(highest, margin + 0.004 + double(test.period) / nominal);
  }
}

TEST(TapRateControl, APauseOfTheWholeServerRaisesTheMarginByItsRunsDryAndACalmMinuteLowersIt) {
  struct Case {
    double margin;
    std::int64_t pauseLength;
    std::vector<std::int64_t> pauses;
    double raised;  // the margin after the pauses: one step for each run dry, up to the limit
  };
  const std::vector<Case> cases = {
      {0.03, 25000, {20 * second}, 0.03},                        // the margin covers it
      {0.02, 25000, {20 * second}, 0.025},                       // too short: it runs dry once
      {0.02, 40000, {20 * second, 30 * second}, 0.03},           // twice
      {0.045, 70000, {20 * second, 30 * second}, TapRateControl::maxMargin},  // up to the limit
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(testing::Message() << "margin " << test.margin << ", pauses of " << test.pauseLength << " us");
    Line line({.drift = 0.002, .pauses = test.pauses, .pauseLength = test.pauseLength}, test.margin);
    const std::int64_t last = test.pauses.back() + test.pauseLength;
    line.run(last + second);
    EXPECT_NEAR(line.control.margin(), test.raised, 1e-9);
    // A step down after each calm minute from the last run dry on, back to where it began.
    std::int64_t calm = line.dry.empty() ? last : line.dry.back();
    const auto minute = std::int64_t(TapRateControl::calmTime * second);
    for (double raised = test.raised; raised > test.margin + 1e-9; raised -= TapRateControl::marginStep) {
      line.run(calm + minute - second);
      EXPECT_NEAR(line.control.margin(), raised, 1e-9);
      line.run(calm + minute + second);
      EXPECT_NEAR(line.control.margin(), raised - TapRateControl::marginStep, 1e-9);
      calm += minute;
    }
    line.run(last + 300 * second);
    EXPECT_NEAR(line.control.margin(), test.margin, 1e-9);
    // It ran dry only as a pause ended, and not again after it.
    const auto raises = std::size_t(std::lround((test.raised - test.margin) / TapRateControl::marginStep));
    EXPECT_GE(line.dry.size(), raises);
    EXPECT_LE(line.dry.size(), test.pauses.size());
    for (const std::int64_t at : line.dry) {
      EXPECT_EQ(std::count(test.pauses.begin(), test.pauses.end(), at - test.pauseLength), 1) << at;
    }
  }
}

TEST(TapRateControl, ABurstAtTheStartIsSkippedAtTheNextCorrectionNotPlayedLate) {
  struct Case {
    std::int64_t burst, deviceStart;
  };
  // PulseAudio's new null sink renders a second ahead; an idle output device can start reading late.
  for (const Case test : {Case{nominal, 0}, Case{nominal, 2 * second}, Case{nominal / 10, 0}}) {
    SCOPED_TRACE(testing::Message() << "burst " << test.burst << ", device from " << test.deviceStart << " us");
    Line line({.drift = -0.002, .burst = test.burst, .deviceStart = test.deviceStart});
    line.run(test.deviceStart + 60 * second);
    EXPECT_TRUE(line.dry.empty());
    EXPECT_LE(line.mostHeld, TapRateControl::maxFill);
    // Two corrections after the device starts: the first round's low point is the start's silence.
    const auto from = test.deviceStart + std::int64_t(3 * TapRateControl::adjustInterval * second);
    const auto [lowest, highest] = line.lowPoints(from, test.deviceStart + 60 * second);
    EXPECT_NEAR(lowest, margin, 0.005);
    EXPECT_LT(highest, margin + 0.012);
  }
}

}  // namespace
}  // namespace wh
