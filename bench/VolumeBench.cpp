#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "core/volume/GainMixer.h"

// The gain mixer's cost per cycle against copying the same buffer: a stereo tap of 512 frames
// (about 10 ms at 48 kHz) to a stereo output.

namespace {

using namespace wh;

constexpr std::uint32_t frames = 512, channels = 2, bytes = frames * channels * sizeof(float);

void BM_GainMixerRender(benchmark::State& state) {
  std::vector<float> in(frames * channels, 0.25F), out(frames * channels);
  const InputAudioBuffer input{channels, bytes, in.data()};
  const AudioBuffer output{channels, bytes, out.data()};
  GainBox box(0.5F);
  for (auto _ : state) {
    GainMixer::render({&input, 1}, {&output, 1}, channels, box);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}
BENCHMARK(BM_GainMixerRender);

void BM_MemcpySameBuffer(benchmark::State& state) {
  std::vector<float> in(frames * channels, 0.25F), out(frames * channels);
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), bytes);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}
BENCHMARK(BM_MemcpySameBuffer);

}  // namespace
