// A store under measurement: a fresh one in a temporary folder, and what the measurements need
// of it.
#pragma once

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

/// A temporary folder, removed with its content at the end of its scope.
class BenchFolder {
 public:
  BenchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "vela-bench.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  ~BenchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  BenchFolder(const BenchFolder&) = delete;
  BenchFolder& operator=(const BenchFolder&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// A store of type `Store`, opened on a new file.
template <typename Store>
class MeasuredStore {
 public:
  Store* operator->() { return store_.get(); }
  Store& operator*() { return *store_; }

  void reopen() {
    store_.reset();
    store_ = std::make_unique<Store>(path_);
  }

 private:
  BenchFolder folder_;
  std::string path_ = folder_.file("bench.dmr");
  std::unique_ptr<Store> store_ = std::make_unique<Store>(path_);
};

/// How long `work` takes, in seconds of the steady clock.
inline double secondsOf(const auto& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// `count` times 1 ms apart, the first at `first` ms; they serve as values too.
inline std::vector<double> ramp(std::size_t count, std::size_t first = 0) {
  std::vector<double> numbers(count);
  std::iota(numbers.begin(), numbers.end(), static_cast<double>(first));
  for (double& number : numbers) number *= 1e-3;
  return numbers;
}

/// A signal of `samples` samples in chunks of `block`.
template <typename Store>
typename Store::Id filledSignal(Store& store, std::size_t samples, std::size_t block) {
  const typename Store::Id signal = store.createSignal("speed");
  for (std::size_t first = 0; first < samples; first += block) {
    const std::vector<double> numbers = ramp(std::min(block, samples - first), first);
    store.append(signal, numbers, numbers);
  }
  return signal;
}
