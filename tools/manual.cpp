#include "tools/manual.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "tools/operations.h"
#include "tools/words.h"

namespace rastrel::tool {
namespace {

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// Those that the help shows.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

// "--output", "-o"
std::vector<std::string> NamesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  return names;
}

// "N" of "N:20 to 20000"; nothing where it takes none.
std::string ValueOf(const CLI::Option& option) {
  const std::string name = option.get_items_expected_max() > 0 ? option.get_type_name() : "";
  return name.substr(0, name.find(':'));
}

std::string Replaced(std::string_view text, std::string_view characters, std::string_view before) {
  std::string result;
  for (const char c : text) {
    if (characters.find(c) != std::string_view::npos) result += before;
    result += c;
  }
  return result;
}

// ---- the manual page --------------------------------------------------------------------------------------

std::string Upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

// Text as roff takes it: a hyphen that can be typed, and no line that looks like a request.
std::string Roff(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else if ((c == '.' || c == '\'') && (result.empty() || result.back() == '\n')) {
      result += std::string("\\&") + c;
    } else {
      result += c;
    }
  }
  return result;
}

std::string OptionsRoff(const CLI::App& command) {
  std::string text;
  for (const CLI::Option* option : OptionsOf(command)) {
    const std::vector<std::string> names = NamesOf(*option);
    const std::string value = ValueOf(*option);
    text += ".TP\n";
    text += names.empty()
                ? fmt::format(".I {}\n", Roff(value))
                : fmt::format(".BR {} {}\n",
                              Roff(fmt::format("{}", fmt::join(names, ", "))).insert(0, "\"") + "\"",
                              value.empty() ? "" : fmt::format("\" \\fI{}\\fR\"", Roff(value)));
    text += Roff(option->get_description()) + "\n";
  }
  return text;
}

// ---- completions ------------------------------------------------------------------------------------------

std::string BashCompletion(const CLI::App& app) {
  std::string cases, commands;
  for (const CLI::App* command : CommandsOf(app)) {
    commands += (commands.empty() ? "" : " ") + command->get_name();
    std::string words;
    for (const CLI::Option* option : OptionsOf(*command)) {
      for (const std::string& name : NamesOf(*option)) words += (words.empty() ? "" : " ") + name;
    }
    cases += fmt::format("    {}) words='{}' ;;\n", command->get_name(), words);
  }
  std::string operations;
  for (const Operation& operation : Operations()) operations += fmt::format(" {}", operation.name);
  return fmt::format(R"(# Completions of rastrel for bash.
_rastrel() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} words=
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W '{} --help --version' -- "$word"))
    return
  fi
  case "${{COMP_WORDS[1]}}" in
{}  esac
  case "$word" in
    -*) COMPREPLY=($(compgen -W "$words" -- "$word")) ;;
    *)
      COMPREPLY=($(compgen -f -- "$word"))
      [ "${{COMP_WORDS[1]}}" != apply ] || COMPREPLY+=($(compgen -W '{}' -- "$word"))
      ;;
  esac
}}
complete -o filenames -F _rastrel rastrel
)",
                     commands, cases, operations.substr(1));
}

// The first line of a help text, in single quotes.
std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text.substr(0, text.find('\n'))) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string ZshCompletion(const CLI::App& app) {
  std::string commands, cases;
  for (const CLI::App* command : CommandsOf(app)) {
    commands += fmt::format(
        "    {}\n", Quoted(command->get_name() + ":" + Replaced(command->get_description(), ":", "\\")));
    cases += fmt::format("    {})\n      _arguments -s \\\n", command->get_name());
    for (const CLI::Option* option : OptionsOf(*command)) {
      const std::string help = option->get_description();
      for (const std::string& name : NamesOf(*option)) {
        const std::string value = ValueOf(*option).empty() ? "" : fmt::format(":{}:_files", ValueOf(*option));
        cases +=
            fmt::format("        {} \\\n",
                        Quoted(fmt::format("*{}[{}]{}", name,
                                           Replaced(help.substr(0, help.find('\n')), "[]:", "\\"), value)));
      }
    }
    cases += "        '*:file:_files' ;;\n";
  }
  return fmt::format(R"(#compdef rastrel
# Completions of rastrel for zsh.
_rastrel() {{
  local -a commands=(
{}  )
  if (( CURRENT == 2 )); then
    _describe command commands
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
{}  esac
}}
_rastrel "$@"
)",
                     commands, cases);
}

std::string FishCompletion(const CLI::App& app) {
  std::string text = "# Completions of rastrel for fish.\n";
  for (const CLI::App* command : CommandsOf(app)) {
    text += fmt::format("complete -c rastrel -n __fish_use_subcommand -f -a {} -d {}\n", command->get_name(),
                        Quoted(Replaced(command->get_description(), "\\", "\\")));
    for (const CLI::Option* option : OptionsOf(*command)) {
      text += fmt::format("complete -c rastrel -n '__fish_seen_subcommand_from {}'", command->get_name());
      for (const std::string& name : option->get_lnames()) text += " -l " + name;
      for (const std::string& name : option->get_snames()) text += " -s " + name;
      if (NamesOf(*option).empty()) {
        text += " -F\n";
        continue;
      }
      if (!ValueOf(*option).empty()) text += " -r";
      text += fmt::format(" -d {}\n", Quoted(Replaced(option->get_description(), "\\", "\\")));
    }
  }
  return text;
}

}  // namespace

std::string ManualPage(const CLI::App& app) {
  std::string text = fmt::format(
      ".TH RASTREL 1 \"\" \"Rastrel {}\" \"User Commands\"\n.SH NAME\nrastrel \\- {}\n.SH SYNOPSIS\n",
      RASTREL_VERSION, "make straight, clean pages of scanned ones");
  for (const CLI::App* command : CommandsOf(app)) {
    std::string positional;
    for (const CLI::Option* option : OptionsOf(*command)) {
      if (NamesOf(*option).empty()) positional += " " + option->get_type_name();
    }
    text += fmt::format(".B rastrel {}\n.RI [options] \" {}\"\n.br\n", command->get_name(), Roff(positional));
  }
  text += fmt::format(".SH DESCRIPTION\n{}\n", Roff(app.get_description()));
  for (const CLI::App* command : CommandsOf(app)) {
    text += fmt::format(".SH \"RASTREL {}\"\n{}.\n", Upper(command->get_name()),
                        Roff(command->get_description()));
    text += OptionsRoff(*command);
  }
  text += ".SH OPERATIONS\nOf\n.BR \"rastrel apply\" :\n";
  for (const Operation& operation : Operations()) {
    text += fmt::format(".TP\n.B {}\n{} Depths: {}.\n", Roff(Synopsis(operation)), Roff(operation.summary),
                        operation.depths);
  }
  return text +
         ".SH EXIT STATUS\n.TP\n.B 0\nAll pages are done.\n.TP\n.B 1\nSome failed.\n.TP\n.B 2\nThe words on "
         "the "
         "command line cannot be used.\n.TP\n.B 130\nInterrupted.\n";
}

std::string Completion(const CLI::App& app, std::string_view shell) {
  if (shell == "bash") return BashCompletion(app);
  if (shell == "zsh") return ZshCompletion(app);
  if (shell == "fish") return FishCompletion(app);
  throw UsageError(fmt::format("--print-completion: '{}' is not one of bash, zsh, fish", shell));
}

}  // namespace rastrel::tool
