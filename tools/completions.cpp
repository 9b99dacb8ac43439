#include "tools/completions.h"

#include <string_view>
#include <utility>
#include <vector>

namespace qiv {
namespace {

// All scripts work alike: a table says what a command ("qivctl library pack") may be followed by, and what kind of
// value an option of it takes; a walk over the words before the cursor finds the command. Kinds of values: "words A B",
// "file", "folder", "text"; nothing for a flag.

struct Word {
  std::string name;
  std::string meaning;
};

struct ValueRow {
  std::string option;  ///< empty: an argument without a name of its own
  std::string kind;
};

struct CommandRow {
  std::string path;
  std::vector<Word> commands;
  std::vector<Word> options;
  std::vector<ValueRow> values;
};

std::string KindOf(const CCommandOption& option) {
  if (!option.ChoicesOf().empty()) {
    std::string kind = "words";
    for (const std::string& choice : option.ChoicesOf()) kind += " " + choice;
    return kind;
  }
  return option.Kind() == ValueKind::kFile ? "file" : option.Kind() == ValueKind::kFolder ? "folder" : "text";
}

CommandRow RowOf(const CCommand& command, bool is_program) {
  CommandRow row;
  row.path = command.Path();
  for (const auto& below : command.Commands()) row.commands.push_back({below->Name(), below->Meaning()});
  for (const CCommandOption* const option : command.Options()) {
    if (option->IsHidden()) continue;
    if (option->IsPositional()) {
      row.values.push_back({"", KindOf(*option)});
      continue;
    }
    for (const std::string& name : option->Names()) {
      row.options.push_back({name, option->Meaning()});
      if (!option->IsFlag()) row.values.push_back({name, KindOf(*option)});
    }
  }
  row.options.push_back({"--help", "Print what there is and exit"});
  if (is_program) row.options.push_back({"--version", "Print the version and exit"});
  return row;
}

/// Of the program and of every command below it; commands stand two deep at most, so this goes no deeper either.
std::vector<CommandRow> RowsOf(const CCommand& program) {
  std::vector<CommandRow> rows = {RowOf(program, true)};
  for (const auto& command : program.Commands()) {
    rows.push_back(RowOf(*command, false));
    for (const auto& below : command->Commands()) rows.push_back(RowOf(*below, false));
  }
  return rows;
}

std::string Replaced(std::string text, std::string_view what, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string NamesOf(const std::vector<Word>& words) {
  std::string names;
  for (const Word& word : words) names += (names.empty() ? "" : " ") + word.name;
  return names;
}

/// "        'qivctl lint --color') kind='words auto' ;;", the same in bash and zsh.
std::string ShellValueCases(const std::vector<CommandRow>& rows) {
  std::string cases;
  for (const CommandRow& row : rows) {
    for (const ValueRow& value : row.values) {
      cases += "        '" + row.path + " " + value.option + "') kind='" + value.kind + "' ;;\n";
    }
  }
  return cases;
}

constexpr std::string_view kBash = R"(# bash completion of {name}, made by "{name} completions bash".
_{name}_value() {  # the kind of value that option $2 of command $1 takes
    kind=
    case "$1 $2" in
{values}    esac
}

_{name}() {
    local current=${COMP_WORDS[COMP_CWORD]} path={name} index word kind= commands= options= after_option=
    COMPREPLY=()
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ $word == = ]]; then
            continue
        elif [[ -n $after_option ]]; then
            after_option=
        elif [[ $word == -* ]]; then
            _{name}_value "$path" "$word"
            after_option=$kind
        else
            case "$path $word" in
                {paths}) path="$path $word" ;;
            esac
        fi
    done
    [[ $current == = ]] && current=
    case "$path" in
{words}    esac
    if [[ -n $after_option ]]; then
        kind=$after_option
    elif [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$current"))
        return
    else
        _{name}_value "$path" ""
        [[ -n $commands ]] && COMPREPLY=($(compgen -W "$commands" -- "$current"))
    fi
    case "$kind" in
        words*) COMPREPLY+=($(compgen -W "${kind#words }" -- "$current")) ;;
        file) mapfile -t COMPREPLY < <(compgen -f -- "$current"); compopt -o filenames 2>/dev/null ;;
        folder) mapfile -t COMPREPLY < <(compgen -d -- "$current"); compopt -o filenames 2>/dev/null ;;
    esac
}
complete -F _{name} {name}
)";

constexpr std::string_view kZsh = R"(#compdef {name}
# zsh completion of {name}, made by "{name} completions zsh".
_{name}_value() {  # the kind of value that option $2 of command $1 takes
    kind=
    case "$1 $2" in
{values}    esac
}

_{name}_complete() {
    case "$1" in
        words*) compadd -- ${=1#words } ;;
        file) _files ;;
        folder) _files -/ ;;
        *) return 1 ;;
    esac
}

