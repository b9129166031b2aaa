// Event threads that serve a Unix domain socket, and the client that they are measured with.

#pragma once

#include <sched.h>

#include <string>

#include "sim/framework/event_thread.h"

namespace bench {

class temporary_folder {
 public:
    temporary_folder();
    ~temporary_folder();
    temporary_folder(const temporary_folder &) = delete;
    temporary_folder &operator=(const temporary_folder &) = delete;

    const std::string &path() const { return path_; }

 private:
    std::string path_;
};

enum class core_e { FIRST, LAST };

// Keeps the calling thread, and threads that it starts, on one of the cores that it may use. Left to itself,
// the scheduler puts a client and its server on one core or on two, which changes the figures by a factor of
// two.
class on_core {
 public:
    explicit on_core(core_e core);
    ~on_core();

 private:
    cpu_set_t before_;
};

// A running event thread on a socket in a folder of its own.
class service_thread {
 public:
    service_thread();  // the real service request thread
    explicit service_thread(const sim::event_thread_entries_s &entries);

    const std::string &path() const { return path_; }

 private:
    temporary_folder folder_;
    std::string path_;
    sim::event_thread thread_;  // on the first core
};

// Sends a debug command that the debug library doesn't know, and reads the answer to its end. Ends the program on an
// unexpected answer. Any thread.
void request_over_socket(const std::string &path);

}  // namespace bench
