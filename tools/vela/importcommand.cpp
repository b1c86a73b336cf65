// `vela import`: recordings of other programs become runs.
#include <CLI/CLI.hpp>
#include <iostream>
#include <map>
#include <set>

#include "text/numbers.h"
#include "text/printable.h"
#include "tools/vela/context.h"
#include "tools/vela/newruns.h"
#include "tools/vela/readreport.h"
#include "tools/vela/recorder.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

struct ImportOptions {
  std::vector<std::string> files;
  std::string runName;
  std::string delimiter;
  std::string decimal;
  bool dryRun = false;
  formats::ReadOptions reading;
};

// One file on its way in.
struct Source {
  std::string file;
  std::unique_ptr<formats::Reader> reader;
  const formats::Summary* summary;
};

std::vector<Source> describeAll(const ImportOptions& options) {
  std::vector<Source> sources;
  for (const std::string& file : options.files) {
    Source source{file, formats::openReader(file, options.reading), nullptr};
    source.summary = &source.reader->describe();
    sources.push_back(std::move(source));
  }
  return sources;
}

std::string span(const formats::RunInfo& run) {
  return text::shortest(run.first) + " .. " + text::shortest(run.last) +
         (run.axis.unit.empty() ? "" : " " + run.axis.unit);
}

std::string signalNames(const formats::RunInfo& run) {
  std::string names;
  for (const formats::SignalInfo& signal : *run.signals) {
    names += (names.empty() ? "" : ", ") + labelled(signal.name, signal.unit);
  }
  return names;
}

Json summaryJson(const Source& source) {
  Json runs = Json::array();
  for (const formats::RunInfo& run : source.summary->runs) {
    Json signals = Json::array();
    for (const formats::SignalInfo& signal : *run.signals) {
      signals.push_back({{"name", signal.name},
                         {"unit", signal.unit},
                         {"type", formats::valueTypeName(signal.type)},
                         {"complex", signal.isComplex}});
    }
    runs.push_back({{"name", run.name},
                    {"axis", run.axis.name},
                    {"axisUnit", run.axis.unit},
                    {"samples", run.rows},
                    {"first", run.first},
                    {"last", run.last},
                    {"signals", std::move(signals)}});
  }
  return {{"file", source.file},
          {"format", source.summary->format},
          {"details", source.summary->details},
          {"badLines", source.summary->report.badLines},
          {"runs", std::move(runs)}};
}

void printDryRun(const std::vector<Source>& sources, bool json) {
  if (json) {
    Json files = Json::array();
    for (const Source& source : sources) files.push_back(summaryJson(source));
    std::cout << jsonText(files);
    return;
  }
  for (const Source& source : sources) {
    std::cout << text::printable(source.file) << ": " << source.summary->format << "\n";
    for (const std::string& detail : source.summary->details)
      std::cout << "  " << text::printable(detail) << "\n";
    for (const formats::RunInfo& run : source.summary->runs) {
      std::cout << "  run \"" << text::printable(run.name)
                << "\": " << counted(run.rows, "sample") << ", " << span(run) << "\n    "
                << text::printable(signalNames(run)) << "\n";
    }
  }
}

void printStored(const std::map<std::string, std::vector<Recorder::StoredRun>>& stored,
                 bool json) {
  Json list = Json::array();
  Table table({{"RUN", Table::Align::right},
               {"NAME"},
               {"SIGNALS", Table::Align::right},
               {"SAMPLES", Table::Align::right},
               {"FILE"}});
  for (const auto& [file, runs] : stored) {
    for (const Recorder::StoredRun& run : runs) {
      list.push_back({{"id", run.id},
                      {"name", run.name},
                      {"signals", run.signalCount},
                      {"samples", run.samples},
                      {"file", file}});
      table.addRow({std::to_string(run.id), run.name, std::to_string(run.signalCount),
                    std::to_string(run.samples), file});
    }
  }
  std::cout << (json ? jsonText(list) : table.str());
}

// Names that several runs would have.
std::set<std::string> ambiguousNames(ObjectManager& manager,
                                     const std::vector<Source>& sources) {
  std::map<std::string, int> counts = countNames(manager);
  for (const Source& source : sources)
    for (const formats::RunInfo& run : source.summary->runs) ++counts[run.name];
  std::set<std::string> names;
  for (const auto& [name, count] : counts)
    if (count > 1) names.insert(name);
  return names;
}

