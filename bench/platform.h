// Platform operations that take next to no time, and a count of started threads. The program defines these functions, and
// its definitions come before those of any library.

#pragma once

#include <atomic>
#include <cstdint>

namespace bench {

// Fails the program unless the table service calls the replacements.
void check_replacements();

// Threads that this process has started. Any thread.
inline std::atomic<uint64_t> g_started_threads = 0;

// Minor page faults of the thread that runs debug commands, from the end of one command to the start of the
// next. Only counted while `on`. Any thread.
struct fault_count_s {
    std::atomic<bool> on = false;
    std::atomic<bool> keep_megabyte = false;  // that thread has one allocated from one command to the next
    std::atomic<uint64_t> faults = 0, commands = 0;
};
inline fault_count_s g_fault_count;

}  // namespace bench
