#include "comparing.h"

#include "hostobject.h"
#include "runcomparison/runcomparison.h"
#include "scripting/arguments.h"
#include "text/utf8.h"
#include "toarray.h"

namespace vela::python {
namespace {

constexpr const char* kMethod = "compare";

/// A run as Python names it.
struct RunGiven {
  std::shared_ptr<host::COSObject> repository;
  host::HostArray id;
};

RunGiven runGiven(py::handle repository, py::handle id, const char* input) {
  const Place place{kMethod, input};
  return {objectGiven(repository, place, "a run or (vela.Repository, run ID)"),
          toHostArray(id, place)};
}

RunComparisonOptions optionsFrom(const py::dict& settings) {
  RunComparisonOptions options;
  const auto given = [&](const char* name) -> py::object {
    return settings.contains(name) ? py::object(settings[name]) : py::none();
  };
  const auto setNumber = [&](const char* name, std::optional<double>& number) {
    const py::object value = given(name);
    if (!value.is_none()) number = toDouble(value, {kMethod, name});
  };
  setNumber("abs", options.absTol);
  setNumber("rel", options.relTol);
  setNumber("time", options.timeTol);
  if (const py::object align = given("align"); !align.is_none()) {
    options.alignment =
        comparison::alignmentFromText(toNarrowText(align, false, {kMethod, "align"}));
  }
  if (const py::object signals = given("signals"); !signals.is_none()) {
    options.signals = text::toUtf8(toWideText(signals, false, {kMethod, "signals"}));
  }
  return options;
}

/// Without Python's lock.
RunComparison compare(const RunGiven& baseline, const RunGiven& compared,
                      const RunComparisonOptions& options, bool isStoring) {
  const auto baselineManager = scripting::getObjectManager(baseline.repository, kMethod);
  const auto comparedManager = scripting::getObjectManager(compared.repository, kMethod);
  const auto baselineRun = scripting::runFromID(*baselineManager, baseline.id, kMethod);
  const auto comparedRun = scripting::runFromID(*comparedManager, compared.id, kMethod);
  return isStoring ? compareAndStoreRuns(*baselineManager, baselineRun->getID(),
                                         comparedRun->getID(), options)
                   : compareRuns(*baselineRun, *comparedRun, options);
}

py::object idOrNone(int id) {
  return id == 0 ? py::object(py::none()) : py::int_(id);
}

py::dict rowOf(const ComparedSignal& signal) {
  const comparison::Report& report = signal.report;
  const auto ifCompared = [&](double value) {
    return report.rows > 0 ? py::object(py::float_(value)) : py::none();
  };
  py::dict row;
  row["path"] = text::toUtf8(signal.path);
  row["outcome"] = textOf(signal.outcome);
  row["reason"] = signal.reason.empty() ? py::object(py::none()) : py::str(signal.reason);
  row["max_difference"] = ifCompared(report.maxDifference);
  row["time_of_max_difference"] = ifCompared(report.timeOfMaxDifference);
  row["rms_difference"] = ifCompared(report.rms);
  row["rows"] = report.rows;
  row["failed_rows"] = report.failedRows;
  row["first_failing_time"] =
      report.firstFailingTime ? py::object(py::float_(*report.firstFailingTime)) : py::none();
  row["abs_tol"] = signal.options.absTol;
  row["rel_tol"] = signal.options.relTol;
  row["time_tol"] = signal.options.timeTol;
  row["tolerance_from"] = textOf(signal.toleranceOrigin);
  row["alignment"] = comparison::textOf(signal.options.alignment);
  row["alignment_from"] = textOf(signal.alignmentOrigin);
  row["baseline"] = idOrNone(signal.baseline);
  row["compared"] = idOrNone(signal.compareTo);
  row["comparison"] = idOrNone(signal.comparison);
  return row;
}

py::dict resultOf(const RunComparison& comparison) {
  py::list rows;
  for (const ComparedSignal& signal : comparison.signals) rows.append(rowOf(signal));
  py::dict result;
  result["within"] = comparison.within;
  result["compared"] = comparison.comparedAnything();
  result["run"] = idOrNone(comparison.run);
  result["rows"] = rows;
  return result;
}

}  // namespace

py::dict compareRuns(py::handle baseline, py::handle baselineRun, py::handle compared,
                     py::handle comparedRun, const py::dict& settings, bool isStoring) {
  return raisingPythonErrors([&] {
    const RunGiven first = runGiven(baseline, baselineRun, "baseline");
    const RunGiven second = runGiven(compared, comparedRun, "compared");
    const RunComparisonOptions options = optionsFrom(settings);
    RunComparison comparison;
    withoutLock([&] { comparison = compare(first, second, options, isStoring); });
    return resultOf(comparison);
  });
}

}  // namespace vela::python
