// Display names of runs: the stored name with its tokens replaced.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objects/runrow.h"

namespace vela {

/// Local time as "YYYY-MM-DD HH:MM:SS"; empty for what no four-digit year holds.
/// \param seconds  since 1970-01-01 UTC
std::wstring dateText(double seconds);

/// Works out display names; made for one list, inside one read unit.
///
/// Tokens are replaced in the order of their table, each in one pass from left to right that
/// does not look at what it has just put in. A run that is named inside its own name has its
/// two run tokens replaced by nothing there, and so has whatever lies more than 16 runs deep; a
/// result is cut at 65,536 characters.
class RunNames {
 public:
  explicit RunNames(ObjectManager& manager);

  std::wstring of(const RunRow& run);
  /// Empty when there is no such run.
  std::wstring of(const kodd::ObjectRef& run);
  /// None when the run has none.
  std::optional<int> numberOf(const kodd::ObjectRef& run);

 private:
  struct Output {
    std::wstring model;
    std::string simMode;
  };

  std::wstring expand(const RunRow& run, bool withReferences);
  std::wstring nameOfReferenced(const kodd::ObjectRef& run);
  std::optional<RunRow> rowOf(const kodd::ObjectRef& run);
  Output outputOf(const kodd::ObjectRef& run);
  bool isBeingExpanded(int runID) const;

  kodd::ObjectRef wanted_;
  RunRow row_;
  std::unique_ptr<kodd::ObjectQuery> rows_;
  Output output_;
  std::unique_ptr<kodd::ObjectQuery> outputs_;
  int number_ = 0;
  std::unique_ptr<kodd::ObjectQuery> numbers_;

  /// The runs whose names are being worked out, outermost first.
  std::vector<int> open_;
  std::map<int, std::wstring> known_;
};

}  // namespace vela
