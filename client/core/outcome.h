// How a piece of the client's work ended: the exit code and the text for the user.

#pragma once

#include <string>
#include <utility>

namespace nyxctl {

// Exit codes of the program, listed in its --help.
enum exit_code_e : int {
    NYXCTL_EXIT_OK = 0,
    NYXCTL_EXIT_LOCAL = 1,     // a file, the output, or an agent that closed without an answer
    NYXCTL_EXIT_DEGRADED = 1,  // the verdicts of health
    NYXCTL_EXIT_FAILED = 2,
    NYXCTL_EXIT_USAGE = 2,          // the command line or the JSON is wrong; nothing was sent
    NYXCTL_EXIT_UNREACHABLE = 3,    // nobody answers at the address or on the socket
    NYXCTL_EXIT_DEADLINE = 4,       // --timeout passed
    NYXCTL_EXIT_API_STATUS = 5,     // the agent answered, and api_status is not API_STATUS_OK
    NYXCTL_EXIT_PARTLY = 6,         // a part of many entries was sent, then it ended early
    NYXCTL_EXIT_GRPC_BASE = 64,     // plus the number of any other gRPC status
    NYXCTL_EXIT_INTERRUPTED = 130,  // by a signal, before anything was sent
};

// `text` is printed to stderr after "nyxctl: ", without a newline at its end; nothing is printed when it is empty.
struct [[nodiscard]] outcome_s {
    int exit_code = NYXCTL_EXIT_OK;
    std::string text;

    bool ok() const { return exit_code == NYXCTL_EXIT_OK; }
};

inline outcome_s local_failure(std::string text) { return {NYXCTL_EXIT_LOCAL, std::move(text)}; }
inline outcome_s usage_failure(std::string text) { return {NYXCTL_EXIT_USAGE, std::move(text)}; }

}  // namespace nyxctl
