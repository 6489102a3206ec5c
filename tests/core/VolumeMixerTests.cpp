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
    const char* what;
    std::vector<Layout> input, output;
    std::uint32_t tapChannels;
    float gain;
    bool zeros;                   // the application plays digital silence
    std::vector<int> sourceOf;   // per output channel with data: the input channel it carries, -1 for silence
    bool sawSignal;
  };
  const std::vector<Case> cases = {
      {"stereo tap to a 4-channel device", {{2, 8}}, {{4, 8}}, 2, 0.5F, false, {0, 1, -1, -1}, true},
      {"sub-device channels come first", {{2, 8}, {2, 8}}, {{2, 8}}, 2, 1.0F, false, {2, 3}, true},
      {"more tap than input channels", {{1, 8}}, {{2, 8}}, 2, 1.0F, false, {0, -1}, true},
      {"split output, one without data", {{2, 8}}, {{1, 8}, {1, 8, false}, {1, 8}}, 2, 1.0F, false, {0, 1}, true},
      {"short input pads with zeros", {{2, 3}}, {{2, 8}}, 2, 1.0F, false, {0, 1}, true},
      {"input without data", {{2, 8, false}}, {{2, 8}}, 2, 1.0F, false, {-1, -1}, false},
      {"gain 0 still sees the signal", {{2, 8}}, {{2, 8}}, 2, 0.0F, false, {0, 1}, true},
      {"digital silence sets no flag", {{2, 8}}, {{2, 8}}, 2, 1.0F, true, {0, 1}, false},
  };
  for (const Case& test : cases) {
    std::vector<std::vector<float>> storage;
    std::vector<InputAudioBuffer> input;
    std::vector<AudioBuffer> output;
    int channel = 0;
    for (const Layout& layout : test.input) {
      auto& samples = storage.emplace_back(layout.channels * layout.frames);
      for (std::uint32_t i = 0; i < samples.size(); ++i) {
        samples[i] = test.zeros ? 0.0F : static_cast<float>((channel + int(i % layout.channels) + 1) * 100 + int(i / layout.channels) + 1);
      }
      input.push_back({layout.channels, layout.channels * layout.frames * 4, layout.hasData ? samples.data() : nullptr});
      channel += int(layout.channels);
    }
    for (const Layout& layout : test.output) {
      auto& samples = storage.emplace_back(layout.channels * layout.frames, -7.0F);
      output.push_back({layout.channels, layout.channels * layout.frames * 4, layout.hasData ? samples.data() : nullptr});
    }
    GainBox box(test.gain);
    GainMixer::render(input, output, test.tapChannels, box);

    EXPECT_EQ(box.sawSignal(), test.sawSignal) << test.what;
    std::size_t k = 0;
    for (const AudioBuffer& buffer : output) {
      if (buffer.data == nullptr) continue;
      for (std::uint32_t c = 0; c < buffer.channels; ++c, ++k) {
        const int source = test.sourceOf.at(k);
        const std::uint32_t sourceFrames = test.input[0].frames;  // every case's input buffers share a length
        for (std::uint32_t f = 0; f < buffer.byteSize / (buffer.channels * 4); ++f) {
          const bool carried = source >= 0 && f < sourceFrames && test.input[0].hasData && !test.zeros;
          const float expected = carried ? float((source + 1) * 100 + int(f) + 1) * test.gain : 0.0F;
          EXPECT_EQ(buffer.data[f * buffer.channels + c], expected) << test.what << ", output " << k << ", frame " << f;
        }
      }
    }
    EXPECT_EQ(k, test.sourceOf.size()) << test.what;
  }
}

TEST(GainMixer, AnOutputBufferSmallerThanOneFrameIsLeftUntouched) {
  std::vector<float> in(4, 1.0F), out(2, -7.0F);
  std::vector<InputAudioBuffer> input{{2, 16, in.data()}};
  std::vector<AudioBuffer> output{{4, 8, out.data()}};
  GainBox box(0.5F);
  GainMixer::render(input, output, 2, box);
  EXPECT_EQ(out, std::vector<float>(2, -7.0F));
}

}  // namespace
}  // namespace wh
