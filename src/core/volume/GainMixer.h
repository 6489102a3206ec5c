#pragma once
// The gain applied to a tapped application's sound, inside the real-time audio callback. The
// callback and the controller share only a GainBox, read and written without a lock.

#include <atomic>
#include <cstdint>
#include <span>

namespace wh {

// The gain a running tap applies and whether its input ever carried sound. Both are single machine
// words written whole; the audio callback never waits for the controller.
class GainBox {
 public:
  explicit GainBox(float gain = 1.0F) : gain_(gain) {}
  GainBox(const GainBox&) = delete;
  GainBox& operator=(const GainBox&) = delete;

  float gain() const { return gain_.load(std::memory_order_relaxed); }
  void setGain(float gain) { gain_.store(gain, std::memory_order_relaxed); }
  bool sawSignal() const { return sawSignal_.load(std::memory_order_relaxed); }
  void markSignal() { sawSignal_.store(true, std::memory_order_relaxed); }

 private:
  std::atomic<float> gain_;
  std::atomic<bool> sawSignal_{false};
  static_assert(std::atomic<float>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
};

// One buffer of interleaved 32-bit float samples. `data` may be null (a buffer without data).
template <class Sample>
struct BasicAudioBuffer {
  std::uint32_t channels = 0;
  std::uint32_t byteSize = 0;
  Sample* data = nullptr;
};
using AudioBuffer = BasicAudioBuffer<float>;
using InputAudioBuffer = BasicAudioBuffer<const float>;

namespace GainMixer {

// Copies the tap's channels, the last `tapChannels` of the input, to the output channels in order,
// multiplied by the box's gain (read once); output channels beyond the tap's are silent. Sets the
// box's signal flag when any input sample is not exactly zero, before the gain. No allocation, no
// lock.
void render(std::span<const InputAudioBuffer> input, std::span<const AudioBuffer> output, std::uint32_t tapChannels,
            GainBox& box);

}  // namespace GainMixer

}  // namespace wh
