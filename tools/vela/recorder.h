// Turns what a reader yields into stored runs and signals.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "formats/provenance.h"
#include "formats/reader.h"
#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"

namespace vela::tool {

/// Stores the runs of one file. Bring a unit of work around the reading: a failure then leaves
/// nothing.
///
/// A run keeps its file, size, hash and options as metadata, and the name and unit of its axis.
/// A complex quantity becomes a parent with a child for the real and one for the imaginary
/// part.
class Recorder : public formats::Sink {
 public:
  struct StoredRun {
    int id;
    std::string name;
    std::size_t signalCount;
    std::uint64_t samples;  ///< per signal
  };
  using Progress = std::function<void(std::uint64_t bytes)>;

  /// \param runName   name of the run; with several runs in the file, put before their own
  /// names;
  ///                  empty: their own names
  /// \param progress  told the bytes of samples stored so far
  Recorder(ObjectManager& manager, const formats::Summary& summary,
           formats::Provenance provenance, std::string runName, Progress progress);
  ~Recorder() override;

  /// Plots of these names get the name of the file in front of theirs.
  void qualify(std::set<std::string> names) { qualified_ = std::move(names); }

  void beginRun(const formats::RunInfo& run) override;
  void block(std::span<const double> axis, std::span<const formats::Column> columns) override;
  void endRun() override;

  const std::vector<StoredRun>& runs() const { return runs_; }

 private:
  struct StoredSignal;

  std::string nameOf(const formats::RunInfo& run) const;
  void describeRun(const formats::RunInfo& run);
  std::unique_ptr<Signal> newSignal(const std::string& name, const formats::SignalInfo& info,
                                    const formats::RunInfo& run);
  StoredSignal storeSignal(const formats::SignalInfo& info, const formats::RunInfo& run);

  ObjectManager& manager_;
  const formats::Summary& summary_;
  formats::Provenance provenance_;
  std::string runName_;
  std::set<std::string> qualified_;
  Progress progress_;

  std::unique_ptr<Set> run_;
  std::vector<StoredSignal> signals_;
  std::vector<StoredRun> runs_;
  std::uint64_t bytes_ = 0;
};

/// Bytes of samples and axis values that reading the runs of a summary stores.
std::uint64_t sampleBytes(const formats::Summary& summary);

}  // namespace vela::tool
