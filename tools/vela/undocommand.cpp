// `vela undo-overwrite`: brings back the run that a newer simulation replaced.
#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>

#include "kodiag/message.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/sessions.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

std::vector<Set::Instance> sessionsWithPriorRun(ObjectManager& manager,
                                                std::optional<long long> wanted) {
  std::vector<Set::Instance> sessions;
  for (const Set::Instance& session : Set::getInstances(manager)) {
    if (wanted && session.id != *wanted) continue;
    const ActingFor acting(manager, session.id);
    if (Set::getPriorOverwriteRun(manager)) sessions.push_back(session);
  }
  return sessions;
}

ExitCode undoOverwrite(const Context& context, std::optional<long long> wanted) {
  Repository repository = Repository::openForChanging(context);
  const std::vector<Set::Instance> sessions =
      sessionsWithPriorRun(repository.manager(), wanted);
  if (sessions.empty()) {
    kodiag::raise({"VELA:vela", "NoOverwrittenRun"}, {{"Location", repository.location()}});
  }
  if (sessions.size() > 1) {
    std::string candidates;
    for (const Set::Instance& session : sessions) {
      candidates += (candidates.empty() ? "" : ", ") + sessionLabel(session);
    }
    kodiag::raise({"VELA:vela", "AmbiguousSession"}, {{"Candidates", candidates}});
  }
  const ActingFor acting(repository.manager(), sessions.front().id);
  const int run = Set::undoOverwrite(repository.manager());
  if (context.json) {
    std::cout << jsonText({{"restored", run}, {"session", sessions.front().id}});
  } else if (!context.quiet) {
    say("run " + std::to_string(run) + " is back");
  }
  return kDone;
}

}  // namespace

void addUndoCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "undo-overwrite", "Bring back the run that was kept aside when a simulation replaced it");
  addCommonOptions(*command, context);
  auto session = std::make_shared<std::optional<long long>>();
  command->add_option("--session", *session,
                      "Whose run; needed when several sessions have one");
  command->callback([&context, session] {
    context.command = [&context, session] { return undoOverwrite(context, *session); };
  });
}

}  // namespace vela::tool
