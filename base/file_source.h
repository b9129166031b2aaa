// The content of a file of any size, piece by piece.

#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "base/unique_fd.h"

namespace base {

// A text_source (base/json_scanner.h) that copies share. For one thread.
class file_source {
 public:
    // Throws std::system_error when the file can't be opened, std::runtime_error when it is not a regular file. Never
    // waits for a writer, as opening a FIFO would.
    explicit file_source(const std::string &path) : state_(std::make_shared<state_s>()) {
        state_->path = path;
        state_->fd.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
        struct stat status = {};
        if (!state_->fd.valid() || fstat(state_->fd.get(), &status) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        if (!S_ISREG(status.st_mode)) {
            throw std::runtime_error(path + ": not a regular file");
        }
    }

    // The next piece, empty at the end; it holds until the next call. Throws std::system_error.
    std::string_view operator()() const {
        for (;;) {
            const ssize_t size = read(state_->fd.get(), state_->block.data(), state_->block.size());
            if (size >= 0) {
                return {state_->block.data(), static_cast<size_t>(size)};
            }
            if (errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), state_->path);
            }
        }
    }

 private:
    struct state_s {
        std::string path;
        unique_fd fd;
        std::array<char, 65536> block;
    };
    std::shared_ptr<state_s> state_;
};

}  // namespace base
