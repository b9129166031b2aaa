// Receives one service request from a connection.

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/unique_fd.h"

namespace svc {

// Memory for one request after another, zero-filled for each. It is a mapping of its own and stays mapped:
// taking and giving back a megabyte for each request would cost more than all else that is done for a small
// one. For one thread.
class receive_buffer {
 public:
    receive_buffer() = default;
    ~receive_buffer();
    receive_buffer(const receive_buffer &) = delete;
    receive_buffer &operator=(const receive_buffer &) = delete;

    // Whether there is memory; asks for it when there is none.
    bool reserve();

    uint8_t *data() { return data_; }

    // Forgets a request of this size. The memory of a large one goes back to the system.
    void clear(size_t size);

 private:
    uint8_t *data_ = nullptr;
};

struct received_s {
    ssize_t size;           // bytes received, 0 at the end of the stream, negative on failure
    base::unique_fd io_fd;  // the descriptor passed along; none when there was none
};

// Receives once, without waiting: size is negative and errno EAGAIN when nothing is there. A peer may pass any
// number of descriptors: the first one is taken, the kernel closes the others, which may wait for a third party.
received_s receive_once(int sock_fd, receive_buffer &buffer);

}  // namespace svc
