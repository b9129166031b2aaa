#include "sim/debug_output.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace sim {

namespace {

using clock = std::chrono::steady_clock;

// Whether `fd` is open for writing and is a file, a pipe, a socket, a terminal or another device.
bool takes_text(int fd) {
    struct stat status;
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY && fstat(fd, &status) == 0 &&
           (S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) ||
            S_ISCHR(status.st_mode));
}

bool wait_writable(int fd, clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count();
    pollfd waiting = {.fd = fd, .events = POLLOUT, .revents = 0};
    return left > 0 && poll(&waiting, 1, static_cast<int>(left)) > 0;
}

sdk::sdk_ret_t to_ret(int error) {
    switch (error) {
        case EBADF:
        case EINVAL:
            return sdk::SDK_RET_INVALID_ARG;
        case EPIPE:
        case ECONNRESET:
            return sdk::SDK_RET_COMMUNICATION_FAILURE;
    }
    return sdk::SDK_RET_GENERIC_ERROR;
}

}  // namespace

sdk::sdk_ret_t write_output(int fd, std::string_view text) {
    if (!takes_text(fd)) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    const auto deadline = clock::now() + std::chrono::milliseconds(200);
    while (!text.empty()) {
        if (!wait_writable(fd, deadline)) {
            return sdk::SDK_RET_OPERATION_TIMED_OUT;
        }
        // What poll() calls writable takes this much without blocking, unless others write to it as well.
        const ssize_t written = write(fd, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EAGAIN && errno != EINTR) {
            return to_ret(errno);
        }
    }
    return sdk::SDK_RET_OK;
}

}  // namespace sim
