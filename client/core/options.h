// What the command line says, checked as far as the command line alone can be.

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
    std::string tls_cert;                     // path; both of these or none
    std::string tls_key;
    bool json = false;  // results and failures for scripts

    std::chrono::milliseconds timeout() const {
        return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(timeout_seconds));
    }
};

struct call_options_s {
    std::string method;
    std::optional<std::string> json;  // JSON, "@FILE" or "-"; none is an empty request
    std::vector<std::string> fields;  // words of field_words.h, set behind the JSON
    bool cut = false;                 // send what the records of tables are too narrow for
    bool canonical = false;           // JSON to and from the agent as protobuf has it
};

struct debug_options_s {
    std::string command;            // number or name
    std::vector<std::string> args;  // none, or message type and JSON, "@FILE" or "-"
    std::string output;             // path; empty is stdout
};

}  // namespace nyxctl
