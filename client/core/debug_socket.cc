#include "client/core/debug_socket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace nyxctl {
namespace {

using std::chrono::milliseconds;

constexpr size_t k_answer_size_max = 1 << 16;    // an honest one has a few bytes
constexpr size_t k_sure_request_size = 1 << 15;  // handed over in one piece with a descriptor
constexpr char k_no_answer[] = "the agent closed the connection without an answer";

std::string errno_text() { return std::strerror(errno); }

outcome_s late(const std::string &what) {
    return {NYXCTL_EXIT_DEADLINE, what + " within --timeout; raise it, or see whether the agent is busy"};
}

int milliseconds_left(deadline_t deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

outcome_s connect_failure(const std::string &path, int error) {
    if (error == ETIMEDOUT) {
        return late("no connection to \"" + path + "\"");
    }
    return {
        NYXCTL_EXIT_UNREACHABLE,
        fmt::format(
            "no agent reachable at \"{}\": {}; check that the agent runs and that --socket or NYX_SOCKET is "
            "its path",
            path, std::strerror(error))};
}

outcome_s send_failure() {
    if (errno == EAGAIN) {
        return late("the agent did not take the request");
    }
    if (errno == EPIPE || errno == ECONNRESET) {
        return local_failure(k_no_answer);
    }
    return local_failure(fmt::format("cannot send the request with its output descriptor: {}", errno_text()));
}

outcome_s send_request(int fd, std::string *bytes, int output_fd) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec data = {.iov_base = bytes->data(), .iov_len = bytes->size()};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &output_fd, sizeof output_fd);
    ssize_t sent;
    do {
        sent = sendmsg(fd, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        return send_failure();
    }
    // The rest of a request that went out in part cannot follow, because the agent takes one piece. Reading
    // shows why: the agent closed, answered, or is late.
    return {};
}

outcome_s wait_readable(int fd, deadline_t deadline) {
    pollfd item = {.fd = fd, .events = POLLIN, .revents = 0};
    for (;;) {
        const int ready = poll(&item, 1, milliseconds_left(deadline));
        if (ready > 0) {
            return {};
        }
        if (ready == 0) {
            return late("no answer");
        }
        if (errno != EINTR) {
            return local_failure(fmt::format("cannot wait for the answer: {}", errno_text()));
        }
    }
}

outcome_s read_to_end(int fd, deadline_t deadline, std::string *bytes) {
    char buffer[4096];
    for (;;) {
        if (outcome_s outcome = wait_readable(fd, deadline); !outcome.ok()) {
            return outcome;
        }
        const ssize_t got = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
        // An agent that closes with a part of the request unread resets the connection, after its answer.
        if (got == 0 || (got < 0 && errno == ECONNRESET)) {
            return {};
        }
        if (got < 0 && errno != EINTR && errno != EAGAIN) {
            return local_failure(fmt::format("cannot read the answer: {}", errno_text()));
        }
        bytes->append(buffer, std::max<ssize_t>(got, 0));
        if (bytes->size() > k_answer_size_max) {
            return local_failure(
                "the answer is longer than any ServiceResponseMessage; check that an agent listens at "
                "--socket");
        }
    }
}

}  // namespace

outcome_s debug_connect(const std::string &path, deadline_t deadline, base::unique_fd *socket) {
    const int error = connect_unix(path, deadline, socket);
    if (error == EINVAL) {
        return usage_failure(
            fmt::format("--socket \"{}\" cannot be the path of a socket; give 1 to {} characters", path,
                        sizeof(sockaddr_un::sun_path) - 1));
    }
    return error == 0 ? outcome_s() : connect_failure(path, error);
}

outcome_s debug_exchange(const base::unique_fd &socket, const types::ServiceRequestMessage &request,
                         int output_fd, deadline_t deadline, types::ServiceResponseMessage *response) {
    std::string bytes = request.SerializeAsString();
    if (outcome_s outcome = send_request(socket.get(), &bytes, output_fd); !outcome.ok()) {
        return outcome;
    }
    std::string answer;
    if (outcome_s outcome = read_to_end(socket.get(), deadline, &answer); !outcome.ok()) {
        return outcome;
    }
    if (!response->ParseFromString(answer)) {
        return local_failure(
            fmt::format("the answer of {} bytes is not a types.ServiceResponseMessage; check that an agent "
                        "listens at --socket",
                        answer.size()));
    }
    if (response->has_api_status()) {
        return {};
    }
    return local_failure(bytes.size() <= k_sure_request_size
                             ? k_no_answer
                             : fmt::format("{}; it takes a request in one piece, and {} bytes may be more "
                                           "than the system hands over at "
                                           "once",
                                           k_no_answer, bytes.size()));
}

}  // namespace nyxctl
