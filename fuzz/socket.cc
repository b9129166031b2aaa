// One message as a peer may send it, from receiving to the answer: any bytes, or a debug command with any arguments,
// and up to two descriptors along with it.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <iterator>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/quiet.h"
#include "nyx/debug_command.pb.h"
#include "nyx/types/service.pb.h"
#include "svc/channel/svc_thread.h"
#include "tests/send_descriptors.h"

namespace {

using base::unique_fd;
using fuzz::check;

constexpr const char *k_args_types[] = {
    "/nyx.MappingDumpFilter", "/nyx.InterfaceDumpFilter",
    "/nyx.CommandUUID",       "/nyx.FlowGetRequest",
    "/nyx.FlowTracerSpec",    "/nyx.DatapathAssist",
    "/nyx.DatapathAssistCps", "/nyx.IntrDumpArgs",
    "/nyx.NoArguments",       "no slash",
};

std::string request_of(fuzz::input &in) {
    if (in.take<uint8_t>() % 2 == 0) {
        return std::string(in.take_rest());
    }
    nyx::CommandMessage command;
    command.set_command(static_cast<nyx::Command>(in.take<int8_t>()));
    command.mutable_command_args()->set_type_url(k_args_types[in.take<uint8_t>() % std::size(k_args_types)]);
    command.mutable_command_args()->set_value(std::string(in.take_rest()));
    types::ServiceRequestMessage request;
    request.mutable_config_msg()->PackFrom(command);
    return request.SerializeAsString();
}

int pipe_without_reader() {
    int ends[2] = {-1, -1};
    check(pipe(ends) == 0, "there are pipes");
    close(ends[0]);
    return ends[1];
}

// A descriptor that takes text, or does not.
unique_fd descriptor(uint8_t kind, int own_end) {
    switch (kind % 6) {
        case 0:
            return unique_fd(memfd_create("output", 0));
        case 1:
            return unique_fd(open("/dev/null", O_RDONLY));
        case 2:
            return unique_fd(open("/dev/full", O_WRONLY));
        case 3:
            return unique_fd(dup(own_end));
        case 4:
            return unique_fd(socket(AF_UNIX, SOCK_DGRAM, 0));
        default:
            return unique_fd(pipe_without_reader());
    }
}

void send_all(int fd, const std::string &bytes, const std::vector<unique_fd> &descriptors) {
    std::vector<int> sent;
    for (const unique_fd &descriptor : descriptors) {
        sent.push_back(descriptor.get());
    }
    check(test::send_with_descriptors(fd, bytes, sent, MSG_DONTWAIT) == static_cast<ssize_t>(bytes.size()),
          "the request is sent");
    shutdown(fd, SHUT_WR);
}

bool is_answered(const std::string &bytes) {
    types::ServiceRequestMessage request;
    const std::string command = "/nyx.CommandMessage";
    if (bytes.empty() || !request.ParseFromString(bytes)) {
        return false;
    }
    const std::string &url = request.config_msg().type_url();
    const size_t slash = url.find('/');
    return slash != url.npos && url.substr(slash) == command && request.config_op() == types::SERVICE_OP_NONE;
}

void check_answer(int fd, bool expected) {
    char bytes[64];
    const ssize_t size = recv(fd, bytes, sizeof(bytes), MSG_DONTWAIT);
    check((size > 0) == expected, "debug commands are answered, and nothing else is");
    if (expected) {
        types::ServiceResponseMessage answer;
        check(answer.ParseFromArray(bytes, static_cast<int>(size)), "the answer is a message");
        check(answer.has_api_status() && types::ApiStatus_IsValid(answer.api_status()), "it has a status");
    }
}

// Which of the lowest descriptors are open, a bit for each.
uint32_t open_descriptors() {
    uint32_t open = 0;
    for (int fd = 0; fd < 32; fd++) {
        open |= (fcntl(fd, F_GETFD) >= 0 ? 1U : 0U) << fd;
    }
    return open;
}

void serve(fuzz::input &in) {
    int ends[2] = {-1, -1};
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "there are sockets");
    unique_fd peer(ends[0]), connection(ends[1]);
    std::vector<unique_fd> descriptors;
    for (auto count = in.take<uint8_t>() % 3; count > 0; count--) {
        descriptors.push_back(descriptor(in.take<uint8_t>(), peer.get()));
    }
    const std::string request = request_of(in);
    send_all(peer.get(), request, descriptors);

    sdk::event_thread::io_ watcher = {};
    core::svc_server_read_cb(&watcher, connection.release(), sdk::event_thread::k_io_readable);

    check_answer(peer.get(), is_answered(request));
    descriptors.push_back(std::move(peer));
    for (auto &own : descriptors) {
        check(own.close() == 0, "the peer's descriptors are still its own");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    signal(SIGPIPE, SIG_IGN);
    fuzz::input in(data, size);
    const uint32_t open_before = open_descriptors();
    serve(in);
    check(open_descriptors() == open_before, "no descriptor stays open");
    return 0;
}
