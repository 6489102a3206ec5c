#pragma once
// Taps held in memory: every build is recorded, can be made to fail or to lose its hold, and each
// tap counts its stops.

#include <memory>
#include <optional>
#include <vector>

#include "core/volume/ProcessTap.h"

namespace wh {

class FakeProcessTap final : public ProcessTap {
 public:
  explicit FakeProcessTap(const Request& made) : ProcessTap(made), request(made) {}
  void stop() override { ++stops; }
  // As a real tap does when something keeps taking the app's sound away.
  void loseHold() const { request.lostHold(); }
  Request request;
  int stops = 0;
};

class FakeProcessTaps final : public ProcessTaps {
 public:
  std::optional<ProcessTap::Failure> failNext;
  bool loseNext = false;  // the next build loses its hold while it is being built
  std::vector<std::shared_ptr<FakeProcessTap>> built;
  int cleanUps = 0;
  void removeLeftovers() override { ++cleanUps; }
  Result build(const ProcessTap::Request& request) override {
    if (failNext) return *std::exchange(failNext, std::nullopt);
    auto& tap = built.emplace_back(std::make_shared<FakeProcessTap>(request));
    if (std::exchange(loseNext, false)) tap->loseHold();
    return tap;
  }
};

}  // namespace wh
