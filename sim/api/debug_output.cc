#include "sim/api/debug_output.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>

#include "base/unique_fd.h"
#include "base/wait_budget.h"

namespace sim {

namespace {

constexpr auto k_patience = std::chrono::milliseconds(200);

bool is_writable(int fd, int timeout_ms) {
    pollfd waiting = {.fd = fd, .events = POLLOUT, .revents = 0};
    return poll(&waiting, 1, timeout_ms) > 0;
}

// Where the text goes. The descriptor is the peer's, who may have others for the same pipe: what poll() says of it may
// be wrong a moment later, and making it non-blocking would surprise the peer. So pipes are opened once more.
// Terminals are refused: opening one could mean the agent's own terminal (/dev/tty), and writing to one can block or
// stop the agent. An agent whose library has an executor gets a file in memory instead of any of these.
class output {
 public:
    explicit output(int fd) : fd_(fd) {
        struct stat status;
        const int flags = fcntl(fd, F_GETFL);
        if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY || fstat(fd, &status) != 0) {
            error_ = EBADF;
        } else if (isatty(fd)) {
            error_ = EACCES;
        } else if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
            const std::string path = "/proc/self/fd/" + std::to_string(fd);
            own_.reset(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
            // Another user's pipe can't be opened. While it is writable, it takes a small write without blocking, unless
            // others write to it at the same time.
            may_block_ = !own_.valid() && errno == EACCES && S_ISFIFO(status.st_mode);
            error_ = own_.valid() || may_block_ ? 0 : errno;
        } else if (S_ISSOCK(status.st_mode)) {
            socket_ = true;
        } else if (!S_ISREG(status.st_mode)) {
            error_ = EBADF;
        }
    }

    int error() const { return error_; }
    int fd() const { return own_.valid() ? own_.get() : fd_; }

    // As write(2), but does not block.
    ssize_t write_some(std::string_view text) const {
        const size_t size = std::min<size_t>(text.size(), PIPE_BUF);
        if (may_block_ && !is_writable(fd_, 0)) {
            errno = EAGAIN;
            return -1;
        }
        return socket_ ? send(fd_, text.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL)
                       : write(fd(), text.data(), size);
    }

 private:
    int fd_;
    base::unique_fd own_;
    bool socket_ = false, may_block_ = false;
    int error_ = 0;
};

sdk::sdk_ret_t to_ret(int error) {
    switch (error) {
        case EBADF:
        case EINVAL:
        case EACCES:
            return sdk::SDK_RET_INVALID_ARG;
        case ENXIO:
        case EPIPE:
        case ECONNRESET:
            return sdk::SDK_RET_COMMUNICATION_FAILURE;
    }
    return sdk::SDK_RET_GENERIC_ERROR;
}

}  // namespace

sdk::sdk_ret_t write_output(int fd, std::string_view text) {
    static thread_local base::wait_budget t_budget(k_patience);
    const output to(fd);
    if (to.error() != 0) {
        return to_ret(to.error());
    }
    while (!text.empty()) {
        const ssize_t written = to.write_some(text);
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            if (!t_budget.wait_writable(to.fd())) {
                return sdk::SDK_RET_OPERATION_TIMED_OUT;
            }
        } else if (errno != EINTR) {
            return to_ret(errno);
        }
    }
    return sdk::SDK_RET_OK;
}

}  // namespace sim
