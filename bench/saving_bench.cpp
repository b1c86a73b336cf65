// Saving and loading a run: most of the cost must be that of the samples' bytes.
#include <benchmark/benchmark.h>

#include "bench/measuredstore.h"
#include "bench/neighbours/hdf5arrays.h"
#include "bench/stores.h"

namespace {

struct Extent {
  explicit Extent(const benchmark::State& state)
      : signals(static_cast<std::size_t>(state.range(0))),
        samples(static_cast<std::size_t>(state.range(1))) {}

  std::size_t signals;
  std::size_t samples;
};

void count(benchmark::State& state) {
  const Extent extent(state);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(extent.signals * extent.samples * 16));
}

void fill(Vela& store, const Extent& extent) {
  const std::vector<double> numbers = ramp(extent.samples);
  store.beginTransaction();
  store.createRun("run");
  for (std::size_t i = 0; i < extent.signals; ++i) {
    store.append(store.createSignal("signal " + std::to_string(i)), numbers, numbers);
  }
  store.commitTransaction();
}

template <typename Store>
void saveRun(benchmark::State& state);

template <>
void saveRun<Vela>(benchmark::State& state) {
  MeasuredStore<Vela> store;
  fill(*store, Extent(state));
  const BenchFolder folder;
  for (auto _ : state) store->save(folder.file("saved"));
  count(state);
}

template <>
void saveRun<Hdf5>(benchmark::State& state) {
  const Extent extent(state);
  const std::vector<double> numbers = ramp(extent.samples);
  const BenchFolder folder;
  for (auto _ : state) {
    neighbours::writeArrays(folder.file("saved"), extent.signals, numbers, numbers);
  }
  count(state);
}

template <typename Store>
void loadRun(benchmark::State& state);

template <>
void loadRun<Vela>(benchmark::State& state) {
  const BenchFolder folder;
  {
    MeasuredStore<Vela> store;
    fill(*store, Extent(state));
    store->save(folder.file("saved"));
  }
  for (auto _ : state) {
    state.PauseTiming();
    {
      MeasuredStore<Vela> store;
      state.ResumeTiming();
      store->load(folder.file("saved"));
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  count(state);
}

template <>
void loadRun<Hdf5>(benchmark::State& state) {
  const Extent extent(state);
  const std::vector<double> numbers = ramp(extent.samples);
  const BenchFolder folder;
  neighbours::writeArrays(folder.file("saved"), extent.signals, numbers, numbers);
  std::vector<double> times;
  std::vector<double> values;
  for (auto _ : state) {
    neighbours::readArrays(folder.file("saved"), extent.signals, times, values);
    benchmark::DoNotOptimize(values.data());
  }
  count(state);
}

void extents(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"signals", "samples"})
      ->Args({1'000, 10'000})
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(saveRun, Vela)->Apply(extents);
BENCHMARK_TEMPLATE(saveRun, Hdf5)->Apply(extents);
BENCHMARK_TEMPLATE(loadRun, Vela)->Apply(extents);
BENCHMARK_TEMPLATE(loadRun, Hdf5)->Apply(extents);

}  // namespace
