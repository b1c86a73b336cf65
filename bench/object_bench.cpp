// Signals as objects: creating many, their properties, and opening a file that holds them.
#include <benchmark/benchmark.h>

#include "bench/measuredstore.h"
#include "bench/stores.h"

namespace {

template <typename Store>
void createSignals(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      MeasuredStore<Store> store;
      state.ResumeTiming();
      store->beginTransaction();
      for (std::int64_t i = 0; i < state.range(0); ++i) {
        store->createSignal("signal" + std::to_string(i));
      }
      store->commitTransaction();
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(createSignals, Vela)
    ->Arg(10'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_TEMPLATE(createSignals, Sqlite)
    ->Arg(10'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

template <typename Store>
void getProperty(benchmark::State& state) {
  MeasuredStore<Store> store;
  const auto signal = store->createSignal("speed");
  for (auto _ : state) benchmark::DoNotOptimize(store->tolerance(signal));
}
BENCHMARK_TEMPLATE(getProperty, Vela)->UseRealTime();
BENCHMARK_TEMPLATE(getProperty, Sqlite)->UseRealTime();

template <typename Store>
void setProperty(benchmark::State& state) {
  MeasuredStore<Store> store;
  const auto signal = store->createSignal("speed");
  double tolerance = 0;
  for (auto _ : state) store->setTolerance(signal, tolerance += 1e-6);
}
BENCHMARK_TEMPLATE(setProperty, Vela)->UseRealTime();
BENCHMARK_TEMPLATE(setProperty, Sqlite)->UseRealTime();

template <typename Store>
void openNew(benchmark::State& state) {
  for (auto _ : state) {
    auto store = std::make_unique<MeasuredStore<Store>>();
    state.PauseTiming();
    store.reset();
    state.ResumeTiming();
  }
}
BENCHMARK_TEMPLATE(openNew, Vela)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(openNew, Sqlite)->Unit(benchmark::kMillisecond)->UseRealTime();

// Closing is part of it. The number of runs must not matter.
template <typename Store>
void reopen(benchmark::State& state) {
  MeasuredStore<Store> store;
  store->beginTransaction();
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    store->createRun("run" + std::to_string(i));
    store->createSignal("speed");
  }
  store->commitTransaction();
  for (auto _ : state) store.reopen();
}

void runs(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("runs")->Arg(1)->Arg(10'000)->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK_TEMPLATE(reopen, Vela)->Apply(runs);
BENCHMARK_TEMPLATE(reopen, Sqlite)->Apply(runs);

}  // namespace
