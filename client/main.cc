// nyxctl: the command-line client of the dataplane agent.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "client/command_line.h"

namespace {

// A socket or file that got the number of a closed standard descriptor would be taken for it. Opened for
// reading, a missing stdout still refuses to be written.
void occupy_standard_descriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY) != fd) {
            std::_Exit(nyxctl::NYXCTL_EXIT_LOCAL);
        }
    }
}

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
    occupy_standard_descriptors();
    const nyxctl::outcome_s outcome = run(argc, argv);
    if (!outcome.text.empty()) {
        std::cerr << "nyxctl: " << outcome.text << std::endl;
    }
    return outcome.exit_code;
}
