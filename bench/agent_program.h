// nyx-agent as a program of its own.

#pragma once

#include <fcntl.h>
#include <grpcpp/grpcpp.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "bench/figures.h"
#include "bench/parts.h"
#include "nyx/tables/flow.pb.h"
#include "tests/grpc_fixture.h"

namespace bench {

// A running nyx-agent.
class agent_program {
 public:
    explicit agent_program(const std::string &folder) : socket_(folder + "/grpc") {
        const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "nyx-agent";
        std::string arguments[] = {program,       "--grpc", "unix:" + socket_, "--socket", folder + "/debug",
                                   "--sysconfig", folder};
        std::vector<char *> pointers;
        for (auto &argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, pointers.data(), environ) != 0) {
            fail(program.string() + " does not start");
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~agent_program() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    agent_program(const agent_program &) = delete;
    agent_program &operator=(const agent_program &) = delete;

    void answer_a_call() const {
        while (!std::filesystem::exists(socket_)) {
            usleep(200);
        }
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        const auto channel =
            grpc::CreateCustomChannel("unix:" + socket_, grpc::InsecureChannelCredentials(), arguments);
        nyx::flowGetResponse response;
        if (!test::unary_call(channel, "/nyx.NyxTblSvc/flowGet", nyx::flowGetRequest(), &response).ok()) {
            fail("nyx-agent does not answer");
        }
    }

    std::string address() const { return "unix:" + socket_; }

    double resident_mib() const { return status_mib("VmRSS", std::to_string(pid_)); }

 private:
    const std::string socket_;
    pid_t pid_ = 0;
};

}  // namespace bench
