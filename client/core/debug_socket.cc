#include "client/core/debug_socket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <string_view>

namespace nyxctl {
namespace {

using std::chrono::milliseconds;

constexpr size_t k_answer_size_max = 1 << 16;  // an honest one has a few bytes
constexpr size_t k_output_size_max = 1 << 28;
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

// Takes what is in the pipe now.
outcome_s read_available(int pipe, std::string *output) {
    char buffer[65'536];
    for (ssize_t got; (got = read(pipe, buffer, sizeof buffer)) > 0;) {
        output->append(buffer, got);
        if (output->size() > k_output_size_max) {
            return local_failure(
                "the output is longer than any debug command's; check that an agent listens at "
                "--socket");
        }
    }
    return {};
}

// Waits for more of the answer, and takes what comes through the pipe meanwhile.
outcome_s wait_for_answer(int fd, int pipe, deadline_t deadline, std::string *output) {
    pollfd items[] = {{.fd = fd, .events = POLLIN, .revents = 0},
                      {.fd = pipe, .events = POLLIN, .revents = 0}};
    for (;;) {
        const int ready = poll(items, std::size(items), milliseconds_left(deadline));
        if (ready == 0) {
            return late("no answer");
        }
        if (ready < 0 && errno != EINTR) {
            return local_failure(fmt::format("cannot wait for the answer: {}", errno_text()));
        }
        if (outcome_s outcome = read_available(pipe, output); !outcome.ok()) {
            return outcome;
        }
        if (ready > 0 && items[0].revents != 0) {
            return {};
        }
        if (ready > 0 && (items[1].revents & POLLIN) == 0) {
            items[1].fd = -1;  // its end is always ready
        }
    }
}

outcome_s read_to_end(int fd, int pipe, deadline_t deadline, std::string *bytes, std::string *output) {
    char buffer[4096];
    for (;;) {
        if (outcome_s outcome = wait_for_answer(fd, pipe, deadline, output); !outcome.ok()) {
            return outcome;
        }
        const ssize_t got = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
        // An agent that closes with a part of the request unread resets the connection, after its answer.
        if (got == 0 || (got < 0 && errno == ECONNRESET)) {
            return read_available(pipe, output);  // complete by then, even if others still hold the pipe
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

outcome_s write_output(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(written);
        } else if (errno != EINTR) {
            return local_failure(errno == EPIPE ? ""
                                                : fmt::format("cannot write the output: {}", errno_text()));
        }
    }
    return {};
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
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return local_failure(fmt::format("cannot make a pipe: {}", errno_text()));
    }
    const base::unique_fd reader(ends[0]);
    base::unique_fd writer(ends[1]);
    fcntl(reader.get(), F_SETFL, O_NONBLOCK);
    std::string bytes = request.SerializeAsString();
    if (outcome_s outcome = send_request(socket.get(), &bytes, writer.get()); !outcome.ok()) {
        return outcome;
    }
    writer.reset();
    std::string answer, output;
    const outcome_s exchanged = read_to_end(socket.get(), reader.get(), deadline, &answer, &output);
    const outcome_s written = write_output(output_fd, output);
    if (!exchanged.ok() || !written.ok()) {
        return exchanged.ok() ? written : exchanged;
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
