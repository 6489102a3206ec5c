#pragma once
// Joins the two rigs the way a real system is joined: when the mock headphones connect on the
// private system bus, their sink and source appear in the private PulseAudio daemon (after a
// delay, as the real audio nodes do), and when they disconnect, the nodes go away.

#include <memory>
#include <optional>
#include <string>

#include "support/ChildProcess.h"
#include "support/PulseRig.h"
#include "support/SystemBusRig.h"

namespace wh::test {

class AudioBridge {
 public:
  // `delaySeconds` after a connection the nodes appear; a negative delay means never.
  AudioBridge(const SystemBusRig& bus, const PulseRig& pulse, double delaySeconds);
  ~AudioBridge();

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // What the bridge did so far: "appeared AA:BB:… <monotonic seconds>" and "vanished AA:BB:…" lines.
  const std::string& output() { return process_->output(); }
  // The monotonic time (CLOCK_MONOTONIC seconds) at which the headphones' nodes last appeared.
  std::optional<double> appearedAt();

 private:
  std::unique_ptr<ChildProcess> process_;
  std::string whyNot_;
};

}  // namespace wh::test
