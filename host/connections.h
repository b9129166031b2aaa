// The gRPC server's connections, as the process that accepted them sees them: how much each of them sent, and how much
// memory they cost together. gRPC 1.51.1 bounds neither header blocks, nor streams that are reset, nor requests that never
// end; whoever accepts its connections can.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_map>

#include "base/unique_fd.h"

namespace host {

// Closes the connections that sent most while the process has more memory than it may. gRPC may free what they cost only
// at its next event, a call for example. For one thread.
class connections {
 public:
    // `explained` says how many bytes of the process's memory have another cause.
    explicit connections(std::function<size_t()> explained);

    // Remembers a connection, by a duplicate of its descriptor: each takes two.
    void add(int fd);

    // Readable when a connection has ended.
    int ended_fd() const { return ended_.get(); }
    void forget_ended();

    // Looks at the memory, closes connections and gives memory back as needed. Returns how long until the next look in
    // milliseconds, -1 while there is nothing to look at.
    int look();

    size_t count() const { return connections_.size(); }

    // False while memory is short and there is a connection to close.
    bool may_accept() const { return !is_short_ || connections_.empty(); }

 private:
    struct connection_s {
        base::unique_fd fd;
        uint64_t total = 0;  // bytes at the last look
        uint64_t sent = 0;   // since memory grew; of a Unix socket those that were seen waiting
    };

    size_t excess() const;
    void count_bytes();
    void forget_bytes();
    void close_dearest();
    void forget(int fd);

    const std::function<size_t()> explained_;
    const size_t at_start_;
    base::unique_fd ended_;
    std::unordered_map<int, connection_s> connections_;
    bool is_short_ = false, is_counting_ = false;
    std::chrono::steady_clock::time_point next_trim_ = {};
};

}  // namespace host
