// What every command knows: where to work, how to speak, how it ended.
#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <string>

namespace vela::tool {

/// How the command ends; the numbers are a promise to scripts.
enum ExitCode : int {
  kDone = 0,
  kDifferent = 1,      ///< compared, and outside the tolerances
  kFailed = 2,         ///< failed and nothing was changed; or not all of the output was taken
  kLoss = 3,           ///< done, but something in the input could not be read
  kInterrupted = 130,  ///< stopped by Ctrl-C, nothing was changed
};

struct Context {
  std::string repository;  ///< path of the file; empty: the user's shared repository
  bool json = false;
  bool quiet = false;
  bool durable = false;
  bool trace = false;  ///< tell at the end which statements took how long
  /// What the chosen subcommand does; set while the command line is read.
  std::function<ExitCode()> command;
};

/// Adds the options every command takes.
void addCommonOptions(CLI::App& command, Context& context);
/// The one of them that may stand before the command too.
void addTraceOption(CLI::App& command, Context& context);

void addImportCommand(CLI::App& app, Context& context);
void addListCommand(CLI::App& app, Context& context);
void addInfoCommand(CLI::App& app, Context& context);
void addCatCommand(CLI::App& app, Context& context);
void addRemoveCommand(CLI::App& app, Context& context);
void addCompareCommand(CLI::App& app, Context& context);
void addCopyCommand(CLI::App& app, Context& context);
void addSessionsCommands(CLI::App& app, Context& context);
void addUndoCommand(CLI::App& app, Context& context);
void addSpaceCommands(CLI::App& app, Context& context);
void addCheckCommand(CLI::App& app, Context& context);
void addSalvageCommand(CLI::App& app, Context& context);
void addSaveCommand(CLI::App& app, Context& context);
void addLoadCommand(CLI::App& app, Context& context);
void addCompletionCommand(CLI::App& app, Context& context);

}  // namespace vela::tool
