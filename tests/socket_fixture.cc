#include "tests/socket_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "svc/channel/svc_thread.h"
#include "svc/executor.h"
#include "tests/send_descriptors.h"

namespace test {

bool eventually(const std::function<bool()> &done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

size_t open_descriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

client::client() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}

client::client(const std::string &path) : client() {
    EXPECT_TRUE(connect_to(path)) << path << ": " << strerror(errno);
}

bool client::connect_to(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return connect(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
}

bool client::send(const std::string &data, const std::vector<int> &descriptors) {
    return send_with_descriptors(fd_.get(), data, descriptors, MSG_NOSIGNAL) >= 0;
}

bool client::send_out_of_band() { return ::send(fd_.get(), "x", 1, MSG_OOB | MSG_NOSIGNAL) == 1; }

std::optional<std::string> client::read_to_end() {
    std::string bytes;
    char buffer[256];
    for (;;) {
        pollfd waiting = {.fd = fd_.get(), .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, 10'000) <= 0) {
            return std::nullopt;
        }
        const ssize_t size = recv(fd_.get(), buffer, sizeof(buffer), 0);
        if (size <= 0) {  // also a reset: the server left data unread
            return bytes;
        }
        bytes.append(buffer, static_cast<size_t>(size));
    }
}

void client::finish_sending() { shutdown(fd_.get(), SHUT_WR); }

std::string command_bytes(int command) {
    nyx::CommandMessage message;
    message.set_command(static_cast<nyx::Command>(command));
    types::ServiceRequestMessage request;
    request.mutable_config_msg()->PackFrom(message);
    return request.SerializeAsString();
}

output_pipe::output_pipe() {
    int fds[2] = {-1, -1};
    EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
    reader.reset(fds[0]);
    writer.reset(fds[1]);
}

std::string output_pipe::read_all() {
    writer.reset();
    std::string bytes;
    char buffer[4096];
    for (ssize_t size; (size = read(reader.get(), buffer, sizeof(buffer))) > 0;) {
        bytes.append(buffer, static_cast<size_t>(size));
    }
    return bytes;
}

thread_executor::thread_executor() {
    svc::set_executor([this](std::function<void()> work) {
        const std::lock_guard guard(mutex_);
        threads_.emplace_back(std::move(work));
        return true;
    });
}

thread_executor::~thread_executor() {
    svc::set_executor({});
    for (std::thread &thread : threads_) {
        thread.join();
    }
}

SocketTest::SocketTest()
    : thread_("svc_server",
              {core::svc_server_thread_init, core::svc_server_thread_exit, core::svc_server_thread_suspend_cb,
               core::svc_server_thread_resume_cb},
              path_.data()) {}

void SocketTest::expect_served() {
    client tool(path_);
    output_pipe output;
    ASSERT_TRUE(tool.send(command_bytes(nyx::COMMAND_HELP), {output.writer.get()}));
    EXPECT_EQ(tool.read_to_end(), std::string("\x08\x00", 2));
    EXPECT_NE(output.read_all().find("commands that exist"), std::string::npos);
}

}  // namespace test
