// `vela du` and `vela compact`: where the bytes of a repository are, and giving back the
// unused.
#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/sessions.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

/// The space of the file, and what a purge of every session that has ended would free.
Set::Space spaceOf(ObjectManager& manager) {
  std::uint64_t purgeableBytes = 0;
  int purgeableRuns = 0;
  for (const Set::Instance& session : Set::getInstances(manager)) {
    if (isAlive(session)) continue;
    const ActingFor acting(manager, session.id);
    const Set::Space space = Set::getSpace(manager);
    purgeableBytes += space.purgeableBytes;
    purgeableRuns += space.purgeableRuns;
  }
  Set::Space space = Set::getSpace(manager);
  space.purgeableBytes = purgeableBytes;
  space.purgeableRuns = purgeableRuns;
  return space;
}

ExitCode showSpace(const Context& context) {
  Repository repository = Repository::openForReading(context);
  const Set::Space space = spaceOf(repository.manager());
  if (context.json) {
    std::cout << jsonText({{"file", repository.location()},
                           {"fileBytes", space.fileBytes},
                           {"logBytes", space.logBytes},
                           {"freeBytes", space.freeBytes},
                           {"purgeableBytes", space.purgeableBytes},
                           {"purgeableRuns", space.purgeableRuns}});
    return kDone;
  }
  Table table({{"BYTES", Table::Align::right}, {"WHAT"}});
  table.addRow({humanBytes(space.fileBytes), repository.location()});
  table.addRow({humanBytes(space.logBytes), "its log; \"vela compact\" empties it"});
  table.addRow({humanBytes(space.freeBytes), "unused in it; \"vela compact\" gives them back"});
  table.addRow({humanBytes(space.purgeableBytes),
                "in " + counted(static_cast<std::uint64_t>(space.purgeableRuns), "run") +
                    " set aside for deletion; \"vela rm --purge\" removes them"});
  std::cout << table.str();
  return kDone;
}

ExitCode compact(const Context& context) {
  Repository repository = Repository::openForChanging(context);
  const std::uint64_t freed = repository.manager().compact();
  if (context.json) {
    std::cout << jsonText({{"file", repository.location()}, {"freedBytes", freed}});
  } else if (!context.quiet) {
    say(repository.location() + " is " + humanBytes(freed) + " shorter");
  }
  return kDone;
}

}  // namespace

void addSpaceCommands(CLI::App& app, Context& context) {
  CLI::App* const usage = app.add_subcommand(
      "du", "Show how large the repository is and what purging and compacting would free");
  addCommonOptions(*usage, context);
  usage->callback([&context] { context.command = [&context] { return showSpace(context); }; });

  CLI::App* const compacter =
      app.add_subcommand("compact", "Give unused space of the file back to the disk");
  addCommonOptions(*compacter, context);
  compacter->callback(
      [&context] { context.command = [&context] { return compact(context); }; });
}

}  // namespace vela::tool
