// The command `vela`: reads the command line, runs one subcommand, turns failures into one
// clear sentence and an exit code.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <sstream>
#include <utility>

#include "kodiag/diagnostics.h"
#include "text/printable.h"
#include "tools/vela/context.h"
#include "tools/vela/interruption.h"
#include "tools/vela/standardstreams.h"
#include "tools/vela/statementreport.h"
#include "tools/vela/terminal.h"
#include "tools/vela/version.h"

namespace vela::tool {
namespace {

constexpr const char* kIntroduction =
    "Keeps simulation runs and recordings in one repository file and reads them back.\n\n"
    "  vela import out.raw --into lab.dmr     read a recording into a repository\n"
    "  vela ls -r lab.dmr                     list its runs\n"
    "  vela ls 256 -r lab.dmr                 list the signals of run 256\n"
    "  vela cat 'v(out)' --from 1e-3 --to 2e-3 -r lab.dmr   print a range as CSV\n"
    "  vela compare 256 768 -r lab.dmr        whether two runs agree within tolerances\n\n"
    "Without --repository (or VELA_REPOSITORY) it works on your shared repository.";

constexpr const char* kExitCodes =
    "Exit codes: 0 done, 1 compared and different, 2 usage or operation failed, or not all of\n"
    "the output was taken, 3 done but something in the input could not be read, 130 stopped "
    "by\n"
    "Ctrl-C.\n"
    "Data goes to standard output, words and progress to standard error; NO_COLOR is honoured.";

/// What the parser says holds words of the command line.
ExitCode showHelpOrError(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream help;
  std::ostringstream complaint;
  const bool isHelp = app.exit(error, help, complaint) == 0;
  std::cout << text::printable(help.str(), text::LineEnds::kept);
  std::cerr << text::printable(complaint.str(), text::LineEnds::kept);
  return isHelp ? kDone : kFailed;
}

/// The message with its arguments made printable, so that the only line ends are the text's
/// own.
kodiag::Message printable(kodiag::Message message) {
  for (auto& [name, value] : message.arguments) value = text::printable(value);
  for (kodiag::Message& cause : message.causes) cause = printable(std::move(cause));
  return message;
}

ExitCode run(int argc, char** argv) {
  Context context;
  CLI::App app{kIntroduction, "vela"};
  app.footer(kExitCodes);
  app.set_version_flag("--version", std::string("vela ") + kVersion);
  app.require_subcommand(1);
  addImportCommand(app, context);
  addListCommand(app, context);
  addInfoCommand(app, context);
  addCatCommand(app, context);
  addRemoveCommand(app, context);
  addCompareCommand(app, context);
  addCopyCommand(app, context);
  addSessionsCommands(app, context);
  addUndoCommand(app, context);
  addSpaceCommands(app, context);
  addCheckCommand(app, context);
  addSalvageCommand(app, context);
  addSaveCommand(app, context);
  addLoadCommand(app, context);
  addCompletionCommand(app, context);
  addTraceOption(app, context);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return showHelpOrError(app, error);
  }
  // Not an option's own default: every subcommand's would write the one context.
  if (const char* repository = std::getenv("VELA_REPOSITORY");
      repository && context.repository.empty()) {
    context.repository = repository;
  }
  if (context.durable) setenv("VELA_DURABILITY", "durable", 1);
  const std::optional<StatementReport> report =
      context.trace ? std::make_optional<StatementReport>() : std::nullopt;
  return context.command();
}

/// Whatever fails after Ctrl-C fails for that.
ExitCode failWith(const std::string& words) {
  complain(wasInterrupted() ? "interrupted; what was begun is undone" : words);
  return wasInterrupted() ? kInterrupted : kFailed;
}

ExitCode runOrComplain(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    return failWith(printable(error.innermost()).textWithCauses());
  } catch (const std::exception& error) {
    return failWith(text::printable(error.what()));
  }
}

}  // namespace
}  // namespace vela::tool

int main(int argc, char** argv) {
  using namespace vela::tool;
  holdStandardStreams();
  stopOnInterrupt();
  const ExitCode code = runOrComplain(argc, argv);
  return finishOutput() ? code : kFailed;
}
