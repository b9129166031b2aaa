// nyxctl: the command-line client of the dataplane agent.

#include <csignal>
#include <exception>
#include <iostream>

#include "base/standard_descriptors.h"
#include "client/command_line.h"

namespace {

nyxctl::outcome_s run(int argc, char **argv) {
    try {
        return nyxctl::run_command_line(argc, argv);
    } catch (const std::exception &e) {
        return nyxctl::local_failure(std::string("failed: ") + e.what());
    }
}

}  // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    base::occupy_standard_descriptors();
    const nyxctl::outcome_s outcome = run(argc, argv);
    if (!outcome.text.empty()) {
        std::cerr << "nyxctl: " << outcome.text << std::endl;
    }
    return outcome.exit_code;
}
