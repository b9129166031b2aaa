#include "bench/service_thread.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/unique_fd.h"
#include "bench/ratio_table.h"
#include "nyx/debug_command.pb.h"
#include "nyx/types/service.pb.h"
#include "svc/channel/svc_thread.h"

namespace bench {

namespace {

constexpr sim::event_thread_entries_s k_service_request_thread = {
    core::svc_server_thread_init, core::svc_server_thread_exit, core::svc_server_thread_suspend_cb,
    core::svc_server_thread_resume_cb};

std::string unknown_command() {
    nyx::CommandMessage message;
    message.set_command(static_cast<nyx::Command>(35));
    types::ServiceRequestMessage request;
    request.mutable_config_msg()->PackFrom(message);
    return request.SerializeAsString();
}

void connect_to(int fd, const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        fail(path + ": " + strerror(errno));
    }
}

void send_to(int fd, std::string bytes) {
    iovec part = {.iov_base = bytes.data(), .iov_len = bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (sendmsg(fd, &message, MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
        fail(std::string("sendmsg: ") + strerror(errno));
    }
}

}  // namespace

temporary_folder::temporary_folder()
    : path_((std::filesystem::temp_directory_path() / "nyx_bench_XXXXXX").string()) {
    if (!mkdtemp(path_.data())) {
        fail(path_ + ": " + strerror(errno));
    }
}

temporary_folder::~temporary_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

on_core::on_core(core_e core) {
    sched_getaffinity(0, sizeof(before_), &before_);
    const int step = core == core_e::FIRST ? 1 : -1;
    int number = core == core_e::FIRST ? 0 : CPU_SETSIZE - 1;
    while (!CPU_ISSET(number, &before_)) {
        number += step;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(number, &set);
    sched_setaffinity(0, sizeof(set), &set);
}

on_core::~on_core() { sched_setaffinity(0, sizeof(before_), &before_); }

service_thread::service_thread() : service_thread(k_service_request_thread) {}

service_thread::service_thread(const sim::event_thread_entries_s &entries)
    : path_(folder_.path() + "/socket"), thread_("nyx_bench", entries, path_.data()) {
    const on_core here(core_e::FIRST);
    if (thread_.start() != sdk::SDK_RET_OK) {
        fail(path_ + ": the event thread does not start");
    }
}

void request_over_socket(const std::string &path) {
    static const std::string k_request = unknown_command();
    const base::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    connect_to(fd.get(), path);
    send_to(fd.get(), k_request);
    std::string answer;
    char buffer[256];
    for (ssize_t size; (size = recv(fd.get(), buffer, sizeof(buffer), 0)) > 0;) {
        answer.append(buffer, static_cast<size_t>(size));
    }
    if (answer != std::string("\x08\x00", 2)) {
        fail(path + ": not the answer that was expected");
    }
}

}  // namespace bench
