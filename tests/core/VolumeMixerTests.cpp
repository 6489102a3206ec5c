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
    bool zeros;                  // the application plays digital silence
    std::vector<int> sourceOf;  // per output channel with data: the input channel it carries, -1 for silence
    bool sawSignal;
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
  };
  for (std::size_t n = 0; n < cases.size(); ++n) {
    const Case& test = cases[n];
    std::vector<std::vector<float>> storage(test.input.size() + test.output.size());
    std::vector<InputAudioBuffer> input;
    std::vector<AudioBuffer> output;
    auto sample = [&](int channel, std::uint32_t f) { return test.zeros ? 0.0F : float((channel + 1) * 100 + int(f) + 1); };
    int base = 0;
    for (std::size_t b = 0; b < test.input.size(); base += int(test.input[b++].channels)) {
      const auto [channels, frames, hasData] = test.input[b];
      for (std::uint32_t i = 0; i < channels * frames; ++i) storage[b].push_back(sample(base + int(i % channels), i / channels));
      input.push_back({channels, channels * frames * 4, hasData ? storage[b].data() : nullptr});
    }
    for (std::size_t b = 0; b < test.output.size(); ++b) {
      auto& samples = storage[test.input.size() + b] = std::vector<float>(test.output[b].channels * 8, -7.0F);
      output.push_back({test.output[b].channels, test.output[b].channels * test.output[b].frames * 4,
                        test.output[b].hasData ? samples.data() : nullptr});
    }
    GainBox box(test.gain);
    GainMixer::render(input, output, 2, box);

    EXPECT_EQ(box.sawSignal(), test.sawSignal) << "case " << n;
    std::size_t k = 0;
    for (const AudioBuffer& buffer : output) {
      for (std::uint32_t c = 0; buffer.data && c < buffer.channels; ++c, ++k) {
        const int source = test.sourceOf.at(k);
        for (std::uint32_t f = 0; f < 8 && buffer.byteSize == 0; ++f) EXPECT_EQ(buffer.data[f * buffer.channels + c], -7.0F);
        for (std::uint32_t f = 0; f < buffer.byteSize / (buffer.channels * 4); ++f) {
          const bool carried = source >= 0 && f < test.input[0].frames && test.input[0].hasData;
          EXPECT_EQ(buffer.data[f * buffer.channels + c], carried ? sample(source, f) * test.gain : 0.0F)
              << "case " << n << ", output " << k << ", frame " << f;
        }
      }
    }
    EXPECT_EQ(k, test.sourceOf.size()) << "case " << n;
  }
}

}  // namespace
}  // namespace wh
