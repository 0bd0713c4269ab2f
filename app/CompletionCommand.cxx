#include "app/Command.h"
#include "app/CommandParts.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  source <(kelvo completion bash)
      completes commands and options with the tab key, in ~/.bashrc for every shell
  kelvo completion zsh > ~/.zfunc/_kelvo
      the same for zsh, in a folder of its fpath)";

const char* const kBash = R"(_kelvo() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} words=
  if [ "$COMP_CWORD" = 1 ]; then
    words='{0}'
  elif [[ $word == -* ]]; then
    case ${{COMP_WORDS[1]}} in
{1}    esac
  fi
  COMPREPLY=($(compgen -W "$words" -- "$word"))
}}
complete -o default -F _kelvo kelvo
)";

const char* const kZsh = R"(#compdef kelvo
_kelvo() {{
  if (( CURRENT == 2 )); then
    compadd -- {0}
  elif [[ $words[CURRENT] == -* ]]; then
    case $words[2] in
{1}    esac
  else
    _files
  fi
}}
if [ "$funcstack[1]" = _kelvo ]; then _kelvo "$@"; else compdef _kelvo kelvo; fi
)";

/// Names of all options of a command, with their hyphens.
std::string Options(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return fmt::format(FMT_STRING("{}"), fmt::join(names, " "));
}

std::string Script(const CLI::App& program, bool isBash) {
  std::string cases;
  for (const CLI::App* command : Commands(program))
    cases += isBash ? fmt::format(FMT_STRING("      {}) words='{}' ;;\n"), command->get_name(),
                                  Options(*command))
                    : fmt::format(FMT_STRING("      {}) compadd -- {} ;;\n"), command->get_name(),
                                  Options(*command));
  const std::string names = fmt::format(FMT_STRING("{}"), fmt::join(CommandNames(program), " "));
  return fmt::format(fmt::runtime(isBash ? kBash : kZsh), names, cases);
}

} // namespace

Command MakeCompletionCommand(CLI::App& program) {
  CLI::App* completion =
      program.add_subcommand("completion", "Prints what completes commands in a shell.");
  completion->footer(kExamples);
  auto shell = std::make_shared<std::string>();
  completion->add_option("shell", *shell, "bash or zsh")
      ->required()
      ->check(OneOf({"bash", "zsh"}))
      ->type_name("SHELL");
  return {completion, [&program, shell] {
            fmt::print(FMT_STRING("{}"), Script(program, *shell == "bash"));
            return 0;
          }};
}

} // namespace kelvo::app
