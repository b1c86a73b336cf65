// `vela compare`: whether two runs agree within tolerances.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

#include "formats/provenance.h"
#include "kodiag/diagnostics.h"
#include "runcomparison/runcomparison.h"
#include "text/utf8.h"
#include "tools/vela/comparisonview.h"
#include "tools/vela/context.h"
#include "tools/vela/junit.h"
#include "tools/vela/newruns.h"
#include "tools/vela/outputfile.h"
#include "tools/vela/readreport.h"
#include "tools/vela/recorder.h"
#include "tools/vela/repositories.h"
#include "tools/vela/selection.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

using RunPtr = boost::shared_ptr<Set>;

struct CompareOptions {
  std::string baseline;
  std::string compared;
  std::string recheck;
  std::string junit;
  std::string alignment;
  bool noStore = false;
  bool force = false;
  RunComparisonOptions comparison;
};

bool isFile(const std::string& words) {
  std::error_code error;
  const auto status = std::filesystem::status(words, error);
  return std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

RunPtr readFile(ObjectManager& manager, const std::string& file, bool quiet) {
  const auto reader = formats::openReader(file);
  const formats::Summary& summary = reader->describe();
  if (summary.runs.size() != 1) {
    kodiag::raise({"VELA:vela", "SeveralRuns"},
                  {{"File", file}, {"Count", std::to_string(summary.runs.size())}});
  }
  ProgressBar bar("reading " + file, sampleBytes(summary), quiet);
  Recorder recorder(manager, summary, formats::provenanceOf(file, summary, {}), file,
                    [&bar](std::uint64_t bytes) { bar.update(bytes); });
  bool isLossy = false;
  manager.inTransaction([&] { isLossy = reportLoss(file, reader->read(recorder), quiet); });
  if (isLossy) kodiag::raise({"VELA:vela", "LossyFile"}, {{"File", file}});
  RunPtr run;
  Set::lookupSet(recorder.runs().front().id, run, manager);
  return run;
}

// The two runs, and what they are in: the repository, or for files a private one.
class Operands {
 public:
  Operands(const Context& context, const CompareOptions& options) : context_(context) {
    const bool haveFile = isFile(options.baseline) || isFile(options.compared);
    isStoring_ = !haveFile && !options.noStore;
    baseline_ = find(options.baseline);
    compared_ = find(options.compared);
  }

  Set& baseline() { return *baseline_; }
  Set& compared() { return *compared_; }
  /// Whether the comparison is to be kept in the repository.
  bool isStoring() const { return isStoring_; }
  ObjectManager& repository() {
    if (!repository_) {
      repository_.emplace(isStoring_ ? Repository::openAsSession(context_)
                                     : Repository::openForReading(context_));
    }
    return repository_->manager();
  }

 private:
  RunPtr find(const std::string& words) {
    return isFile(words) ? readFile(filesManager(), words, context_.quiet)
                         : findRun(repository(), words);
  }
  ObjectManager& filesManager() {
    if (!files_) {
      files_ = std::make_unique<ObjectManager>();
      files_->initializeObjectManager({}, {});
    }
    return *files_;
  }

  const Context& context_;
  bool isStoring_ = false;
  std::optional<Repository> repository_;
  std::unique_ptr<ObjectManager> files_;
  RunPtr baseline_;
  RunPtr compared_;
};

std::string nameOf(const Set& run) {
  return text::toUtf8(run.getRunDisplayName());
}

ShownComparison compareTwo(const Context& context, const CompareOptions& options) {
  Operands operands(context, options);
  Set& baseline = operands.baseline();
  Set& compared = operands.compared();
  RunComparison result;
  if (operands.isStoring()) {
    ObjectManager& manager = operands.repository();
    manager.inTransaction([&] {
      continueNumbers(manager);
      result =
          compareAndStoreRuns(manager, baseline.getID(), compared.getID(), options.comparison);
    });
  } else {
    result = compareRuns(baseline, compared, options.comparison);
  }
  return {result, nameOf(baseline), nameOf(compared), axisOf(&baseline).second};
}

// The name of a run that may be gone.
std::string nameOf(ObjectManager& manager, int runID) {
  RunPtr run;
  return Set::lookupSet(runID, run, manager) ? nameOf(*run) : "run " + std::to_string(runID);
}

ShownComparison compareAgain(const Context& context, const CompareOptions& options) {
  Repository repository = options.noStore ? Repository::openForReading(context)
                                          : Repository::openForChanging(context);
  ObjectManager& manager = repository.manager();
  const int run = findRun(manager, options.recheck)->getID();
  const RunComparison result = options.noStore ? lookAgain(manager, run, options.comparison)
                                               : recheckRun(manager, run, options.comparison);
  RunPtr baseline;
  Set::lookupSet(result.baselineRun, baseline, manager);
  return {result, nameOf(manager, result.baselineRun), nameOf(manager, result.compareToRun),
          axisOf(baseline.get()).second};
}

ShownComparison shownComparison(const Context& context, CompareOptions options) {
  std::unique_ptr<ProgressBar> bar;
  options.comparison.progress = [&](std::size_t done, std::size_t total) {
    const auto signals = [](std::uint64_t count) { return counted(count, "signal"); };
    if (!bar) bar = std::make_unique<ProgressBar>("comparing", total, context.quiet, signals);
    bar->update(done);
  };
  return options.recheck.empty() ? compareTwo(context, options)
                                 : compareAgain(context, options);
}

void print(const ShownComparison& shown, const Context& context) {
  std::cout << (context.json ? jsonText(jsonOf(shown)) : tableOf(shown)) << std::flush;
  if (context.quiet) return;
  const int stored = shown.comparison.run;
  say(summaryOf(shown) + (stored == 0 ? "" : "; kept as run " + std::to_string(stored)));
}

[[noreturn]] void refuseToPass(const ShownComparison& shown, const std::string& pattern) {
  kodiag::raise({"VELA:vela", "NothingCompared"},
                {{"Baseline", "\"" + shown.baseline + "\""},
                 {"Compared", "\"" + shown.compared + "\""},
                 {"Cause", shown.comparison.signals.empty() && !pattern.empty()
                               ? ": \"" + pattern + "\" fits none"
                               : ""}});
}

ExitCode compare(const Context& context, const CompareOptions& options) {
  std::optional<OutputFile> junit;
  if (!options.junit.empty()) junit.emplace(options.junit, kJunitReport, options.force);
  std::optional<ShownComparison> shown;
  try {
    shown = shownComparison(context, options);
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    // A report of an earlier, better day must not stand for this one.
    if (junit) junit->publish(junitOfError(error.innermost().textWithCauses()));
    throw;
  }
  print(*shown, context);
  if (junit) junit->publish(junitOf(*shown));
  if (!shown->comparison.comparedAnything()) {
    refuseToPass(*shown, options.comparison.signals);
  }
  return shown->comparison.within ? kDone : kDifferent;
}

void addToleranceOptions(CLI::App& command, CompareOptions& options) {
  const std::string group = "What counts as equal";
  command
      .add_option("--abs", options.comparison.absTol,
                  "How far a value may be off, in the unit of the signal")
      ->type_name("NUMBER")
      ->group(group);
  command
      .add_option("--rel", options.comparison.relTol,
                  "The same as a part of the baseline's value; the larger of the two counts")
      ->type_name("NUMBER")
      ->group(group);
  command
      .add_option("--time", options.comparison.timeTol,
                  "How much earlier or later a value may come, in seconds")
      ->type_name("NUMBER")
      ->group(group);
  command
      .add_option("--align", options.alignment,
                  "Which times are compared: of either run, of both, or equal steps")
      ->check(CLI::IsMember({"union", "intersection", "uniform"}))
      ->group(group);
}

constexpr const char* kLesson =
    "  vela compare before after               are all signals equal?\n"
    "  vela compare before after --rel 1e-3    within a thousandth of the baseline's values?\n"
    "  vela compare before after --time 1e-6   an edge may come a microsecond early or late\n"
    "  vela compare gold.csv new.csv --abs 0.1 --signals 'v(*'   files; some signals\n"
    "  vela compare --recheck 5888 --abs 0.2   a stored comparison, with another tolerance\n\n"
    "A run is given by its name, number or ID. The name of a file that exists is that file:\n"
    "it is read for this once, and nothing is stored. Signals are paired by name and place.\n"
    "Without --abs and --rel the tolerances each signal of the baseline has itself apply,\n"
    "else values must be equal; FROM tells which. Exactly at the tolerance is within:\n"
    "rounding in the last digit that the type of a value holds is forgiven, and integers are\n"
    "exact. The comparison is kept as a run of its own, with the difference of every signal,\n"
    "unless --no-store is given.\n\n"
    "Outcomes: within; outside; missing: only the baseline has it; extra: only the other has\n"
    "it; unit mismatch, type mismatch: not compared; time mismatch: one covers less time;\n"
    "empty: one has no samples; not comparable: why stands below the table. Everything but\n"
    "within is a difference.\n"
    "Exit codes: 0 all within, 1 different, 2 trouble, also when nothing could be compared.";

}  // namespace

