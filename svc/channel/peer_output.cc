#include "svc/channel/peer_output.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
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

// The next bytes of what was written; 0 at the end.
ssize_t read_block(command_output_s *output, off_t offset, char *block, size_t size) {
    if (output->reader.valid()) {
        output->writer.reset();
        return read(output->reader.get(), block, size);
    }
    // The file is as long as it may become: where the command stopped writing is its end.
    const off_t left = lseek(output->writer.get(), 0, SEEK_CUR) - offset;
    return left <= 0 ? 0 : pread(output->writer.get(), block, std::min<size_t>(size, left), offset);
}

}  // namespace

command_output_s make_output() {
    constexpr rlim_t k_max_file_size = 64 << 20;
    constexpr int k_max_pipe_size = 1 << 20;
    command_output_s output;
    rlimit limit = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < k_max_file_size) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
            fcntl(ends[1], F_SETPIPE_SZ, k_max_pipe_size);
            output.reader.reset(ends[0]);
            output.writer.reset(ends[1]);
        }
        return output;
    }
    output.writer.reset(memfd_create("command-output", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (output.writer.valid() && ftruncate(output.writer.get(), k_max_file_size) == 0) {
        fcntl(output.writer.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK);
    }
    return output;
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

sdk::sdk_ret_t copy_output(command_output_s *output, int to) {
    if (const int flags = fcntl(to, F_GETFL); flags < 0 || (flags & O_ACCMODE) == O_RDONLY) {
        return sdk::SDK_RET_INVALID_ARG;  // never becomes writable
    }
    const base::blocked_write_signals guard;
    char block[PIPE_BUF];  // a pipe that is writable takes so much at once, a terminal takes a byte
    const size_t size = isatty(to) ? 1 : sizeof(block);
    for (off_t offset = 0;;) {
        const ssize_t got = read_block(output, offset, block, size);
        if (got <= 0) {
            return got == 0 ? sdk::SDK_RET_OK : sdk::SDK_RET_GENERIC_ERROR;
        }
        if (const auto ret = write_block(to, block, static_cast<size_t>(got)); ret != sdk::SDK_RET_OK) {
            return ret;
        }
        offset += got;
    }
}

}  // namespace svc
