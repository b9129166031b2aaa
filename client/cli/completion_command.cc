#include <fmt/format.h>

#include "client/cli/commands.h"
#include "client/cli/completion.h"
#include "client/core/text_io.h"

namespace nyxctl {
namespace {

constexpr char k_footer[] =
    R"(Completes commands, options, methods, messages, tables and fields; needs no
agent.

Examples:
  source <(nyxctl completion bash)
  nyxctl completion bash > /etc/bash_completion.d/nyxctl)";

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

// Answers the script.
outcome_s answer(const given_s &given) {
    const auto names = completions(all_commands(), given.all("WORD"));
    return write_stdout(fmt::format("{}\n", fmt::join(names, "\n")));
}

}  // namespace

commands_t completion_commands() {
    return {{"completion", "Print a completion script for the shell", k_footer},
            {"completion bash",
             "Print a completion script for bash",
             k_footer,
             {},
             [](const given_s &) { return write_stdout(k_bash); }},
            {"__complete", "", "", {{"WORD", "", KIND_TEXT, COUNT_ANY}}, answer, true}};
}

}  // namespace nyxctl
