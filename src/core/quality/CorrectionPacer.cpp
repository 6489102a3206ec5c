#include "core/quality/CorrectionPacer.h"

#include "core/log/Log.h"

namespace wh {

namespace {

// A retry lands on the moment the spacing ends; rounding may put that a hair before it. A
// correction that early counts as on time, so a retry never defers itself again.
constexpr double spacingTolerance = 1e-6;

}  // namespace

bool PinPolicy::record(double now) {
  std::erase_if(corrections, [now](double at) { return now - at > fightWindow; });
  corrections.push_back(now);
  if (corrections.size() > maxCorrections) isFighting = true;
  return isFighting;
}

CorrectionPacer::Verdict CorrectionPacer::request(std::function<void()> retry) {
  if (policy_.isFighting) return Verdict::fighting;
  const double now = runtime_.clock().now();
  if (!policy_.corrections.empty()) {
    const double elapsed = now - policy_.corrections.back();
    if (elapsed < correctionSpacing - spacingTolerance) {
      retryWork_ = runtime_.main().after(correctionSpacing - elapsed, std::move(retry));
      return Verdict::deferred;
    }
  }
  if (!policy_.record(now)) return Verdict::go;
  Log::info(fightLine_);
  return Verdict::fighting;
}

void CorrectionPacer::reset() {
  policy_.reset();
  retryWork_.cancel();
}

}  // namespace wh
