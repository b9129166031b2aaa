// A service request thread on a socket in a folder of its own, and what clients of it need.

#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/unique_fd.h"
#include "nyx/debug_command.pb.h"
#include "nyx/types/service.pb.h"
#include "sim/framework/event_thread.h"
#include "tests/temporary_folder.h"
#include "tests/trace_capture.h"

namespace test {

// Waits until `done`, at most ten seconds; returns whether it came true.
bool eventually(const std::function<bool()> &done);

size_t open_descriptors();

class client {
 public:
    client();                                  // a socket, not connected
    explicit client(const std::string &path);  // connected; fails the test when nobody listens

    // False when nobody listens.
    bool connect_to(const std::string &path);

    // One piece of data with these descriptors. False when the server has closed.
    bool send(const std::string &data, const std::vector<int> &descriptors = {});

    bool send_out_of_band();

    // All that the server sends until it closes; nothing when it does not close within ten seconds.
    std::optional<std::string> read_to_end();

    // Ends what this side sends, or the connection.
    void finish_sending();
    void hang_up() { fd_.reset(); }

 private:
    base::unique_fd fd_;
};

std::string command_bytes(int command);

// A pipe whose writing end goes along with a request.
struct output_pipe {
    output_pipe();
    std::string read_all();  // what was written until all writers closed

    base::unique_fd reader, writer;
};

// While this lives, the library has an executor, with a thread for each piece of work.
class thread_executor {
 public:
    thread_executor();
    ~thread_executor();  // waits for all of them

 private:
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

class SocketTest : public testing::Test {
 protected:
    SocketTest();
    ~SocketTest() override { sim::set_time_scale(1.0); }

    // A command that the stand-in serves, over a connection of its own, answered and with its output.
    void expect_served();

    temporary_folder folder_;
    trace_capture trace_;
    std::string path_ = folder_ / "svc.sock";
    std::optional<thread_executor> executor_;  // none unless a test makes it before it starts the thread
    sim::event_thread thread_;
};

}  // namespace test
