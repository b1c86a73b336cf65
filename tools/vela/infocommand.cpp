// `vela info`: all there is to know of a repository, a run or a signal.
#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <iostream>

#include "objects/strings.h"
#include "text/numbers.h"
#include "text/printable.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/selection.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

std::string factText(const Json& value) {
  if (value.is_string()) return text::printable(value.get<std::string>());
  if (value.is_number_float()) return text::shortest(value.get<double>());
  if (value.is_null()) return "none";
  return value.dump();
}

void print(const Json& facts, bool json) {
  if (json) {
    std::cout << jsonText(facts);
    return;
  }
  std::size_t width = 0;
  for (const auto& [name, value] : facts.items()) width = std::max(width, name.size());
  for (const auto& [name, value] : facts.items()) {
    std::cout << name << std::string(width - name.size() + 2, ' ') << factText(value) << "\n";
  }
}

Json repositoryFacts(Repository& repository) {
  ObjectManager& manager = repository.manager();
  std::uintmax_t bytes = 0;
  for (const char* side : {"", "-wal"}) {
    std::error_code absent;
    const std::uintmax_t size =
        std::filesystem::file_size(repository.location() + side, absent);
    if (!absent) bytes += size;
  }
  kodiag::util::diagnostics diag;
  const long long signals = manager.repository().countObjects(
      kodd::Selection(manager.getClass(strings::Signal)), diag);
  diag.raiseIfAny();
  return {{"file", repository.location()},
          {"bytes", bytes},
          {"runs", Set::getAllVisibleRunIDs(manager, Set::Application::AllApplications,
                                            Set::Sessions::all)
                       .size()},
          {"signals", signals}};
}

Json runFacts(Repository& repository, const std::string& words) {
  const boost::shared_ptr<Set> run = findRun(repository.manager(), words);
  const auto [axis, unit] = axisOf(run.get());
  Json facts = {{"run", run->getID()},
                {"number", run->getRunNumber()},
                {"name", text::toUtf8(run->getRunDisplayName())},
                {"date", dateText(run->getDate())},
                {"description", text::toUtf8(run->getDescription())},
                {"signals", run->getNumberOfLeafSignals()},
                {"axis", labelled(axis, unit)},
                {"from", jsonNumber(run->getStartTime())},
                {"to", jsonNumber(run->getStopTime())}};
  const std::pair<const char*, const char*> provenance[] = {{"format", kImportFormat},
                                                            {"plot", kImportPlot},
                                                            {"step", kImportStep},
                                                            {"source", kImportFile},
                                                            {"source bytes", kImportBytes},
                                                            {"source SHA-256", kImportHash},
                                                            {"import options", kImportOptions}};
  for (const auto& [name, key] : provenance) {
    const std::string value = metadataText(*run, key);
    if (!value.empty()) facts[name] = value;
  }
  return facts;
}

Json signalFacts(Repository& repository, const std::string& words,
                 const std::string& runWords) {
  ObjectManager& manager = repository.manager();
  const std::unique_ptr<Signal> signal = findSignal(manager, words, runWords);
  const SignalView view = viewOf(*signal, 0);
  const boost::shared_ptr<Set> run = signal->getParentSet();
  Json facts = {{"signal", view.id},
                {"name", view.name},
                {"run", signal->getParentSetID()},
                {"run name", run ? text::toUtf8(run->getRunDisplayName()) : ""},
                {"unit", view.unit},
                {"type", view.type},
                {"interpolation", signal->getInterpMethod()},
                {"origin", text::toUtf8(signal->getDataSource())},
                {"axis", labelled(axisOf(run.get()).first, axisOf(run.get()).second)},
                {"points", view.extent.samples}};
  constexpr double kInfinity = HUGE_VAL;
  const SignalDataRange range = std::as_const(*signal).getDataRange(-kInfinity, kInfinity);
  if (range.isValid) {
    facts["from"] = jsonNumber(range.firstTime);
    facts["to"] = jsonNumber(range.lastTime);
    facts["minimum"] = jsonNumber(range.minValue);
    facts["maximum"] = jsonNumber(range.maxValue);
  }
  return facts;
}

}  // namespace

void addInfoCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "info",
      "Tell about the repository, a run (--run) or a signal with its minimum and maximum");
  addCommonOptions(*command, context);
  auto signal = std::make_shared<std::string>();
  auto run = std::make_shared<std::string>();
  command->add_option("SIGNAL", *signal, "ID or name of a signal");
  command->add_option("--run", *run, "ID or name of a run")->type_name("RUN");
  command->callback([&context, signal, run] {
    context.command = [&context, signal, run] {
      Repository repository = Repository::openForReading(context);
      print(!signal->empty() ? signalFacts(repository, *signal, *run)
            : !run->empty()  ? runFacts(repository, *run)
                             : repositoryFacts(repository),
            context.json);
      return kDone;
    };
  });
}

}  // namespace vela::tool
