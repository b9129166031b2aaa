// The options of the command line, checked as far as possible without an agent.

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace nyxctl {

// Given before or after the command.
struct global_options_s {
    std::string grpc = NYX_DEFAULT_GRPC;      // HOST:PORT or unix:PATH
    std::string socket = NYX_DEFAULT_SOCKET;  // path
    double timeout_seconds = 10;              // above zero
    std::string tls_ca;                       // path; TLS is used when it is not empty
    std::string tls_cert;                     // path; both or neither
    std::string tls_key;
    bool json = false;  // results and failures for scripts

    std::chrono::milliseconds timeout() const {
        return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(timeout_seconds));
    }
};

struct call_options_s {
    std::string method;
    std::optional<std::string> json;  // JSON, "@FILE" or "-"; without it the request is empty
    std::vector<std::string> fields;  // words of field_words.h, set after the JSON
    bool cut = false;                 // send values that are too wide for the records of tables
    bool canonical = false;           // JSON to and from the agent as protobuf has it
};

struct debug_options_s {
    std::string command;            // number or name
    std::vector<std::string> args;  // none, or message type and JSON, "@FILE" or "-"
    std::string output;             // path; empty is stdout
};

}  // namespace nyxctl