ExitCode importFiles(const Context& context, const ImportOptions& options) {
  // Every file is checked to its end before the repository is touched.
  const std::vector<Source> sources = describeAll(options);
  bool lossy = false;
  if (options.dryRun) {
    printDryRun(sources, context.json);
    for (const Source& source : sources) {
      lossy |= reportLoss(source.file, source.summary->report, context.quiet);
    }
    return lossy ? kLoss : kDone;
  }

  Repository repository = Repository::openForWriting(context);
  std::map<std::string, std::vector<Recorder::StoredRun>> stored;
  repository.manager().inTransaction([&] {
    continueNumbers(repository.manager());
    const std::set<std::string> ambiguous = ambiguousNames(repository.manager(), sources);
    for (const Source& source : sources) {
      ProgressBar bar("importing " + source.file, sampleBytes(*source.summary), context.quiet);
      Recorder recorder(repository.manager(), *source.summary,
                        formats::provenanceOf(source.file, *source.summary, options.reading),
                        options.runName, [&bar](std::uint64_t bytes) { bar.update(bytes); });
      recorder.qualify(ambiguous);
      lossy |= reportLoss(source.file, source.reader->read(recorder), context.quiet);
      std::vector<Recorder::StoredRun>& runs = stored[source.file];
      runs.insert(runs.end(), recorder.runs().begin(), recorder.runs().end());
    }
  });
  printStored(stored, context.json);
  if (!context.quiet) {
    std::size_t count = 0;
    for (const auto& [file, runs] : stored) count += runs.size();
    say("imported " + counted(count, "run") + " into " + repository.location());
  }
  return lossy ? kLoss : kDone;
}

formats::Choice choiceOf(const std::string& text) {
  return text == "yes"  ? formats::Choice::kYes
         : text == "no" ? formats::Choice::kNo
                        : formats::Choice::kAuto;
}

}  // namespace

void addImportCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "import", "Read recordings into the repository: all of them, or on any failure none");
  command->footer(
      "Knows circuit-simulator raw files (binary and ASCII) and CSV tables.\n"
      "Prints the new runs. Exit code 3: done, but lines or columns had to be left out.");
  addCommonOptions(*command, context);
  auto options = std::make_shared<ImportOptions>();
  command->add_option("FILE", options->files, "Files to read")
      ->required()
      ->check(CLI::ExistingFile);
  command->add_option("--run", options->runName, "Name of the run")->type_name("NAME");
  command->add_flag("--dry-run", options->dryRun, "Show what would be read, store nothing");

  const std::string csv = "CSV tables";
  command
      ->add_option("--delimiter", options->delimiter,
                   "One of , ; | or 'tab'; default: found out")
      ->check(CLI::IsMember({",", ";", "|", "tab"}))
      ->group(csv);
  command
      ->add_option("--decimal", options->decimal, "Decimal point, . or ,; default: found out")
      ->check(CLI::IsMember({".", ","}))
      ->group(csv);
  command
      ->add_option("--time-column", options->reading.timeColumn,
                   "Name or position (1, 2, ...) of the time column; default: found out")
      ->group(csv);
  const auto addChoice = [&](const char* name, formats::Choice& choice, const char* words) {
    command
        ->add_option_function<std::string>(
            name, [&choice](const std::string& text) { choice = choiceOf(text); }, words)
        ->check(CLI::IsMember({"auto", "yes", "no"}))
        ->group(csv);
  };
  addChoice("--header", options->reading.header, "Whether the first line names the columns");
  addChoice("--unit-row", options->reading.unitRow,
            "Whether a line of units follows the header");

  command->callback([&context, options] {
    if (!options->delimiter.empty()) {
      options->reading.delimiter = options->delimiter == "tab" ? '\t' : options->delimiter[0];
    }
    if (!options->decimal.empty()) options->reading.decimal = options->decimal[0];
    context.command = [&context, options] { return importFiles(context, *options); };
  });
}

}  // namespace vela::tool
