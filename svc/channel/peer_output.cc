#include "svc/channel/peer_output.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "base/blocked_signals.h"
#include "svc/channel/peer_limits.h"

namespace svc {

namespace {

using clock = std::chrono::steady_clock;

constexpr auto k_patience = std::chrono::milliseconds(500);

bool is_harmless_device(int fd, dev_t device) {
    constexpr unsigned k_memory_devices = 1, k_null = 3, k_zero = 5, k_full = 7;
    const unsigned number = minor(device);
    return isatty(fd) ||
           (major(device) == k_memory_devices && (number == k_null || number == k_zero || number == k_full));
}

// As write(2). A socket doesn't wait; a pipe or terminal may, although it was ready, when others write to it too.
ssize_t write_some(int fd, const char *bytes, size_t size) {
    const ssize_t sent = send(fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? write(fd, bytes, size) : sent;
}

bool wait_writable(int fd, clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count();
    pollfd waiting = {.fd = fd, .events = POLLOUT, .revents = 0};
    return left > 0 && poll(&waiting, 1, static_cast<int>(left)) != 0;
}

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

// Writes one block.
sdk::sdk_ret_t write_block(int to, const char *bytes, size_t size) {
    auto deadline = clock::now() + k_patience;
    while (size > 0) {
        if (!wait_writable(to, deadline)) {
            return sdk::SDK_RET_OPERATION_TIMED_OUT;
        }
        const ssize_t written = write_some(to, bytes, size);
        if (written > 0) {
            bytes += written;
            size -= static_cast<size_t>(written);
            deadline = clock::now() + k_patience;
        } else if (written < 0 && errno == EAGAIN) {
            usleep(1000);  // a terminal may report that it is writable and take nothing: no spin
        } else if (written < 0 && errno != EINTR) {
            return to_ret(errno);
        }
    }
    return sdk::SDK_RET_OK;
}

}  // namespace

base::unique_fd make_output_file() {
    constexpr off_t k_max_output_size = 64 << 20;
    base::unique_fd file(memfd_create("command-output", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    // Where RLIMIT_FSIZE is lower, that is the bound.
    if (file.valid() && ftruncate(file.get(), k_max_output_size) == 0) {
        fcntl(file.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK);
    }
    return file;
}

bool may_take_output(int fd, uid_t uid) {
    if (is_privileged(uid)) {
        return true;
    }
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return false;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFIFO:
        case S_IFSOCK:
        case S_IFREG:
            return true;
        case S_IFCHR:
            return is_harmless_device(fd, status.st_rdev);
    }
    return false;
}

sdk::sdk_ret_t copy_output(int from, int to) {
    if (const int flags = fcntl(to, F_GETFL); flags < 0 || (flags & O_ACCMODE) == O_RDONLY) {
        return sdk::SDK_RET_INVALID_ARG;  // never becomes writable
    }
    const base::blocked_write_signals guard;
    const off_t size = lseek(from, 0, SEEK_CUR);
    char block[PIPE_BUF];  // a pipe that is writable takes so much at once
    for (off_t offset = 0; offset < size;) {
        const ssize_t got = pread(from, block, std::min<off_t>(sizeof(block), size - offset), offset);
        if (got <= 0) {
            return sdk::SDK_RET_GENERIC_ERROR;
        }
        if (const auto ret = write_block(to, block, static_cast<size_t>(got)); ret != sdk::SDK_RET_OK) {
            return ret;
        }
        offset += got;
    }
    return sdk::SDK_RET_OK;
}

}  // namespace svc
