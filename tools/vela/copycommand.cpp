// `vela cp`: a copy of a run with all its signals.
#include <CLI/CLI.hpp>
#include <iostream>

#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/selection.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

ExitCode copyRun(const Context& context, const std::string& words, const std::string& name) {
  Repository repository = Repository::openAsSession(context);
  const boost::shared_ptr<Set> run = findRun(repository.manager(), words);
  std::unique_ptr<Set> copy;
  repository.manager().inTransaction([&] {
    copy = run->clone(run->getApplication());
    if (!name.empty()) copy->setName(text::toWide(name));
  });
  const int number = copy->getRunNumber();
  if (context.json) {
    std::cout << jsonText(
        {{"copied", run->getID()}, {"id", copy->getID()}, {"number", number}});
  } else if (!context.quiet) {
    say("copied run " + std::to_string(run->getID()) + " to run " +
        std::to_string(copy->getID()) + ", number " + std::to_string(number));
  }
  return kDone;
}

}  // namespace

void addCopyCommand(CLI::App& app, Context& context) {
  CLI::App* const command =
      app.add_subcommand("cp", "Copy a run with its signals, samples and metadata");
  addCommonOptions(*command, context);
  auto run = std::make_shared<std::string>();
  auto name = std::make_shared<std::string>();
  command->add_option("RUN", *run, "ID or name of a run")->required();
  command->add_option("--name", *name, "Name of the copy; default: that of the run");
  command->callback([&context, run, name] {
    context.command = [&context, run, name] { return copyRun(context, *run, *name); };
  });
}

}  // namespace vela::tool
