// Rows of streams; the counter "signals" is the time as a multiple of appending the same
// columns to signals.
#include <benchmark/benchmark.h>

#include "bench/measuredstore.h"
#include "bench/velastore.h"
#include "objects/datatypes.h"
#include "yarrow/streamstore.h"

namespace {

constexpr unsigned kChannels = 8;

std::string createStream(vela::ObjectManager& manager) {
  long long type = 0;
  vela::DataTypeUtil::getBuiltInDataTypeHandle(vela::dtypeDouble, manager, type);
  return yarrow::StreamStore(manager).create(type, kChannels);
}

template <typename Store>
void appendRows(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  MeasuredStore<Store> store;
  const std::string stream = createStream(store->manager());
  std::vector<Vela::Id> signals;
  for (unsigned i = 0; i < kChannels; ++i) signals.push_back(store->createSignal("channel"));

  double streaming = 0, appending = 0;
  std::size_t first = 0;
  for (auto _ : state) {
    const std::vector<double> times = ramp(count, first);
    yarrow::StreamRows rows;
    for (const double time : times)
      rows.emplace_back(time, std::vector<double>(kChannels, time));
    streaming += secondsOf([&] { yarrow::StreamStore(store->manager()).add(stream, rows); });
    appending += secondsOf([&] {
      store->manager().inTransaction([&] {
        for (const Vela::Id& signal : signals) store->append(signal, times, times);
      });
    });
    first += count;
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.counters["signals"] = streaming / appending;
}
BENCHMARK_TEMPLATE(appendRows, Vela)
    ->ArgName("rows")
    ->Arg(10'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
