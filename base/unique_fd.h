// A file descriptor with one owner.

#pragma once

#include <unistd.h>

#include <utility>

namespace base {

class unique_fd {
 public:
    explicit unique_fd(int fd = -1) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        // Once closed, a number may be another thread's: after an error it must not be closed again.
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

 private:
    int fd_;
};

}  // namespace base
