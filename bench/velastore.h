// Vela itself as a store under measurement: what a client writes, nothing behind its back.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"

/// Runs and their signals in a repository file of their own.
class Vela {
 public:
  using Id = boost::shared_ptr<vela::Signal>;

  explicit Vela(const std::string& path);

  vela::ObjectManager& manager() { return manager_; }
  void beginTransaction() { manager_.beginTransaction(); }
  void commitTransaction() { manager_.commitTransaction(); }

  /// Signals created afterwards belong to it.
  void createRun(const std::string& name);
  Id createSignal(const std::string& name);
  void removeRun() { run_->remove(); }
  void copyRun() { run_->clone(vela::Set::Application::VELA); }
  void addRunsOfInstance(long long instance, std::int64_t count);
  /// From every closed instance to this one, whatever their IDs.
  void importRuns(long long from, long long to);
  void append(const Id& signal, std::span<const double> times, std::span<const double> values);
  void appendMerging(const Id& signal, double time, double value,
                     std::size_t minimumChunkBytes);
  void read(const Id& signal, std::vector<double>& times, std::vector<double>& values);
  void readRange(const Id& signal, double from, double to, std::vector<double>& times,
                 std::vector<double>& values);
  void save(const std::string& file);
  void load(const std::string& file);
  double tolerance(const Id& signal) { return signal->getAbsTol(); }
  void setTolerance(const Id& signal, double tolerance) { signal->setAbsTol(tolerance); }

 private:
  vela::ObjectManager manager_;
  std::unique_ptr<vela::Set> run_;
};
