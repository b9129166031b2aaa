#include <fmt/format.h>

#include "client/cli/commands.h"
#include "client/cli/completion.h"
#include "client/core/text_io.h"

namespace nyxctl {
namespace {

constexpr char k_footer[] =
    R"(Completes commands, options, methods, messages, tables and fields, and the
names of the objects that the agent has; an agent that does not answer within
0.3 s has none. The packages install the scripts of all three shells.

Examples:
  source <(nyxctl completion bash)
  source <(nyxctl completion zsh)        after compinit
  nyxctl completion fish | source)";

// bash divides words at '=' and ':', too: they are joined again, and what comes before the last of these is cut off
// the answers.
constexpr char k_bash[] = R"(# Completion of nyxctl for bash, printed by "nyxctl completion bash".
_nyxctl() {
    local -a words=()
    local i word glue=''
    for ((i = 1; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ ${#words[@]} -gt 0 && ( -n $glue || $word =~ ^[=:]+$ ) ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
        [[ $word =~ ^[=:]+$ ]] && glue=yes || glue=''
    done
    [[ ${#words[@]} -gt 0 ]] || words=('')
    local current=${words[-1]}
    local prefix=${current%"${current##*[=:]}"}
    mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" __complete -- "${words[@]}" 2>/dev/null)
    if [[ ${COMPREPLY[0]-} == :files ]]; then
        COMPREPLY=()
        compopt -o default 2>/dev/null
        return 0
    fi
    COMPREPLY=("${COMPREPLY[@]#"$prefix"}")
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[=.\]] ]] && compopt -o nospace 2>/dev/null
    return 0
}
complete -F _nyxctl nyxctl
)";

// What is still open gets no blank. Options before the command are words, too.
constexpr char k_zsh[] = R"(#compdef nyxctl
# Completion of nyxctl for zsh, printed by "nyxctl completion zsh".
_nyxctl() {
    local -a names
    names=("${(@f)$("${(@Q)words[1]}" __complete -- "${(@Q)words[2,CURRENT-1]}" "$PREFIX" 2>/dev/null)}")
    if [[ $names[1] == :files ]]; then
        _files
        return
    fi
    compadd -S '' -- ${(M)names:#*[=.\]]}
    compadd -- ${names:#*[=.\]]}
}
if [[ $funcstack[1] == _nyxctl ]]; then
    _nyxctl "$@"
elif (( $+functions[compdef] )); then
    compdef _nyxctl nyxctl
fi
)";

// fish itself appends no blank to what ends in '=' or '.'.
constexpr char k_fish[] = R"(# Completion of nyxctl for fish, printed by "nyxctl completion fish".
function __nyxctl_names
    set -l words (commandline -opc)
    set -l names ($words[1] __complete -- $words[2..-1] (commandline -ct) 2>/dev/null)
    if test "$names[1]" = :files
        __fish_complete_path (commandline -ct)
    else
        string join -- \n $names
    end
end
complete -c nyxctl -f -a '(__nyxctl_names)'
)";

// Answers the scripts.
outcome_s answer(const given_s &given) {
    const auto names = completions(all_commands(), given.all("WORD"));
    return write_stdout(fmt::format("{}\n", fmt::join(names, "\n")));
}

command_s script(const std::string &shell, const char *text) {
    return {"completion " + shell,
            "Print a completion script for " + shell,
            k_footer,
            {},
            [text](const given_s &) { return write_stdout(text); }};
}

}  // namespace

commands_t completion_commands() {
    return {{"completion", "Print a completion script for the shell", k_footer},
            script("bash", k_bash),
            script("zsh", k_zsh),
            script("fish", k_fish),
            {"__complete", "", "", {{"WORD", "", KIND_TEXT, COUNT_ANY}}, answer, true}};
}

}  // namespace nyxctl
