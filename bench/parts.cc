#include "bench/parts.h"

#include <unistd.h>

#include <filesystem>

#include "bench/figures.h"
#include "bench/grpc_server.h"
#include "bench/service_thread.h"

namespace bench {

namespace {

std::string command_of(const std::string &part) {
    return "'" + std::filesystem::read_symlink("/proc/self/exe").string() + "' --part " + part;
}

void wait_for_end_of_input() {
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

}  // namespace

int run_part(const std::string &name, const std::vector<std::string> &arguments) {
    if (name == "page-faults" && arguments.empty()) {
        printf("%.3f\n", page_faults_per_request(service_thread()));
    } else if (name == "socket-client" && arguments.size() == 4) {
        const core_e core = arguments[0] == "first" ? core_e::FIRST : core_e::LAST;
        const nanoseconds slice(std::stoll(arguments[3]));
        printf("%.3f\n", socket_throughput_ratio(core, arguments[1], arguments[2], slice));
    } else if (name == "grpc-server" && arguments.size() == 2) {
        const grpc_server server(arguments[0], arguments[1]);
        wait_for_end_of_input();
    } else {
        fail("no such part: " + name);
    }
    return 0;
}

double figure_of_part(const std::string &part, const std::string &environment) {
    const std::string command = environment + " " + command_of(part);
    const std::unique_ptr<FILE, decltype(&pclose)> output(popen(command.c_str(), "re"), pclose);
    double figure = 0;
    if (!output || fscanf(output.get(), "%lf", &figure) != 1) {
        fail(command + ": no figure");
    }
    return figure;
}

running_part::running_part(const std::string &part) : input_(popen(command_of(part).c_str(), "we"), pclose) {
    if (!input_) {
        fail(part + " does not start");
    }
}

}  // namespace bench
