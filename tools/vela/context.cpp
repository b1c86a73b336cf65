#include "tools/vela/context.h"

namespace vela::tool {

void addCommonOptions(CLI::App& command, Context& context) {
  command
      .add_option(
          "-r,--repository,--into", context.repository,
          "Repository file (.dmr); default: VELA_REPOSITORY, else your shared repository")
      ->type_name("FILE");
  command.add_flag("--json", context.json, "Print the result as JSON");
  command.add_flag("-q,--quiet", context.quiet, "No progress and no words, errors only");
  command.add_flag(
      "--durable", context.durable,
      "Committed work survives a power cut too (slower; or VELA_DURABILITY=durable)");
  addTraceOption(command, context);
}

void addTraceOption(CLI::App& command, Context& context) {
  command.add_flag("--trace", context.trace,
                   "Tell on standard error which database statements took how long");
}

}  // namespace vela::tool
