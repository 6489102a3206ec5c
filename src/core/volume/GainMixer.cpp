#include "core/volume/GainMixer.h"

#include <bit>

namespace wh::GainMixer {

namespace {

constexpr std::uint32_t sampleBytes = sizeof(float);

// On x86-64 the kernel below is built twice, for the baseline's 16-byte vectors and for AVX2's
// 32-byte ones, and the loader picks the one the processor runs (GCC's function multiversioning).
// Other compilers and processors build the portable loop alone.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define WH_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define WH_VECTOR_CLONES
#endif

// Where one input channel's samples are: a stride walk through one buffer.
struct Source {
  const float* samples = nullptr;
  std::uint32_t stride = 1;
  std::uint32_t frames = 0;
  std::uint32_t offset = 0;  // the channel's place within its buffer
};

// Writes `count` samples times the gain and tells whether any of them is not exactly zero, judged
// before the gain. Works in blocks of fixed size, which the compiler turns into straight vector
// code: first an OR of the block's bit patterns into a few lanes (the zero test: only +0 and -0
// have no bits left once the sign bit is dropped), then the multiply, so that the test sees the
// input even when the output is the same buffer. The lanes are folded once, at the end.
WH_VECTOR_CLONES bool scale(const float* in, float* out, std::uint32_t count, float gain) {
  constexpr std::uint32_t blockSamples = 64, laneCount = 8, allButSign = 0x7fff'ffffU;
  std::uint32_t lanes[laneCount] = {};
  std::uint32_t done = 0;
  for (; count - done >= blockSamples; done += blockSamples) {
    const float* blockIn = in + done;
    float* blockOut = out + done;
    for (std::uint32_t i = 0; i < blockSamples; i += laneCount) {
      for (std::uint32_t lane = 0; lane < laneCount; ++lane) {
        lanes[lane] |= std::bit_cast<std::uint32_t>(blockIn[i + lane]);
      }
    }
    for (std::uint32_t i = 0; i < blockSamples; ++i) blockOut[i] = blockIn[i] * gain;
  }
  std::uint32_t bits = 0;
  for (const std::uint32_t lane : lanes) bits |= lane;
  for (; done < count; ++done) {
    bits |= std::bit_cast<std::uint32_t>(in[done]);
    out[done] = in[done] * gain;
  }
  return (bits & allButSign) != 0;
}

Source findSource(std::span<const InputAudioBuffer> input, std::uint32_t channel, std::uint32_t maxFrames) {
  for (const InputAudioBuffer& buffer : input) {
    if (channel < buffer.channels) {
      if (buffer.data == nullptr) return {};
      const std::uint32_t frames = buffer.byteSize / (buffer.channels * sampleBytes);
      return {buffer.data + channel, buffer.channels, frames < maxFrames ? frames : maxFrames, channel};
    }
    channel -= buffer.channels;
  }
  return {};
}

}  // namespace

void render(std::span<const InputAudioBuffer> input, std::span<const AudioBuffer> output, std::uint32_t tapChannels,
            GainBox& box) {
  const float gain = box.gain();
  std::uint32_t inputChannels = 0;
  for (const InputAudioBuffer& buffer : input) inputChannels += buffer.channels;
  const std::uint32_t skip = inputChannels > tapChannels ? inputChannels - tapChannels : 0;

  bool signal = false;
  std::uint32_t base = 0;
  for (const AudioBuffer& buffer : output) {
    if (buffer.data == nullptr) continue;
    const std::uint32_t channels = buffer.channels > 0 ? buffer.channels : 1;
    const std::uint32_t frames = buffer.byteSize / (channels * sampleBytes);
    if (frames > 0 && base + channels <= tapChannels) {
      // The usual case: the buffer's channels are all of one input buffer's channels, interleaved
      // the same way, so one flat loop does them all.
      const Source first = findSource(input, skip + base, frames);
      if (first.samples != nullptr && first.offset == 0 && first.stride == channels) {
        const std::uint32_t carried = first.frames * channels;
        signal |= scale(first.samples, buffer.data, carried, gain);
        for (std::uint32_t i = carried; i < frames * channels; ++i) buffer.data[i] = 0.0F;
        base += channels;
        continue;
      }
    }
    for (std::uint32_t c = 0; c < channels && frames > 0; ++c) {
      const std::uint32_t k = base + c;
      const Source source = k < tapChannels ? findSource(input, skip + k, frames) : Source{};
      float* out = buffer.data + c;
      for (std::uint32_t f = 0; f < frames; ++f) {
        const float sample = f < source.frames ? source.samples[f * source.stride] : 0.0F;
        signal |= sample != 0.0F;
        out[f * channels] = sample * gain;
      }
    }
    base += channels;
  }
  if (signal) box.markSignal();
}

}  // namespace wh::GainMixer
