#pragma once
// The rules every music-quality correction follows (moving the default input back, moving the
// headphones back to their music profile): never two within correctionSpacing, a correction asked
// for too soon deferred rather than dropped, and more than maxCorrections within fightWindow taken
// as another program fighting back, after which nothing is corrected until the record is cleared.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "core/runtime/Runtime.h"

namespace wh {

// A fight record: when corrections were made, and whether the corrector has given up for now.
// Times are the runtime clock's monotonic seconds, so a change of the wall clock neither starts
// nor hides a fight.
struct PinPolicy {
  static constexpr double fightWindow = 10.0;
  // More corrections than this within the window is a fight: the sixth one is not made.
  static constexpr std::size_t maxCorrections = 5;

  std::vector<double> corrections;  // oldest first
  bool isFighting = false;

  // Forgets corrections more than fightWindow old, records one at `now` and answers whether that
  // makes a fight (and then sets isFighting).
  bool record(double now);
  void reset() { *this = PinPolicy{}; }
};

class CorrectionPacer {
 public:
  // Corrections are never closer together than this.
  static constexpr double correctionSpacing = 0.3;

  enum class Verdict {
    go,        // correct now: the correction is on the record
    deferred,  // too soon: the retry runs when the spacing ends
    fighting,  // a fight, begun now (logged with the fight line, once) or earlier
  };

  CorrectionPacer(Runtime& runtime, std::string fightLine) : runtime_(runtime), fightLine_(std::move(fightLine)) {}

  // Asks to correct now. A deferred request replaces the retry waiting before it; the owner
  // guards `retry` with its own Lifetime.
  Verdict request(std::function<void()> retry);

  const PinPolicy& policy() const { return policy_; }
  // Forgets every correction and ends a fight; a waiting retry is dropped.
  void reset();

 private:
  Runtime& runtime_;
  std::string fightLine_;
  PinPolicy policy_;
  HeldWork retryWork_;
};

}  // namespace wh
