// A file descriptor with one owner.

#pragma once

#include <unistd.h>

#include <utility>

namespace base {

// Closes the descriptor exactly once. For one thread at a time.
class unique_fd {
 public:
    explicit unique_fd(int fd = -1) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    bool valid() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        (void)close();
        fd_ = fd;
    }

    // Closes now and returns 0, or -1 with errno: writes that failed late are reported here. The number may
    // be another thread's from then on, so that it is given up after an error too. Nothing when not valid.
    int close() { return valid() ? ::close(release()) : 0; }

 private:
    int fd_;
};

}  // namespace base
