#include "core/volume/GainMixer.h"

namespace wh::GainMixer {

namespace {

constexpr std::uint32_t sampleBytes = sizeof(float);

// Where one input channel's samples are: a stride walk through one buffer.
struct Source {
  const float* samples = nullptr;
  std::uint32_t stride = 1;
  std::uint32_t frames = 0;
};

Source findSource(std::span<const InputAudioBuffer> input, std::uint32_t channel, std::uint32_t maxFrames) {
  for (const InputAudioBuffer& buffer : input) {
    if (channel < buffer.channels) {
      if (buffer.data == nullptr) return {};
      const std::uint32_t frames = buffer.byteSize / (buffer.channels * sampleBytes);
      return {buffer.data + channel, buffer.channels, frames < maxFrames ? frames : maxFrames};
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
      // The usual case: the buffer's channels come in the same interleaved layout from one input
      // buffer, so one flat loop does them all.
      const Source first = findSource(input, skip + base, frames);
      if (first.samples != nullptr && first.stride == channels &&
          findSource(input, skip + base + channels - 1, frames).samples == first.samples + channels - 1) {
        const std::uint32_t carried = first.frames * channels;
        std::uint32_t nonZero = 0;
        for (std::uint32_t i = 0; i < carried; ++i) {
          nonZero |= static_cast<std::uint32_t>(first.samples[i] != 0.0F);
          buffer.data[i] = first.samples[i] * gain;
        }
        for (std::uint32_t i = carried; i < frames * channels; ++i) buffer.data[i] = 0.0F;
        signal |= nonZero != 0;
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
