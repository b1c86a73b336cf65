// Whole runs: removed, taken over from another instance, copied.
#include <benchmark/benchmark.h>

#include "bench/measuredstore.h"
#include "bench/stores.h"

namespace {

/// A run of equal signals.
template <typename Store>
void fillRun(Store& store, std::int64_t signals, std::int64_t chunks, std::size_t samples) {
  store.createRun("run");
  for (std::int64_t i = 0; i < signals; ++i) {
    filledSignal(store, static_cast<std::size_t>(chunks) * samples, samples);
  }
}

/// Measures `act` alone, on a store that `prepare` has filled, another one each time.
template <typename Store, typename Prepare, typename Act>
void measureOnFreshStores(benchmark::State& state, const Prepare& prepare, const Act& act) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      MeasuredStore<Store> store;
      prepare(*store);
      state.ResumeTiming();
      act(*store);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
}

template <typename Store>
void removeRun(benchmark::State& state) {
  constexpr std::size_t kSamples = 100;
  measureOnFreshStores<Store>(
      state, [&](Store& store) { fillRun(store, state.range(0), state.range(1), kSamples); },
      [](Store& store) { store.removeRun(); });
}

void runSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"signals", "chunks"})
      ->Args({1'000, 10})
      ->Iterations(3)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(removeRun, Vela)->Apply(runSizes);
BENCHMARK_TEMPLATE(removeRun, Sqlite)->Apply(runSizes);

template <typename Store>
void importRuns(benchmark::State& state) {
  measureOnFreshStores<Store>(
      state, [&](Store& store) { store.addRunsOfInstance(7, state.range(0)); },
      [](Store& store) { store.importRuns(7, 8); });
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void runCounts(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("runs")
      ->Arg(1'000)
      ->Iterations(10)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(importRuns, Vela)->Apply(runCounts);
BENCHMARK_TEMPLATE(importRuns, Sqlite)->Apply(runCounts);

// Ten million samples, in many chunks and in few.
template <typename Store>
void copyRun(benchmark::State& state) {
  constexpr std::int64_t kSignals = 10;
  constexpr std::int64_t kSamplesOfASignal = 1'000'000;
  const std::int64_t block = state.range(0);
  measureOnFreshStores<Store>(
      state,
      [&](Store& store) {
        fillRun(store, kSignals, kSamplesOfASignal / block, static_cast<std::size_t>(block));
      },
      [](Store& store) { store.copyRun(); });
  state.SetItemsProcessed(state.iterations() * kSignals * kSamplesOfASignal);
}

void blocks(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("block")
      ->Arg(1'000)
      ->Arg(1'000'000)
      ->Iterations(3)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(copyRun, Vela)->Apply(blocks);
BENCHMARK_TEMPLATE(copyRun, Sqlite)->Apply(blocks);

}  // namespace
