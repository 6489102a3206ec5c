#pragma once
// One application's sound taken over by the agent: its playback goes only through the tap, which
// either plays nothing (mute) or plays it to an output device through the gain mixer (gain). The
// platform builds taps through the ProcessTaps port; the app volume controller keeps them.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/audio/AudioHardware.h"
#include "core/volume/GainMixer.h"

namespace wh {

class ProcessTap {
 public:
  enum class Mode { mute, gain };

  // A failed build, with the sound server's status code of the step that failed.
  struct Failure {
    enum class Step { tap, aggregate, io };
    Step step = Step::tap;
    std::int32_t status = 0;
    bool operator==(const Failure&) const = default;
  };
  // The status of a gain tap without an output device to play to ("!dev").
  static constexpr std::int32_t badDeviceStatus = static_cast<std::int32_t>(fourCharCode("!dev"));

  // What to build: the application, all of its audio process objects, the mode, the output
  // device's uid (gain taps play there) and the starting gain. `lostHold` is called at most once,
  // from any thread (also during the build), when the tap finds that it cannot keep all of the
  // application's sound: something it cannot stop keeps taking a stream away, or the server
  // refuses to move a stream. The tap keeps what it still holds.
  struct Request {
    std::string bundleID;
    std::vector<AudioObjectID> processes;
    Mode mode = Mode::mute;
    std::optional<std::string> outputUID;
    float gain = 1.0F;
    std::function<void()> lostHold;
  };

  explicit ProcessTap(const Request& request) : box_(request.gain) {}
  virtual ~ProcessTap() = default;
  ProcessTap(const ProcessTap&) = delete;
  ProcessTap& operator=(const ProcessTap&) = delete;

  // Tears everything down and gives the application its direct output back. Safe to call more
  // than once. Blocking: called on the controller's tap queue.
  virtual void stop() = 0;

  // Shared with the audio thread: the gain of a running gain tap, and whether sound came through.
  GainBox& box() { return box_; }

 private:
  GainBox box_;
};

// Port: builds taps. Blocking: called on the controller's tap queue. A failed build leaves
// nothing behind.
class ProcessTaps {
 public:
  using Result = std::variant<std::shared_ptr<ProcessTap>, ProcessTap::Failure>;
  virtual ~ProcessTaps() = default;
  virtual Result build(const ProcessTap::Request& request) = 0;
  // Undoes what taps of an agent that ended without stopping them left behind, so that every
  // application plays directly again. Runs before the first build.
  virtual void removeLeftovers() = 0;
};

}  // namespace wh
