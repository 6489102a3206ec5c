#pragma once
// The rate control of a gain tap. The tap plays the sound its sink's monitor hands over, at the
// monitor's clock, into an output stream that the output device reads at its own clock; the two
// clocks drift apart, and each side moves sound in pieces of its own period. The control is told
// what the tap sees (pieces from the monitor, the output stream's fill at its low points, the
// stream running dry) and answers what the tap does: the silence the stream starts with, how much
// of a piece to drop, and the rate to play the stream at. Its clock is the count of the monitor's
// frames; it knows nothing of the sound server and is used on the tap's thread alone.

#include <cstdint>
#include <optional>

namespace wh {

class TapRateControl {
 public:
  // How much sound the output stream should hold at its lowest, in seconds, unless runs dry raise it.
  static constexpr double defaultMargin = 0.03;
  // Corrections come each time this much of the monitor's sound has gone through.
  static constexpr double adjustInterval = 0.5;
  // An excess of sound over the margin is worked off at this fraction of itself a second...
  static constexpr double convergeTime = 2.0;
  // ...while the rate also learns the clocks' drift from how long the excess lasts (the integral
  // of the excess, weighted by this time squared); the two together settle on the margin within
  // some ten seconds of a new drift, with little overshoot.
  static constexpr double driftTime = 2.8;
  // The most the rate, and the drift it learns, stray from the nominal one. Real clocks differ by
  // well under a tenth of that; the room above a drift of 0.5 % is for working off its excess.
  static constexpr double maxRateDeviation = 0.01;
  // Each run dry raises the margin by a step up to a limit (a busy machine wakes the server or the
  // tap late); a calm spell of `calmTime` lowers it by a step, no lower than where it began.
  static constexpr double marginStep = 0.005;
  static constexpr double maxMargin = 0.05;
  static constexpr double calmTime = 60.0;
  // Sound beyond this in the output stream is dropped rather than played late: a new tap sink can
  // hand its monitor a burst of up to a second, which the rate would take minutes to work off.
  static constexpr double maxFill = 0.1;
  // A low point this far above the margin is worked off at once, by skipping the excess of the
  // monitor's sound, rather than by the rate over many seconds (an output device that had nothing
  // to play can take a moment to start reading a new stream while the monitor goes on).
  static constexpr double maxExcess = 0.02;

  // `rate`: the stream's nominal frames a second; `margin`: the margin to start with and keep to.
  TapRateControl(std::uint32_t rate, double margin);

  // Frames of silence the output stream starts with, rather than waiting for the rate to build them.
  std::uint64_t startFrames() const { return framesFor(margin_); }
  // A piece of the monitor's sound, while the output stream holds `held` frames as last known:
  // answers how many of its first frames are not played (an excess being skipped, and what would
  // fill the stream beyond `maxFill`).
  std::uint64_t drop(std::uint64_t frames, std::int64_t held);
  // The output stream's fill at a low point, just before a piece arrived, in frames.
  void lowPoint(std::int64_t fill);
  // The output stream ran dry.
  void ranDry();
  // When a correction is due (call after each round of pieces): the rate to set, if it changed.
  std::optional<std::uint32_t> adjust();

  double margin() const { return margin_; }
  std::uint32_t rate() const { return rate_; }
  // Frames the monitor has handed over, and those of them not played.
  std::uint64_t frames() const { return frames_; }
  std::uint64_t dropped() const { return dropped_; }

 private:
  std::uint64_t framesFor(double seconds) const;

  std::uint32_t nominal_;
  double baseMargin_;
  double margin_;
  std::uint32_t rate_;
  double drift_ = 0;  // the learned part of the rate's deviation
  std::uint64_t frames_ = 0, dropped_ = 0;
  std::uint64_t framesAtAdjust_ = 0;
  std::uint64_t calmSince_ = 0;  // frames when the stream last ran dry or its margin last shrank
  std::optional<std::int64_t> lowest_;  // since the last correction
  std::uint64_t skip_ = 0;  // frames still to skip to work off an excess
};

}  // namespace wh
