// The options of the command line, checked as far as possible without an agent.

#pragma once

#include <chrono>
#include <string>

namespace nyxctl {

// Given before or after the command.
struct global_options_s {
    std::string grpc = NYX_DEFAULT_GRPC;      // HOST:PORT or unix:PATH
    std::string socket = NYX_DEFAULT_SOCKET;  // path
    double timeout_seconds = 10;              // above zero
    std::string tls_ca;                       // path; TLS is used over TCP when it is not empty
    std::string tls_cert;                     // path; both or neither
    std::string tls_key;
    bool json = false;        // results and failures for scripts
    bool json_texts = false;  // results with what people read beside what scripts do

    std::chrono::milliseconds timeout() const {
        return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(timeout_seconds));
    }
};

}  // namespace nyxctl
