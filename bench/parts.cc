#include "bench/parts.h"

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>

#include "base/unique_fd.h"
#include "bench/figures.h"
#include "bench/grpc_client.h"
#include "bench/grpc_server.h"
#include "bench/service_thread.h"

namespace bench {

namespace {

// A part that runs for as long as this object lives.
class running_part {
 public:
    running_part(const std::string &part, const std::string &environment) : part_(part) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            fail("socketpair");
        }
        fd_.reset(ends[0]);
        const base::unique_fd other(ends[1]);
        start(environment, other.get());
    }
    ~running_part() {
        fd_.reset();
        waitpid(pid_, nullptr, 0);
    }
    running_part(const running_part &) = delete;
    running_part &operator=(const running_part &) = delete;

    double ask(const std::string &question) const {
        const std::string line = question + "\n";
        char answer[64] = {};
        if (send(fd_.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0 ||
            recv(fd_.get(), answer, sizeof(answer) - 1, 0) <= 0) {
            fail(part_ + ": no answer to \"" + question + "\"");
        }
        return std::stod(answer);
    }

 private:
    void start(const std::string &environment, int fd) {
        std::string command = "exec env " + environment + " '" +
                              std::filesystem::read_symlink("/proc/self/exe").string() + "' --part " + part_;
        char shell[] = "sh", option[] = "-c";
        char *arguments[] = {shell, option, command.data(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fd, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fd, STDOUT_FILENO);
        if (posix_spawn(&pid_, "/bin/sh", &actions, nullptr, arguments, environ) != 0) {
            fail(part_ + " does not start");
        }
        posix_spawn_file_actions_destroy(&actions);
    }

    const std::string part_;
    base::unique_fd fd_;
    pid_t pid_ = 0;
};

int answer_questions(const std::function<double(const std::string &question)> &answer) {
    for (std::string question; std::getline(std::cin, question);) {
        printf("%.9g\n", answer(question));
        fflush(stdout);
    }
    return 0;
}

nanoseconds to_slice(const std::string &question) { return nanoseconds(std::stoll(question)); }

}  // namespace

int run_part(const std::string &name, const std::vector<std::string> &arguments) {
    if (name == "page-faults" && arguments.empty()) {
        return answer_questions([](const auto &) { return page_faults_per_request(service_thread()); });
    }
    if (name == "socket-client" && arguments.size() == 3) {
        return answer_questions([&](const auto &question) {
            return socket_throughput_ratio(arguments[0] == "first" ? core_e::FIRST : core_e::LAST,
                                           arguments[1], arguments[2], to_slice(question));
        });
    }
    if (name == "grpc-server" && arguments.size() == 2) {
        grpc_server server(arguments[0], arguments[1]);
        return answer_questions([&](const auto &question) { return server.figure(question); });
    }
    if (name == "grpc-client" && arguments.size() == 4) {
        grpc_client client(arguments[0], arguments[1], std::stoi(arguments[2]), std::stoul(arguments[3]));
        return answer_questions(
            [&](const auto &question) { return client.cost_of_call(to_slice(question)); });
    }
    if (name == "grpc-filler" && arguments.size() == 1) {
        return answer_questions([&](const auto &question) {
            return throughput_of_last_entries(arguments[0], std::stoul(question));
        });
    }
    fail("no such part: " + name);
}

double ask(const std::string &part, const std::string &question) {
    static std::map<std::string, std::unique_ptr<running_part>> parts;
    auto &running = parts[part];
    if (!running) {
        running = std::make_unique<running_part>(part, "");
    }
    return running->ask(question);
}

double status_mib(const std::string &name, const std::string &process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":")) {
            return std::stod(line.substr(name.size() + 1)) / 1024;
        }
    }
    return 0;
}

double ask_once(const std::string &part, const std::string &environment) {
    return running_part(part, environment).ask("");
}

}  // namespace bench