void addCompareCommand(CLI::App& app, Context& context) {
  CLI::App* const command =
      app.add_subcommand("compare", "Compare two runs signal by signal, within tolerances");
  command->footer(kLesson);
  addCommonOptions(*command, context);
  auto options = std::make_shared<CompareOptions>();
  CLI::Option* const baseline =
      command->add_option("BASELINE", options->baseline, "Run or file that is right");
  CLI::Option* const compared =
      command->add_option("COMPARED", options->compared, "Run or file to be checked");
  addToleranceOptions(*command, *options);
  CLI::Option* const signals =
      command
          ->add_option("--signals", options->comparison.signals,
                       "Only signals whose name or path fits, such as 'v(*'")
          ->type_name("GLOB");
  command->add_flag("--no-store", options->noStore, "Only look; keep nothing");
  command
      ->add_option("--junit", options->junit,
                   "Also write the outcomes to this file, as test results in JUnit's XML")
      ->type_name("FILE");
  addForceOption(*command, options->force);
  command
      ->add_option("--recheck", options->recheck,
                   "Compare again what this comparison run keeps, with its tolerances or those "
                   "given")
      ->type_name("RUN")
      ->excludes(baseline)
      ->excludes(compared)
      ->excludes(signals);
  command->callback([&context, options] {
    if (options->recheck.empty()) {
      if (options->baseline.empty()) throw CLI::RequiredError("BASELINE");
      if (options->compared.empty()) throw CLI::RequiredError("COMPARED");
    }
    if (!options->alignment.empty()) {
      options->comparison.alignment = comparison::alignmentFromText(options->alignment);
    }
    context.command = [&context, options] { return compare(context, *options); };
  });
}

}  // namespace vela::tool
