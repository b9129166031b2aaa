#include "client/cli/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <sstream>
#include <utility>

#include "base/nearest_names.h"
#include "client/cli/commands.h"
#include "client/core/text_io.h"

namespace nyxctl {
namespace {

constexpr size_t k_help_width = 80;
constexpr size_t k_help_column = 24;  // where descriptions start

// In lines that fit beside the names.
std::string wrapped(std::string text) {
    size_t start = 0;
    while (text.size() - start > k_help_width - k_help_column) {
        const size_t blank = text.rfind(' ', start + k_help_width - k_help_column);
        if (blank == text.npos || blank < start) {
            break;
        }
        text[blank] = '\n';
        start = blank + 1;
    }
    return text;
}

std::string shown_value(const argument_s &argument) {
    if (!argument.shown.empty()) {
        return argument.shown;
    }
    switch (argument.kind) {
        case KIND_CHOICE:
            return fmt::format("{}", fmt::join(argument.choices, "|"));
        case KIND_NUMBER:
            return argument.is_option() ? "N" : "";
        case KIND_SECONDS:
            return "SECONDS";
        case KIND_FILE:
            return argument.is_option() ? "FILE" : "";
        default:
            return "";
    }
}

void set_count(CLI::Option *option, const argument_s &argument) {
    switch (argument.count) {
        case COUNT_ONE:
            break;
        case COUNT_OPTIONAL:
            option->expected(argument.is_option() ? 0 : 1, 1);
            break;
        case COUNT_SOME:
        case COUNT_ANY:
            option->expected(CLI::detail::expected_max_vector_size);
            break;
        case COUNT_TWO:
            option->expected(2);
            break;
        case COUNT_EACH:
            option->expected(CLI::detail::expected_max_vector_size)->allow_extra_args(false);
            break;
    }
    option->required(!argument.is_option() && (argument.count == COUNT_ONE || argument.count == COUNT_SOME));
}

void add_argument(CLI::App *app, const argument_s &argument) {
    const std::string about = wrapped(argument.about);
    if (argument.kind == KIND_FLAG) {
        app->add_flag(argument.name, about);
        return;
    }
    CLI::Option *option = app->add_option(argument.name, about);
    option->type_name(shown_value(argument))->envname(argument.variable)->default_str(argument.initial);
    option->check([&argument](const std::string &value) { return complaint(argument, value); }, "");
    set_count(option, argument);
}

void add_needs(CLI::App *app, const argument_s &argument) {
    for (const std::string &name : argument.needs) {
        app->get_option(argument.key())->needs(app->get_option(name));
    }
}

using added_t = std::vector<std::pair<const command_s *, CLI::App *>>;

void fill(CLI::App *app, const command_s &command) {
    app->footer(command.footer);
    app->require_subcommand(command.run ? 0 : 1);
    for (const argument_s &argument : command.arguments) {
        add_argument(app, argument);
    }
    for (const argument_s &argument : command.arguments) {
        add_needs(app, argument);
    }
}

// The row of a group comes before those of its commands.
added_t add_commands(CLI::App *app, const commands_t &commands) {
    added_t added;
    for (const command_s &command : commands) {
        CLI::App *parser = app;
        if (!command.path.empty()) {
            CLI::App *group = command.group().empty() ? app : app->get_subcommand(command.group());
            parser = group->add_subcommand(command.name(), wrapped(command.summary));
            parser->fallthrough();  // the options of the program may follow the command
            parser->group(command.hidden ? "" : "Subcommands");
        }
        fill(parser, command);
        added.emplace_back(&command, parser);
    }
    return added;
}

// Reads the values of the commands that were named, from the program down, and returns the last of these.
const command_s &read_values(const added_t &added, given_s *given) {
    const command_s *last = added.front().first;
    for (const auto &[command, parser] : added) {
        if (!parser->parsed()) {
            continue;
        }
        last = command;
        for (const argument_s &argument : command->arguments) {
            std::vector<std::string> values = parser->get_option(argument.key())->results();
            if (values.empty() && !argument.initial.empty()) {
                values = {argument.initial};
            }
            given->values[argument.key()] = std::move(values);
        }
    }
    return *last;
}

std::string parse_error_text(const CLI::App &app, const std::vector<std::string> &names,
                             const CLI::ParseError &error) {
    const std::vector<std::string> unknown = app.remaining(true);
    if (!unknown.empty()) {
        return names.empty() ? fmt::format("unexpected \"{}\"", unknown.front())
                             : fmt::format("unknown command or option \"{}\"{}", unknown.front(),
                                           base::nearest_names_text(unknown.front(), names));
    }
    return names.empty() || error.get_name() != "RequiredError"
               ? error.what()
               : fmt::format("incomplete command; give one of {}", fmt::join(names, ", "));
}

// Help and version leave the parser as exceptions too, with exit code 0.
outcome_s parse_error(const CLI::App &app, const added_t &added, const CLI::ParseError &error) {
    if (error.get_exit_code() == 0) {
        std::ostringstream out;
        std::ostringstream err;
        app.exit(error, out, err);
        return write_stdout(out.str());
    }
    given_s unused;
    const std::string path = read_values(added, &unused).path;
    std::vector<std::string> names;
    for (const auto &[command, parser] : added) {
        if (!command->path.empty() && command->group() == path && !command->hidden) {
            names.push_back(command->name());
        }
    }
    return usage_failure(fmt::format("{}; see nyxctl {}{}--help", parse_error_text(app, names, error), path,
                                     path.empty() ? "" : " "));
}

}  // namespace

outcome_s run_command_line(int argc, char **argv) {
    const commands_t commands = all_commands();
    CLI::App app(commands.front().summary, "nyxctl");
    app.set_version_flag("--version", std::string("nyxctl ") + NYX_VERSION);
    app.get_formatter()->column_width(k_help_column);
    const added_t added = add_commands(&app, commands);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return parse_error(app, added, error);
    }
    given_s given;
    const command_s &command = read_values(added, &given);
    given.global = global_options(given);
    outcome_s outcome = choose_labels(given);
    if (outcome.ok()) {
        outcome = command.run(given);
        note_labels_problems(given);
    }
    return outcome;
}

}  // namespace nyxctl
