// `vela save`: the runs of a repository into a file for keeping or passing on.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

#include "saving/saving.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/outputfile.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/terminal.h"
#include "tools/vela/trackerbar.h"

namespace vela::tool {
namespace {

const OutputKind kSavedRuns{"a file of saved runs", saving::beginsLikeASavedFile};

ExitCode save(const Context& context, const std::string& file, bool force) {
  requireReplaceable(file, kSavedRuns, force);
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
      "save",
      "Write all runs to a data file; an older one is replaced when the new one is whole");
  addCommonOptions(*command, context);
  auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "The data file (HDF5)")->required();
  auto force = std::make_shared<bool>(false);
  addForceOption(*command, *force);
  command->callback([&context, file, force] {
    context.command = [&context, file, force] { return save(context, *file, *force); };
  });
}

}  // namespace vela::tool