_{name}() {
    local command_path={name} word kind after_option index
    local -a commands options
    for ((index = 2; index < CURRENT; ++index)); do
        word=${words[index]}
        if [[ -n $after_option ]]; then
            after_option=
        elif [[ $word == -*=* ]]; then
            continue
        elif [[ $word == -* ]]; then
            _{name}_value "$command_path" "$word"
            after_option=$kind
        else
            case "$command_path $word" in
                {paths}) command_path="$command_path $word" ;;
            esac
        fi
    done
    case "$command_path" in
{words}    esac
    if [[ -n $after_option ]]; then
        _{name}_complete "$after_option"
    elif [[ $PREFIX == --*=* ]]; then
        _{name}_value "$command_path" "${PREFIX%%=*}"
        compset -P '*='
        _{name}_complete "$kind"
    elif [[ $PREFIX == -* ]]; then
        _describe option options
    else
        (( $#commands )) && _describe command commands
        _{name}_value "$command_path" ""
        _{name}_complete "$kind"
    fi
}
if [[ $zsh_eval_context[-1] == loadautofunc ]]; then
    _{name} "$@"
else
    compdef _{name} {name}
fi
)";

constexpr std::string_view kPowershell = R"(# PowerShell completion of {name}, made by "{name} completions powershell".
Register-ArgumentCompleter -Native -CommandName '{name}', '{name}.exe' -ScriptBlock {
    param($wordToComplete, $commandAst, $cursorPosition)
    $words = @{
{words}    }
    $values = @{
{values}    }
    $path = '{name}'
    $afterOption = $null
    $elements = @($commandAst.CommandElements | Select-Object -Skip 1 | Where-Object { $_.Extent.EndOffset -lt $cursorPosition })
    foreach ($element in $elements) {
        $word = $element.Extent.Text
        if ($afterOption) { $afterOption = $null }
        elseif ($word.StartsWith('-')) { $afterOption = $values["$path $word"] }
        elseif ($words.ContainsKey("$path $word")) { $path = "$path $word" }
    }
    $kind = if ($afterOption) { $afterOption } else { $values["$path "] }
    $found = @()
    if (-not $afterOption) {
        $found = @($words[$path] | Where-Object { $_[0].StartsWith('-') -eq $wordToComplete.StartsWith('-') })
    }
    if ($kind -and $kind.StartsWith('words ')) { $found += @($kind.Substring(6).Split(' ') | ForEach-Object { ,@($_, $_) }) }
    # Where nothing is returned, PowerShell completes the names of files.
    $found | Where-Object { $_[0] -like "$wordToComplete*" } | ForEach-Object {
        [System.Management.Automation.CompletionResult]::new($_[0], $_[0], 'ParameterValue', $_[1])
    }
}
)";

/// 'a: what it is' with what zsh takes for a division before the meaning kept out of the name.
std::string ZshWords(const std::vector<Word>& words) {
  std::string text;
  for (const Word& word : words) {
    text += (text.empty() ? "'" : " '") + word.name + ":" + Replaced(word.meaning, "'", "'\\''") + "'";
  }
  return text;
}

std::string BashWordCases(const std::vector<CommandRow>& rows) {
  std::string cases;
  for (const CommandRow& row : rows) {
    cases += "        '" + row.path + "') commands='" + NamesOf(row.commands) + "' options='" + NamesOf(row.options) +
             "' ;;\n";
  }
  return cases;
}

std::string ZshWordCases(const std::vector<CommandRow>& rows) {
  std::string cases;
  for (const CommandRow& row : rows) {
    cases += "        '" + row.path + "')\n            commands=(" + ZshWords(row.commands) +
             ")\n            options=(" + ZshWords(row.options) + ") ;;\n";
  }
  return cases;
}

std::string PowershellWords(const std::vector<CommandRow>& rows) {
  std::string table;
  for (const CommandRow& row : rows) {
    table += "        '" + row.path + "' = @(";
    std::string separator;
    for (const std::vector<Word>* const words : {&row.commands, &row.options}) {
      for (const Word& word : *words) {
        // The comma before it keeps PowerShell from flattening an array that holds a single word.
        table += separator + "\n            ,@('" + word.name + "', '" + Replaced(word.meaning, "'", "''") + "')";
        separator.clear();
      }
    }
    table += ")\n";
  }
  return table;
}

std::string PowershellValues(const std::vector<CommandRow>& rows) {
  std::string table;
  for (const CommandRow& row : rows) {
    for (const ValueRow& value : row.values) {
      table += "        '" + row.path + " " + value.option + "' = '" + value.kind + "'\n";
    }
  }
  return table;
}

}  // namespace

std::string CompletionScript(const CCommand& program, CompletedShell shell) {
  const std::vector<CommandRow> rows = RowsOf(program);
  std::string script(shell == CompletedShell::kBash ? kBash : shell == CompletedShell::kZsh ? kZsh : kPowershell);
  std::string paths;
  for (const CommandRow& row : rows) {
    if (row.path != program.Name()) paths += (paths.empty() ? "'" : " | '") + row.path + "'";
  }
  const bool is_powershell = shell == CompletedShell::kPowershell;
  script = Replaced(std::move(script), "{name}", program.Name());
  script = Replaced(std::move(script), "{paths}", paths);
  script = Replaced(std::move(script), "{words}",
                    is_powershell                    ? PowershellWords(rows)
                    : shell == CompletedShell::kBash ? BashWordCases(rows)
                                                     : ZshWordCases(rows));
  return Replaced(std::move(script), "{values}", is_powershell ? PowershellValues(rows) : ShellValueCases(rows));
}

}  // namespace qiv
