// `vela load`: runs that were saved become runs of this repository.
#include <CLI/CLI.hpp>
#include <iostream>

#include "saving/saving.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/terminal.h"
#include "tools/vela/trackerbar.h"

namespace vela::tool {
namespace {

ExitCode load(const Context& context, const std::string& file) {
  // Before a repository is made for it.
  saving::checkFile(text::toWide(file));
  Repository repository = Repository::openForWriting(context);
  saving::Contents loaded;
  {
    const TrackerBar bar("LoadingProgressBar", "loading", context.quiet);
    loaded = saving::load(repository.manager(), text::toWide(file));
  }
  if (context.json) {
    std::cout << jsonText({{"file", file}, {"runs", loaded.runs}, {"signals", loaded.signals}});
  } else if (!context.quiet) {
    say("loaded " + counted(static_cast<std::uint64_t>(loaded.runs), "run") + " into " +
        repository.location());
  }
  return kDone;
}

}  // namespace

void addLoadCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "load", "Read the runs of a saved data file: all of them or, if it is damaged, none");
  addCommonOptions(*command, context);
  auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "A file that \"vela save\" wrote")->required();
  command->callback([&context, file] {
    context.command = [&context, file] { return load(context, *file); };
  });
}

}  // namespace vela::tool
