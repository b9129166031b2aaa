// The gRPC server's connections, as the process that accepted them sees them: how much each of them sent, and how much
// memory they cost together. gRPC 1.51.1 bounds neither header blocks, nor streams that are reset, nor requests that never
// end; whoever accepts its connections can.

#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "base/unique_fd.h"

namespace host {

// Counted by whoever accepts gRPC clients. Any thread.
struct connection_counts_s {
    std::atomic<uint32_t> open = 0;
    std::atomic<uint64_t> accepted = 0, turned_away = 0, closed = 0;
};

// Closes the connections that sent most while the process has more memory than it may. A thread of its own looks, because
// any thread that enters gRPC may have to parse what a client sends, for as long as it sends. All else: any thread.
class connections {
 public:
    // What the process's memory is for, in bytes.
    struct uses_s {
        size_t tables, calls;
    };

    connections(connection_counts_s *counts, std::function<uses_s()> uses);
    ~connections();
    connections(const connections &) = delete;
    connections &operator=(const connections &) = delete;

    // Remembers a connection, by a duplicate of its descriptor: each takes two.
    void add(int fd);

    // Clients get UNAVAILABLE for their calls.
    void close_all();

    // False while memory is short, unless closing connections has not helped.
    bool may_accept() const { return may_accept_; }

    // Readable when connections have ended and the memory is not back. To be read.
    int kept_fd() const { return kept_.get(); }

 private:
    using clock = std::chrono::steady_clock;
    struct connection_s {
        base::unique_fd fd;
        uint64_t total = 0;  // bytes at the last look
        uint64_t sent = 0;   // since memory grew; of a Unix socket those that were seen waiting
    };

    void watch();
    void forget_ended(int timeout_ms);
    int look();
    size_t explained() const;
    void count_bytes();
    void forget_bytes();
    void close_dearest();
    void forget(int fd);
    void ask_for_kept(size_t bytes);
    size_t bytes_above_start() const;

    connection_counts_s *const counts_;
    const std::function<uses_s()> uses_;
    const size_t at_start_;
    base::unique_fd events_;  // ends of connections, and `news_`
    base::unique_fd news_;    // a first connection, or the end
    base::unique_fd kept_;
    std::atomic<bool> may_accept_ = true, is_stopped_ = false;
    std::mutex mutex_;  // guards the next one
    std::unordered_map<int, connection_s> connections_;

    // Of the watching thread.
    bool is_counting_ = false;
    int questions_ = 0;  // that may still be asked
    double just_received_ = 0;
    clock::time_point next_trim_ = {}, last_close_ = {}, next_question_ = {};
    std::thread thread_;
};

}  // namespace host
