// nyxctl: the command-line client of the dataplane agent.

#include <algorithm>
#include <csignal>
#include <exception>
#include <string_view>

#include "base/standard_descriptors.h"
#include "client/cli/command_line.h"
#include "client/core/text_io.h"

namespace {

nyxctl::outcome_s run(int argc, char **argv) {
    try {
        return nyxctl::run_command_line(argc, argv);
    } catch (const std::exception &e) {
        return nyxctl::local_failure(std::string("failed: ") + e.what());
    }
}

// Also of a command line that is wrong otherwise.
bool wants_json(int argc, char **argv) {
    return std::any_of(argv, argv + argc,
                       [](std::string_view text) { return text == "-j" || text == "--json"; });
}

}  // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    base::occupy_standard_descriptors();
    const nyxctl::outcome_s outcome = run(argc, argv);
    nyxctl::print_failure(outcome, wants_json(argc, argv));
    return outcome.exit_code;
}
