// `vela sessions`, `vela adopt`, `vela discard`: runs of processes that have ended.
#include <CLI/CLI.hpp>
#include <iostream>

#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/sessions.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

constexpr const char* kAboutSessions =
    "A session is one process's use of a repository. When its process has ended, by itself or\n"
    "by a crash, its runs wait to be adopted or discarded; those of a living one are left "
    "alone.";

Json runsOf(ObjectManager& manager, const Set::Instance& session) {
  const ActingFor acting(manager, session.id);
  Json runs = Json::array();
  for (const Set::Summary& run : Set::getRunSummaries(manager)) {
    runs.push_back(
        {{"id", run.id}, {"number", run.number}, {"name", text::toUtf8(run.displayName)}});
  }
  return runs;
}

ExitCode listSessions(const Context& context) {
  Repository repository = Repository::openForChanging(context);
  Json list = Json::array();
  Table table(
      {{"SESSION", Table::Align::right}, {"STATE"}, {"RUNS", Table::Align::right}, {"NAMES"}});
  for (const Set::Instance& session : Set::getInstances(repository.manager())) {
    if (session.id == 0 && session.runs == 0) continue;
    const Json runs = runsOf(repository.manager(), session);
    std::string names;
    for (const Json& run : runs) {
      names += (names.empty() ? "" : ", ") + run["name"].get<std::string>();
    }
    list.push_back({{"id", session.id},
                    {"state", stateText(session.state)},
                    {"isWorker", session.isFarmWorker},
                    {"storedRuns", session.runs},
                    {"streamingRuns", session.streamingRuns},
                    {"runs", runs}});
    table.addRow({std::to_string(session.id), stateText(session.state),
                  std::to_string(session.visibleRuns), names});
  }
  if (context.json) {
    std::cout << jsonText(list);
  } else if (!list.empty()) {
    std::cout << table.str();
  } else if (!context.quiet) {
    say("no sessions in " + repository.location());
  }
  return kDone;
}

ExitCode adopt(const Context& context) {
  Repository repository = Repository::openAsSession(context);
  const std::vector<int> runs = Set::importClosedInstances(repository.manager());
  if (context.json) {
    std::cout << jsonText({{"adopted", runs}});
  } else if (!context.quiet) {
    say("adopted " + counted(runs.size(), "run"));
  }
  return kDone;
}

ExitCode discard(const Context& context, bool yes) {
  Repository repository = Repository::openForChanging(context);
  int waiting = 0;
  for (const Set::Instance& session : Set::getInstances(repository.manager())) {
    const bool hasEnded = !isAlive(session) && session.state != Set::Instance::State::untracked;
    if (hasEnded) waiting += session.runs;
  }
  const std::string what =
      counted(static_cast<std::uint64_t>(waiting), "run") + " of sessions that have ended";
  if (waiting > 0 && !confirmed("discard " + what + " from " + repository.location(), yes)) {
    return kFailed;
  }
  const int removed = Set::removeClosedInstances(repository.manager(), true);
  if (context.json) {
    std::cout << jsonText({{"discarded", removed}});
  } else if (!context.quiet) {
    say("discarded " + counted(static_cast<std::uint64_t>(removed), "run"));
  }
  return kDone;
}

}  // namespace

void addSessionsCommands(CLI::App& app, Context& context) {
  CLI::App* const sessions = app.add_subcommand(
      "sessions",
      "List the sessions of a repository: alive, closed or crashed, with their runs");
  sessions->footer(kAboutSessions);
  addCommonOptions(*sessions, context);
  sessions->callback(
      [&context] { context.command = [&context] { return listSessions(context); }; });

  CLI::App* const taker = app.add_subcommand(
      "adopt", "Take over the runs of sessions that have ended, numbered behind the own ones");
  taker->footer(kAboutSessions);
  addCommonOptions(*taker, context);
  taker->callback([&context] { context.command = [&context] { return adopt(context); }; });

  CLI::App* const remover =
      app.add_subcommand("discard", "Remove the runs of sessions that have ended");
  remover->footer(kAboutSessions);
  addCommonOptions(*remover, context);
  auto yes = std::make_shared<bool>(false);
  remover->add_flag("-y,--yes", *yes, "Do not ask");
  remover->callback([&context, yes] {
    context.command = [&context, yes] { return discard(context, *yes); };
  });
}

}  // namespace vela::tool
