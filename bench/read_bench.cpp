// Reads of one signal: all of it, and ranges at random places.
#include <benchmark/benchmark.h>

#include <random>

#include "bench/measuredstore.h"
#include "bench/stores.h"

namespace {

template <typename Store>
void readAll(benchmark::State& state) {
  MeasuredStore<Store> store;
  const auto signal = filledSignal(*store, static_cast<std::size_t>(state.range(0)),
                                   static_cast<std::size_t>(state.range(1)));
  std::vector<double> times;
  std::vector<double> values;
  for (auto _ : state) {
    store->read(signal, times, values);
    benchmark::DoNotOptimize(values.data());
  }
  if (times.size() != static_cast<std::size_t>(state.range(0)))
    state.SkipWithError("samples lost");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void lengths(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"samples", "block"})
      ->Args({10'000'000, 1'000})
      ->Args({10'000'000, 10'000'000})
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(readAll, Vela)->Apply(lengths);
BENCHMARK_TEMPLATE(readAll, Sqlite)->Apply(lengths);
BENCHMARK_TEMPLATE(readAll, Hdf5)->Apply(lengths);

// One iteration is 1,000 range reads.
template <typename Store>
void readRanges(benchmark::State& state) {
  constexpr int kReads = 1'000;
  const auto samples = static_cast<std::size_t>(state.range(0));
  const auto length = static_cast<std::size_t>(state.range(1));
  MeasuredStore<Store> store;
  const auto signal = filledSignal(*store, samples, 1'000);
  const std::vector<double> all = ramp(samples);

  std::mt19937 random(1);
  std::uniform_int_distribution<std::size_t> anywhere(0, samples - length);
  std::vector<double> times;
  std::vector<double> values;
  for (auto _ : state) {
    for (int read = 0; read < kReads; ++read) {
      const std::size_t first = anywhere(random);
      store->readRange(signal, all[first], all[first + length - 1], times, values);
      if (values.size() != length) state.SkipWithError("samples lost");
    }
  }
  state.SetItemsProcessed(state.iterations() * kReads);
}

// Cost must follow the length of the range, not of the signal.
void ranges(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"samples", "range"})
      ->ArgsProduct({{100'000, 1'000'000}, {10, 5'000}})
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
BENCHMARK_TEMPLATE(readRanges, Vela)->Apply(ranges);
BENCHMARK_TEMPLATE(readRanges, Sqlite)->Apply(ranges);

}  // namespace
