#pragma once
// Joins the two rigs the way a real system is joined: `delaySeconds` after the mock headphones
// connect on the private system bus (never if negative), their sink and source appear on the
// private sound server, as the real audio nodes do; when they disconnect, the nodes go away.

#include <memory>
#include <optional>
#include <string>

#include "support/ChildProcess.h"
#include "support/PulseRig.h"
#include "support/SystemBusRig.h"

namespace wh::test {

class AudioBridge {
 public:
  AudioBridge(const SystemBusRig& bus, const PulseRig& pulse, double delaySeconds);
  ~AudioBridge();

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // What it did so far ("appeared AA:BB:… <seconds>", "vanished AA:BB:…"), and when the nodes
  // last appeared (CLOCK_MONOTONIC seconds).
  const std::string& output() { return process_->output(); }
  std::optional<double> appearedAt();

 private:
  std::unique_ptr<ChildProcess> process_;
  std::string whyNot_;
};

}  // namespace wh::test
