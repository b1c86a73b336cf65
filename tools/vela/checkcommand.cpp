// `vela check`: whether the file is whole, as far as that can be told.
#include <CLI/CLI.hpp>
#include <iostream>

#include "objects/integrity.h"
#include "text/printable.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

ExitCode check(const Context& context) {
  Repository repository = Repository::openForReading(context);
  kodiag::util::diagnostics diag;
  std::vector<std::string> problems = repository.manager().repository().integrityProblems(diag);
  diag.raiseIfAny();
  // Without sound tables there are no signals to ask about.
  if (problems.empty()) problems = findSignalProblems(repository.manager());
  const bool whole = problems.empty();
  if (context.json) {
    std::cout << jsonText(
        {{"file", repository.location()},
         {"whole", whole},
         {"checked", {"pages", "tables", "indexes", "objects", "references", "chunks"}},
         {"notChecked", {"sample values"}},
         {"problems", problems}});
  } else {
    for (const std::string& problem : problems) std::cout << text::printable(problem) << "\n";
    if (!context.quiet || !whole) {
      std::cout
          << text::printable(repository.location())
          << (whole
                  ? " is whole. The values of samples carry no checksums and were not checked."
                  : " is damaged; the lines above say where.")
          << "\n";
    }
  }
  return whole ? kDone : kFailed;
}

}  // namespace

void addCheckCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "check", "Check that the file is whole; exit code 2 when it is damaged");
  command->footer(
      "Checked are the pages of the file, its tables and indexes; of every object its class,\n"
      "the kinds of its values and what it refers to; of chunks, whether the samples they "
      "count\n"
      "are there. Whether samples still have the values that were written cannot be checked:\n"
      "they carry no checksums.");
  addCommonOptions(*command, context);
  command->callback([&context] { context.command = [&context] { return check(context); }; });
}

}  // namespace vela::tool
