// `vela save`: the runs of a repository into a file for keeping or passing on.
#include <CLI/CLI.hpp>
#include <filesystem>
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

ExitCode save(const Context& context, const std::string& file) {
  Repository repository = Repository::openForReading(context);
  saving::Contents saved;
  {
    const TrackerBar bar("SavingProgressBar", "saving", context.quiet);
    saved = saving::save(repository.manager(), text::toWide(file), Set::Sessions::all);
  }
  const std::uint64_t bytes = std::filesystem::file_size(file);
  if (context.json) {
    std::cout << jsonText(
        {{"file", file}, {"runs", saved.runs}, {"signals", saved.signals}, {"bytes", bytes}});
  } else if (!context.quiet) {
    say("saved " + counted(static_cast<std::uint64_t>(saved.runs), "run") + " to " + file +
        " (" + humanBytes(bytes) + ")");
  }
  return kDone;
}

}  // namespace

void addSaveCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "save", "Write all runs to a data file; one of that name is replaced when it is whole");
  addCommonOptions(*command, context);
  auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "The data file (HDF5)")->required();
  command->callback([&context, file] {
    context.command = [&context, file] { return save(context, *file); };
  });
}

}  // namespace vela::tool
