// `vela rm`: removes runs with everything that belongs to them.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "kodiag/message.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/selection.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

// Asks on a terminal; elsewhere only --yes will do.
bool confirmed(const std::string& question, bool yes) {
  if (yes) return true;
  if (isatty(STDIN_FILENO) != 1) {
    kodiag::raise({"VELA:vela", "NeedsConfirmation"}, {{"Operation", question}});
  }
  std::cerr << question << "? [y/N] ";
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
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
             printable(text::toUtf8(found->getRunDisplayName())) + ")";
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
  command->add_option("RUN", *runs, "IDs or names of runs")->required();
  command->add_flag("-y,--yes", *yes, "Do not ask");
  command->callback([&context, runs, yes] {
    context.command = [&context, runs, yes] { return remove(context, *runs, *yes); };
  });
}

}  // namespace vela::tool
