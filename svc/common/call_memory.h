// Memory of requests and answers, out of one budget for the process.
//
// A call takes from it what its arena allocates and the bytes that it sends. Texts longer than 15 bytes are not in the
// arena but on the heap; none of these messages has more of them than arena around them, so every block counts twice.

#pragma once

#include <google/protobuf/arena.h>

#include <atomic>
#include <cstddef>
#include <new>

namespace svc {

// Thrown by an arena whose block does not fit into the budget.
class budget_exceeded : public std::bad_alloc {
 public:
    const char *what() const noexcept override { return "memory budget of calls exceeded"; }
};

// The budget. Any thread.
class call_budget {
 public:
    static void set_limit(size_t bytes);
    static size_t used();
    [[nodiscard]] static bool take(size_t bytes);
    static void give_back(size_t bytes);
};

// A share of the budget, given back at the end of its life. For one thread at a time.
class budget_share {
 public:
    budget_share() = default;
    budget_share(const budget_share &) = delete;
    budget_share &operator=(const budget_share &) = delete;
    ~budget_share() { call_budget::give_back(bytes_); }

    // Throws budget_exceeded, and then holds what it held before.
    void take(size_t bytes);
    void give_back_all();
    size_t bytes() const { return bytes_; }

 private:
    size_t bytes_ = 0;
};

// How an arena takes its blocks from the budget. Its first block, of this thread, is not counted: there is one for each
// thread, so small calls are served when the budget is used up. One arena at a time on a thread.
google::protobuf::ArenaOptions counted_arena();

}  // namespace svc
