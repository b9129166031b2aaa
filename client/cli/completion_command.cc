#include "client/cli/completion_command.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <string_view>

#include "client/cli/completion_names.h"
#include "client/core/text_io.h"

namespace nyxctl {
namespace {

constexpr char k_asked[] = "__complete";

constexpr char k_footer[] =
    R"(Commands, options, methods, messages, tables and fields complete with no agent running.

Examples:
  source <(nyxctl completion bash)
  nyxctl completion bash > /etc/bash_completion.d/nyxctl)";

// bash divides words at '=' and ':' too: they are put together again, and what stands before the last of them is
// taken off the answers.
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
    COMPREPLY=("${COMPREPLY[@]#"$prefix"}")
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[=.\]] ]] && compopt -o nospace 2>/dev/null
    return 0
}
complete -o default -F _nyxctl nyxctl
)";

// How far a command line has come.
struct place_s {
    const CLI::App *command;
    std::vector<std::string> positionals;  // of that command
    const CLI::Option *option = nullptr;   // the word before was this option and wants a value
};

const CLI::Option *find_option(const CLI::App *command, const std::string &word) {
    for (; command; command = command->get_parent()) {
        if (const CLI::Option *option = command->get_option_no_throw(word)) {
            return option;
        }
    }
    return nullptr;
}

const CLI::App *find_command(const CLI::App *parent, const std::string &name) {
    for (const CLI::App *command : parent->get_subcommands([](const CLI::App *) { return true; })) {
        if (command->check_name(name)) {
            return command;
        }
    }
    return nullptr;
}

void step(place_s *place, const std::string &word) {
    if (place->option) {
        place->option = nullptr;
    } else if (word.size() > 1 && word.starts_with('-')) {
        const CLI::Option *option = find_option(place->command, word);
        place->option = option && option->get_expected_min() > 0 ? option : nullptr;
    } else if (const CLI::App *command = find_command(place->command, word)) {
        *place = {.command = command, .positionals = {}};
    } else {
        place->positionals.push_back(word);
    }
}

const CLI::Option *positional_at(const place_s &place) {
    size_t left = place.positionals.size();
    for (const CLI::Option *option : place.command->get_options()) {
        if (!option->get_positional() || option->get_group().empty()) {
            continue;
        }
        const size_t takes = static_cast<size_t>(option->get_items_expected_max());
        if (left < takes) {
            return option;
        }
        left -= takes;
    }
    return nullptr;
}

bool is_choice(std::string_view word) {
    return !word.empty() && std::ranges::all_of(word, [](unsigned char c) {
        return std::islower(c) || std::isdigit(c) || c == '-';
    });
}

// Of the type "on|off|p4=MHZ" on, off, p4=; names in upper case stand for something else.
void add_choices(const std::string &type, std::vector<std::string> *found) {
    for (size_t at = 0; at < type.size();) {
        const size_t end = std::min(type.find('|', at), type.size());
        const std::string_view word = std::string_view(type).substr(at, end - at);
        const size_t equals = std::min(word.find('='), word.size());
        const bool has_value = equals + 1 < word.size();
        if (is_choice(word.substr(0, equals)) && (!has_value || std::isupper(word[equals + 1]))) {
            found->emplace_back(word.substr(0, equals + 1));
        }
        at = end + 1;
    }
}

void add_options(const CLI::App *command, std::vector<std::string> *found) {
    for (; command; command = command->get_parent()) {
        for (const CLI::Option *option : command->get_options()) {
            for (const std::string &name : option->get_lnames()) {
                found->push_back("--" + name);
            }
            for (const std::string &name : option->get_snames()) {
                found->push_back("-" + name);
            }
        }
    }
}

void add_commands(const CLI::App *parent, std::vector<std::string> *found) {
    for (const CLI::App *command : parent->get_subcommands([](const CLI::App *) { return true; })) {
        if (!command->get_group().empty()) {
            found->push_back(command->get_name());
        }
    }
}

// The command as the user names it: "set port".
std::string command_words(const CLI::App *command) {
    std::string words;
    for (; command->get_parent(); command = command->get_parent()) {
        words = command->get_name() + (words.empty() ? "" : " " + words);
    }
    return words;
}

void add_values(const place_s &place, const std::string &current, std::vector<std::string> *found) {
    const CLI::Option *option = place.option ? place.option : positional_at(place);
    if (option) {
        add_choices(option->get_type_name(), found);
        add_names(command_words(place.command), option->get_single_name(), place.positionals, current, found);
    }
}

}  // namespace

std::vector<std::string> completions(const CLI::App *app, std::vector<std::string> words) {
    const std::string current = words.empty() ? "" : words.back();
    place_s place{.command = app, .positionals = {}};
    for (size_t i = 0; i + 1 < words.size(); i++) {
        step(&place, words[i]);
    }
    std::vector<std::string> found;
    if (!place.option && current.starts_with('-')) {
        add_options(place.command, &found);
    } else {
        if (!place.option && place.positionals.empty()) {
            add_commands(place.command, &found);
        }
        add_values(place, current, &found);
    }
    std::erase_if(found, [&](const std::string &name) { return !name.starts_with(current); });
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

void add_completion_commands(CLI::App *app, context_s *context) {
    CLI::App *command = add_command(app, "completion", "Print a completion script for the shell", k_footer);
    CLI::App *bash = add_command(command, "bash", "Print a completion script for bash", k_footer);
    command->require_subcommand(1);
    bash->callback([context] { context->run = [] { return write_stdout(k_bash); }; });

    CLI::App *asked = app->add_subcommand(k_asked, "")->group("");
    const auto words = std::make_shared<std::vector<std::string>>();
    asked->add_option("WORD", *words);
    asked->callback([app, context, words] {
        context->run = [app, words] {
            std::string text;
            for (const std::string &name : completions(app, *words)) {
                text += name + "\n";
            }
            return write_stdout(text);
        };
    });
}

}  // namespace nyxctl
