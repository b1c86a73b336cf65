// `vela ls`: the runs of a repository, or the signals of one run as a tree.
#include <CLI/CLI.hpp>
#include <iostream>

#include "text/numbers.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/selection.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

void listRuns(const Context& context, Repository& repository) {
  Json list = Json::array();
  Table table({{"RUN", Table::Align::right},
               {"NO", Table::Align::right},
               {"NAME"},
               {"DATE"},
               {"SIGNALS", Table::Align::right}});
  for (const Set::Summary& run : Set::getRunSummaries(
           repository.manager(), Set::Application::AllApplications, Set::Sessions::all)) {
    const std::string name = text::toUtf8(run.displayName);
    list.push_back({{"id", run.id},
                    {"number", run.number},
                    {"name", name},
                    {"date", jsonNumber(run.date)},
                    {"signals", run.signalCount}});
    table.addRow({std::to_string(run.id), std::to_string(run.number), name, dateText(run.date),
                  std::to_string(run.signalCount)});
  }
  if (context.json) {
    std::cout << jsonText(list);
  } else if (!list.empty()) {
    std::cout << table.str();
  } else if (!context.quiet) {
    say("no runs in " + repository.location());
  }
}

void listSignals(const Context& context, Repository& repository, const std::string& words) {
  const boost::shared_ptr<Set> run = findRun(repository.manager(), words);
  const std::string axisUnit = axisOf(run.get()).second;
  Json list = Json::array();
  Table table({{"SIGNAL", Table::Align::right},
               {"NAME"},
               {"UNIT"},
               {"TYPE"},
               {"POINTS", Table::Align::right},
               {"FROM", Table::Align::right},
               {"TO" + (axisUnit.empty() ? "" : " [" + axisUnit + "]"), Table::Align::right}});
  for (const SignalView& view : signalTree(repository.manager(), *run)) {
    const bool hasSamples = view.extent.samples > 0;
    list.push_back({{"id", view.id},
                    {"depth", view.depth},
                    {"name", view.name},
                    {"unit", view.unit},
                    {"type", view.type},
                    {"points", view.extent.samples},
                    {"from", hasSamples ? jsonNumber(view.extent.firstTime) : Json(nullptr)},
                    {"to", hasSamples ? jsonNumber(view.extent.lastTime) : Json(nullptr)}});
    table.addRow({std::to_string(view.id),
                  std::string(2 * static_cast<std::size_t>(view.depth), ' ') + view.name,
                  view.unit, view.type, hasSamples ? std::to_string(view.extent.samples) : "",
                  hasSamples ? text::shortest(view.extent.firstTime) : "",
                  hasSamples ? text::shortest(view.extent.lastTime) : ""});
  }
  std::cout << (context.json ? jsonText(list) : table.str());
}

}  // namespace

void addListCommand(CLI::App& app, Context& context) {
  CLI::App* const command =
      app.add_subcommand("ls", "List the runs, or with a run its signals as a tree");
  command->footer("The shared repository shows the runs of every session.");
  addCommonOptions(*command, context);
  auto run = std::make_shared<std::string>();
  command->add_option("RUN", *run, "ID or name of a run");
  command->callback([&context, run] {
    context.command = [&context, run] {
      Repository repository = Repository::openForReading(context);
      if (run->empty()) {
        listRuns(context, repository);
      } else {
        listSignals(context, repository, *run);
      }
      return kDone;
    };
  });
}

}  // namespace vela::tool
