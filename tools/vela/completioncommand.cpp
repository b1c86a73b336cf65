// `vela completion SHELL`: a completion script made from the command line's own description, so
// that the two cannot disagree.
#include <iostream>
#include <string>

#include "tools/vela/context.h"

namespace vela::tool {
namespace {

std::string optionNames(const CLI::App& command) {
  std::string names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_snames()) names += "-" + name + " ";
    for (const std::string& name : option->get_lnames()) names += "--" + name + " ";
  }
  return names;
}

std::string bashScript(const CLI::App& app) {
  std::string commands;
  std::string cases;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands += command->get_name() + " ";
    cases += "    " + command->get_name() + ") words='" + optionNames(*command) + "' ;;\n";
  }
  return "_vela() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} words\n"
         "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
         "    COMPREPLY=($(compgen -W '" +
         commands + optionNames(app) +
         "' -- \"$current\"))\n"
         "    return\n"
         "  fi\n"
         "  case ${COMP_WORDS[1]} in\n" +
         cases +
         "  esac\n"
         "  case $current in\n"
         "    -*) COMPREPLY=($(compgen -W \"$words\" -- \"$current\")) ;;\n"
         "    *) COMPREPLY=($(compgen -f -- \"$current\")) ;;\n"
         "  esac\n"
         "}\n"
         "complete -o filenames -F _vela vela\n";
}

}  // namespace

void addCompletionCommand(CLI::App& app, Context& context) {
  CLI::App* const command =
      app.add_subcommand("completion", "Print a completion script for your shell");
  command->footer(
      "  bash: source <(vela completion bash)\n"
      "  zsh:  source <(vela completion zsh)");
  auto shell = std::make_shared<std::string>();
  command->add_option("SHELL", *shell, "bash or zsh")
      ->required()
      ->check(CLI::IsMember({"bash", "zsh"}));
  command->callback([&app, &context, shell] {
    context.command = [&app, shell] {
      if (*shell == "zsh") std::cout << "autoload -U +X bashcompinit && bashcompinit\n";
      std::cout << bashScript(app);
      return kDone;
    };
  });
}

}  // namespace vela::tool
