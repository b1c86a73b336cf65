// Brings the runs of a damaged repository file into another repository.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kodd/salvagereader.h"
#include "objectmanager/objectmanager.h"
#include "objects/salvagechunks.h"

namespace vela {

class SalvageCopier;

/// What became of a damaged file.
struct SalvageReport {
  struct Run {
    int id = 0;
    std::wstring name;
    std::size_t signals = 0;
    std::uint64_t samples = 0;
  };
  /// Something that could not be read.
  struct Loss {
    std::wstring run;      ///< empty when it concerns no single run
    std::wstring signal;   ///< likewise
    long long chunks = 0;  ///< how many chunks of samples
    std::string text;
  };

  std::vector<Run> runs;
  std::vector<Loss> losses;
};

/// Everything of a damaged file that can be read, and its way into a repository.
///
/// Runs keep their numbers, names and descriptions, signals their properties and place in the
/// tree; signals whose run is lost form a run "Recovered". References to lost objects are
/// dropped. What sessions keep about themselves is left behind.
class Salvage {
 public:
  /// Reads all but the samples. \param file  path, UTF-8  \throws as kodd::SalvageReader
  explicit Salvage(const std::string& file);

  /// Whether there is neither a run nor a signal.
  bool isEmpty() const;
  /// What is known to be lost before any sample is read.
  const std::vector<SalvageReport::Loss>& losses() const { return losses_; }

  using Progress = std::function<void(std::uint64_t bytes)>;
  /// Stores everything as runs of the manager's instance, in one unit of work. Once.
  /// \param progress  told how many bytes of samples have been stored so far
  SalvageReport storeInto(ObjectManager& manager, const Progress& progress);

 private:
  using Objects = std::vector<kodd::SalvagedObject>;

  void read(const std::string& className);
  Objects& objects(const std::string& className) { return objects_[className]; }
  void breakCircles();
  void copyDescriptions(SalvageCopier& copier);
  void copyRuns(SalvageCopier& copier, ObjectManager& manager);
  void copySignals(SalvageCopier& copier, ObjectManager& manager);
  void copyOwned(SalvageCopier& copier, ObjectManager& manager);
  void copySamples(const SalvageCopier& copier, ObjectManager& manager, SalvageReport& report,
                   const Progress& progress);
  int recoveredRun(ObjectManager& manager);

  kodd::SalvageReader reader_;
  std::map<std::string, Objects> objects_;  ///< by class
  std::vector<SalvageReport::Loss> losses_;
  SalvageChunks chunks_;
  int recoveredRun_ = 0;
};

}  // namespace vela
