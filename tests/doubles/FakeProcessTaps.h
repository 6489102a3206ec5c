#pragma once
// Taps held in memory: every build is recorded, can be made to fail, and each tap counts its stops.

#include <memory>
#include <optional>
#include <vector>

#include "core/volume/ProcessTap.h"

namespace wh {

class FakeProcessTap final : public ProcessTap {
 public:
  explicit FakeProcessTap(const Request& made) : ProcessTap(made), request(made) {}
  void stop() override { ++stops; }
  Request request;
  int stops = 0;
};

class FakeProcessTaps final : public ProcessTaps {
 public:
  std::optional<ProcessTap::Failure> failNext;
  std::vector<std::shared_ptr<FakeProcessTap>> built;
  int cleanUps = 0;
  void removeLeftovers() override { ++cleanUps; }
  Result build(const ProcessTap::Request& request) override {
    if (failNext) return *std::exchange(failNext, std::nullopt);
    return built.emplace_back(std::make_shared<FakeProcessTap>(request));
  }
};

}  // namespace wh
