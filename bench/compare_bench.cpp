// Comparing signals and runs; the counter "reads" is the time as a multiple of reading the two.
#include <benchmark/benchmark.h>

#include "bench/measuredstore.h"
#include "bench/velastore.h"
#include "comparison/compare.h"
#include "runcomparison/runcomparison.h"
#include "runcomparison/signalseries.h"

namespace {

/// A signal whose times lie `shift` seconds behind those of a ramp.
Vela::Id shiftedSignal(Vela& store, std::size_t samples, std::size_t block, double shift) {
  const Vela::Id signal = store.createSignal("speed");
  for (std::size_t first = 0; first < samples; first += block) {
    const std::vector<double> values = ramp(std::min(block, samples - first), first);
    std::vector<double> times = values;
    for (double& time : times) time += shift;
    store.append(signal, times, values);
  }
  signal->setInterpMethod("linear");
  return signal;
}

// The union of two signals that share all times, or none.
template <typename Store>
void compareSignals(benchmark::State& state) {
  const auto samples = static_cast<std::size_t>(state.range(0));
  const auto block = static_cast<std::size_t>(state.range(1));
  const bool sharesTimes = state.range(2) != 0;
  MeasuredStore<Store> store;
  const auto baseline = shiftedSignal(*store, samples, block, 0);
  const auto compareTo = shiftedSignal(*store, samples, block, sharesTimes ? 0 : 0.37e-3);
  const auto series = vela::seriesOf(*baseline), other = vela::seriesOf(*compareTo);
  comparison::Options options;
  options.absTol = 1e-3;
  options.strictSpan = false;

  double comparing = 0, reading = 0;
  for (auto _ : state) {
    comparing += secondsOf([&] {
      const auto report = comparison::compare(*series, *other, options);
      if (!report.within) state.SkipWithError("outside");
    });
    state.PauseTiming();
    reading += secondsOf([&] {
      std::vector<double> times, values;
      store->read(baseline, times, values);
      store->read(compareTo, times, values);
      benchmark::DoNotOptimize(values.data());
    });
    state.ResumeTiming();
  }
  state.counters["reads"] = comparing / reading;
  state.SetItemsProcessed(state.iterations() * state.range(0) * 2);
}
BENCHMARK_TEMPLATE(compareSignals, Vela)
    ->ArgNames({"samples", "block", "shared"})
    ->ArgsProduct({{10'000'000}, {65'536, 10'000'000}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Two runs of many signals, compared and stored in one unit of work.
template <typename Store>
void compareRuns(benchmark::State& state) {
  MeasuredStore<Store> store;
  std::vector<int> runs;
  for (const char* name : {"before", "after"}) {
    store->createRun(name);
    store->beginTransaction();
    const std::vector<double> numbers = ramp(static_cast<std::size_t>(state.range(1)));
    for (int i = 0; i < state.range(0); ++i) {
      const auto signal = store->createSignal("signal " + std::to_string(i));
      store->append(signal, numbers, numbers);
      if (i == 0) runs.push_back(signal->getParentSetID());
    }
    store->commitTransaction();
  }
  for (auto _ : state) {
    const auto result = vela::compareAndStoreRuns(store->manager(), runs[0], runs[1], {});
    if (!result.within) state.SkipWithError("outside");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1) * 2);
}
BENCHMARK_TEMPLATE(compareRuns, Vela)
    ->ArgNames({"signals", "samples"})
    ->Args({1'000, 10'000})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
