#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

#include "core/volume/GainMixer.h"

// The gain mixer's cost per cycle against copying the same buffer: a stereo tap of 512 frames
// (about 10 ms at 48 kHz) to a stereo output.

namespace {

using namespace wh;

constexpr std::uint32_t frames = 512, channels = 2, samples = frames * channels, bytes = samples * sizeof(float);

// Both benchmarks work on these two buffers. Where they lie matters to memcpy (from about 55 to
// 300 ns here, depending on how far apart two separately allocated vectors happened to land), so
// they are fixed: cache-line aligned, one line apart beyond the 4 KiB that would make every load
// look like it depends on the store before it.
struct Buffers {
  alignas(64) float in[samples];
  alignas(64) float gap[16];
  alignas(64) float out[samples];
  Buffers() { std::fill(std::begin(in), std::end(in), 0.25F); }
};

Buffers& sharedBuffers() {
  static Buffers buffers;
  return buffers;
}

void BM_GainMixerRender(benchmark::State& state) {
  Buffers& buffers = sharedBuffers();
  const InputAudioBuffer input{channels, bytes, buffers.in};
  const AudioBuffer output{channels, bytes, buffers.out};
  GainBox box(0.5F);
  for (auto _ : state) {
    GainMixer::render({&input, 1}, {&output, 1}, channels, box);
    benchmark::DoNotOptimize(buffers.out);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}
BENCHMARK(BM_GainMixerRender);

void BM_MemcpySameBuffer(benchmark::State& state) {
  Buffers& buffers = sharedBuffers();
  for (auto _ : state) {
    std::memcpy(buffers.out, buffers.in, bytes);
    benchmark::DoNotOptimize(buffers.out);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}
BENCHMARK(BM_MemcpySameBuffer);

}  // namespace
