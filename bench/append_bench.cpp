// Appends: in blocks, each a chunk of its own, and sample by sample into the last chunk.
#include <benchmark/benchmark.h>

#include "bench/measuredstore.h"
#include "bench/stores.h"

namespace {

template <typename Store>
void appendBlocks(benchmark::State& state) {
  const auto samples = static_cast<std::size_t>(state.range(0));
  const auto block = static_cast<std::size_t>(state.range(1));
  std::vector<std::vector<double>> blocks;
  for (std::size_t first = 0; first < samples; first += block)
    blocks.push_back(ramp(block, first));

  for (auto _ : state) {
    state.PauseTiming();
    {
      MeasuredStore<Store> store;
      const auto signal = store->createSignal("speed");
      state.ResumeTiming();
      for (const std::vector<double>& numbers : blocks) store->append(signal, numbers, numbers);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Small blocks and all in one: most of the cost must be that of the samples.
void blockSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"samples", "block"})
      ->Args({10'000'000, 1'000})
      ->Args({10'000'000, 10'000'000})
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(appendBlocks, Vela)->Apply(blockSizes);
BENCHMARK_TEMPLATE(appendBlocks, Sqlite)->Apply(blockSizes);
BENCHMARK_TEMPLATE(appendBlocks, Hdf5)->Apply(blockSizes);

template <typename Store>
void appendSingly(benchmark::State& state) {
  MeasuredStore<Store> store;
  const auto signal = store->createSignal("speed");
  const auto minimumChunkBytes = static_cast<std::size_t>(state.range(0));
  double time = 0;
  for (auto _ : state) {
    store->appendMerging(signal, time, time, minimumChunkBytes);
    time += 1e-3;
  }
  state.SetItemsProcessed(state.iterations());
}

// The iterations are fixed, so that every store fills the same number of chunks.
void minimumChunks(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"minimum"})
      ->Arg(65'536)
      ->Arg(1'048'576)
      ->Iterations(50'000)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(appendSingly, Vela)->Apply(minimumChunks);
BENCHMARK_TEMPLATE(appendSingly, Sqlite)->Apply(minimumChunks);

}  // namespace
