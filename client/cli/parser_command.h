// How a command of nyxctl comes into being: a file for each group of commands adds them to the command line.

#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace nyxctl {

// Filled while the command line is parsed; lives until the program ends.
struct context_s {
    global_options_s global;
    std::function<outcome_s()> run;  // set by the command that was named
};

// A command with its help text; `footer` gives examples. The global options may stand behind it.
inline CLI::App *add_command(CLI::App *app, const std::string &name, const std::string &description,
                             const std::string &footer) {
    CLI::App *command = app->add_subcommand(name, description);
    command->fallthrough();
    command->footer(footer);
    return command;
}

}  // namespace nyxctl
