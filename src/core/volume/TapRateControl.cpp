#include "core/volume/TapRateControl.h"

#include <algorithm>

namespace wh {

TapRateControl::TapRateControl(std::uint32_t rate, double margin)
    : nominal_(rate), baseMargin_(margin), margin_(margin), rate_(rate) {}

std::uint64_t TapRateControl::framesFor(double seconds) const {
  return static_cast<std::uint64_t>(std::max(0.0, seconds) * nominal_);
}

std::uint64_t TapRateControl::drop(std::uint64_t frames, std::int64_t held) {
  const std::uint64_t skipped = std::min(skip_, frames);
  skip_ -= skipped;
  const std::int64_t room = std::max<std::int64_t>(0, static_cast<std::int64_t>(framesFor(maxFill)) - held);
  const std::uint64_t dropped = frames - std::min(frames - skipped, static_cast<std::uint64_t>(room));
  frames_ += frames;
  dropped_ += dropped;
  return dropped;
}

void TapRateControl::lowPoint(std::int64_t fill) { lowest_ = std::min(lowest_.value_or(fill), fill); }

void TapRateControl::ranDry() {
  margin_ = std::max(margin_, std::min(margin_ + marginStep, maxMargin));
  calmSince_ = frames_;
}

// The output device and the tap sink keep different clocks: play the output stream a little
// faster while its lowest fill stays above the margin, a little slower while it dips below.
std::optional<std::uint32_t> TapRateControl::adjust() {
  if (static_cast<double>(frames_ - framesAtAdjust_) < adjustInterval * nominal_) return std::nullopt;
  framesAtAdjust_ = frames_;
  if (margin_ > baseMargin_ && static_cast<double>(frames_ - calmSince_) >= calmTime * nominal_) {
    margin_ = std::max(baseMargin_, margin_ - marginStep);
    calmSince_ = frames_;
  }
  const auto lowest = lowest_;
  lowest_.reset();
  if (!lowest) return std::nullopt;
  const double excess = static_cast<double>(*lowest) / nominal_ - margin_;
  if (excess > maxExcess) {
    skip_ = framesFor(excess);
    return std::nullopt;
  }
  drift_ = std::clamp(drift_ + excess * adjustInterval / (driftTime * driftTime), -maxRateDeviation, maxRateDeviation);
  const double deviation = std::clamp(drift_ + excess / convergeTime, -maxRateDeviation, maxRateDeviation);
  const auto rate = static_cast<std::uint32_t>(nominal_ * (1.0 + deviation) + 0.5);
  if (rate == rate_) return std::nullopt;
  rate_ = rate;
  return rate;
}

}  // namespace wh
