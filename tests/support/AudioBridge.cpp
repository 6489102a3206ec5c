#include "support/AudioBridge.h"

#include <sstream>

namespace wh::test {

AudioBridge::AudioBridge(const SystemBusRig& bus, const PulseRig& pulse, double delaySeconds) {
  if (!bus.available() || !pulse.available()) {
    whyNot_ = "the rigs it joins did not start";
    return;
  }
  process_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/usr/bin/python3", WRENHAVEN_AUDIO_BRIDGE, bus.systemBusAddress(),
                               std::to_string(delaySeconds)},
      pulse.clientEnvironment());
  if (!process_->waitForOutput("ready\n", std::chrono::seconds(15))) {
    whyNot_ = "the audio bridge did not start: " + process_->output();
  }
}

AudioBridge::~AudioBridge() = default;

std::optional<double> AudioBridge::appearedAt() {
  const std::string& text = output();
  const auto at = text.rfind("appeared ");
  if (at == std::string::npos) return std::nullopt;
  std::istringstream line(text.substr(at, text.find('\n', at) - at));
  std::string word, address;
  double seconds = 0;
  line >> word >> address >> seconds;
  return seconds;
}

}  // namespace wh::test
