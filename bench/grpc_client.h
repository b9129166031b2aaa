// The clients that calls are measured with.

#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

struct connection_s;

// Connected clients, each with a connection and a thread of its own, in a process of their own. Calls:
//   create      flowCreate of `count` entries
//   get         flowGet of `count` keys, whose response is not parsed
//   get-parsed  the same, parsed
//   walk        InterfaceGet of all interfaces, not parsed
//   ports       PortGet of all ports, not parsed
class grpc_client {
 public:
    grpc_client(const std::string &address, const std::string &call, int count, size_t clients);
    ~grpc_client();

    // Each client calls for about `slice`, one call after the other. Returns seconds divided by the calls of all clients.
    double cost_of_call(std::chrono::nanoseconds slice);

 private:
    std::function<void(connection_s *)> call_;
    std::vector<std::unique_ptr<connection_s>> connections_;
};

// Fills a table of the stand-in with so many entries, in requests of 1,000, and empties it again. Returns the throughput of
// the last ten requests divided by that of the first ten.
double throughput_of_last_entries(const std::string &address, size_t count);

}  // namespace bench
