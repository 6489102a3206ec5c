#include <benchmark/benchmark.h>

#include "doubles/VirtualRuntime.h"

// The cost of the scheduling primitives every component leans on.
static void BM_VirtualPostAndRun(benchmark::State& state) {
  wh::VirtualRuntime rt;
  int sink = 0;
  for (auto _ : state) {
    rt.main().post([&] { ++sink; });
    rt.runReady();
  }
  benchmark::DoNotOptimize(sink);
}
BENCHMARK(BM_VirtualPostAndRun);
