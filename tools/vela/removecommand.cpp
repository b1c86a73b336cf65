// `vela rm`: removes runs with everything that belongs to them.
#include <CLI/CLI.hpp>
#include <iostream>

#include "kodiag/message.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/selection.h"
#include "tools/vela/sessions.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

ExitCode purge(const Context& context, bool yes) {
  Repository repository = Repository::openForChanging(context);
  ObjectManager& manager = repository.manager();
  if (!confirmed("remove the runs set aside for deletion from " + repository.location(), yes)) {
    return kFailed;
  }
  int removed = 0;
  manager.inTransaction([&] {
    for (const Set::Instance& session : Set::getInstances(manager)) {
      if (isAlive(session)) continue;
      const ActingFor acting(manager, session.id);
      removed += Set::removeRunsMarkedForDelete(manager);
    }
  });
  if (context.json) {
    std::cout << jsonText({{"purged", removed}});
  } else if (!context.quiet) {
    say("removed " + counted(static_cast<std::uint64_t>(removed), "run") +
        " set aside for deletion");
  }
  return kDone;
}

ExitCode remove(const Context& context, const std::vector<std::string>& words, bool yes) {
  Repository repository = Repository::openForChanging(context);
  std::vector<int> ids;
  std::string names;
  for (const std::string& run : words) {
    const boost::shared_ptr<Set> found = findRun(repository.manager(), run);
    if (found->isActivelyStreaming()) {
      kodiag::raise({"VELA:vela", "StreamingRun"}, {{"Run", std::to_string(found->getID())}});
    }
    ids.push_back(found->getID());
    names += (names.empty() ? "" : ", ") + std::to_string(found->getID()) + " (" +
             text::toUtf8(found->getRunDisplayName()) + ")";
  }
  if (!confirmed("remove " + names + " from " + repository.location(), yes)) return kFailed;
  const int removed = Set::removeRuns(repository.manager(), ids);
  if (context.json) {
    std::cout << jsonText({{"removed", ids}});
  } else if (!context.quiet) {
    say("removed " + counted(static_cast<std::uint64_t>(removed), "run"));
  }
  return kDone;
}

}  // namespace

void addRemoveCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "rm", "Remove runs with their signals and samples: all of them or none");
  addCommonOptions(*command, context);
  auto runs = std::make_shared<std::vector<std::string>>();
  auto yes = std::make_shared<bool>(false);
  auto isPurge = std::make_shared<bool>(false);
  command->footer(
      "--purge removes what is only hidden so far: the runs marked for deletion, and runs "
      "kept\n"
      "aside when a simulation replaced them. Those of living sessions are left alone.");
  CLI::Option* const words = command->add_option("RUN", *runs, "IDs or names of runs");
  CLI::Option* const purging =
      command->add_flag("--purge", *isPurge, "Remove the runs set aside for deletion instead");
  words->excludes(purging);
  command->add_flag("-y,--yes", *yes, "Do not ask");
  command->callback([&context, runs, yes, isPurge] {
    if (runs->empty() && !*isPurge) throw CLI::RequiredError("RUN");
    context.command = [&context, runs, yes, isPurge] {
      return *isPurge ? purge(context, *yes) : remove(context, *runs, *yes);
    };
  });
}

}  // namespace vela::tool
