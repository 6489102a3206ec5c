// The gain mixer on hand-made buffer lists: which input channel feeds each output channel, silence
// rules, and the signal flag.
#include <gtest/gtest.h>

#include <vector>

#include "core/volume/GainMixer.h"

namespace wh {
namespace {

struct Layout {
  std::uint32_t channels, frames;
  bool hasData = true;
};

TEST(GainMixer, EachOutputChannelTakesItsTapChannelTimesTheGainAndTheRestIsSilent) {
  struct Case {
    std::vector<Layout> input, output;
    float gain;
    bool zeros;                  // the application plays digital silence (-0)
    std::vector<int> sourceOf;  // per output channel with data: the input channel it carries, -1 for silence
    bool sawSignal;
    int lone = -1;  // with zeros: the interleaved index of one tiny sample among them
  };
  const std::vector<Case> cases = {
      {{{2, 8}}, {{4, 8}}, 0.5F, false, {0, 1, -1, -1}, true},                // stereo tap, 4-channel device
      {{{2, 8}, {2, 8}}, {{2, 8}}, 1.0F, false, {2, 3}, true},                // sub-device channels come first
      {{{1, 8}}, {{2, 8}}, 1.0F, false, {0, -1}, true},                       // fewer input than tap channels
      {{{2, 8}}, {{1, 8}, {1, 8, false}, {1, 8}}, 1.0F, false, {0, 1}, true},  // split output, one without data
      {{{2, 3}}, {{2, 8}}, 1.0F, false, {0, 1}, true},                        // short input pads with zeros
      {{{2, 8, false}}, {{2, 8}}, 1.0F, false, {-1, -1}, false},              // input without data
      {{{2, 8}}, {{2, 8}}, 0.0F, false, {0, 1}, true},                        // gain 0 still sees the signal
      {{{2, 8}}, {{2, 8}}, 1.0F, true, {0, 1}, false},                        // digital silence sets no flag
      {{{2, 8}}, {{2, 8}, {4, 0}}, 1.0F, false, {0, 1, -1, -1, -1, -1}, true},  // smaller than a frame: untouched
      {{{2, 40}}, {{2, 40}}, 1.0F, true, {0, 1}, true, 3},                     // in a whole block of samples
      {{{2, 40}}, {{2, 40}}, 1.0F, true, {0, 1}, true, 77},                    // in the samples after the blocks
  };
  for (std::size_t n = 0; n < cases.size(); ++n) {
    const Case& test = cases[n];
    const auto sample = [&](int channel, std::uint32_t f) {
      return test.zeros ? (test.lone == int(f) * 2 + channel ? 1e-40F : -0.0F) : float((channel + 1) * 100 + int(f) + 1);
    };
    std::vector<std::vector<float>> storage;  // moving a vector keeps its samples where they are
    std::vector<InputAudioBuffer> input;
    std::vector<AudioBuffer> output;
    int base = 0;
    for (const auto& [channels, frames, hasData] : test.input) {
      auto& samples = storage.emplace_back();
      for (std::uint32_t i = 0; i < channels * frames; ++i) samples.push_back(sample(base + int(i % channels), i / channels));
      input.push_back({channels, channels * frames * 4, hasData ? samples.data() : nullptr});
      base += int(channels);
    }
    for (const auto& [channels, frames, hasData] : test.output) {
      auto& samples = storage.emplace_back(channels * 40, -7.0F);
      output.push_back({channels, channels * frames * 4, hasData ? samples.data() : nullptr});
    }
    GainBox box(test.gain);
    GainMixer::render(input, output, 2, box);

    EXPECT_EQ(box.sawSignal(), test.sawSignal) << "case " << n;
    std::size_t k = 0;
    for (const AudioBuffer& buffer : output) {
      for (std::uint32_t c = 0; buffer.data && c < buffer.channels; ++c, ++k) {
        for (std::uint32_t f = 0; f < 40; ++f) {
          const bool written = f < buffer.byteSize / (buffer.channels * 4), carried = test.sourceOf.at(k) >= 0 &&
                               f < test.input[0].frames && test.input[0].hasData;
          EXPECT_EQ(buffer.data[f * buffer.channels + c], !written ? -7.0F : carried ? sample(test.sourceOf[k], f) * test.gain : 0.0F)
              << "case " << n << ", output " << k << ", frame " << f;
        }
      }
    }
    EXPECT_EQ(k, test.sourceOf.size()) << "case " << n;
  }
}

}  // namespace
}  // namespace wh
