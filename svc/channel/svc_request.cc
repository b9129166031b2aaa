#include "svc/channel/svc_request.h"

#include <sys/mman.h>
#include <sys/socket.h>

#include <cstring>

#include "base/request_limits.h"

namespace svc {

receive_buffer::~receive_buffer() {
    if (data_) {
        munmap(data_, base::k_max_socket_request_size);
    }
}

bool receive_buffer::reserve() {
    if (!data_) {
        void *memory = mmap(nullptr, base::k_max_socket_request_size, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        data_ = memory == MAP_FAILED ? nullptr : static_cast<uint8_t *>(memory);
    }
    return data_ != nullptr;
}

void receive_buffer::clear(size_t size) {
    constexpr size_t k_kept_size = 65'536;
    if (size <= k_kept_size || madvise(data_, base::k_max_socket_request_size, MADV_DONTNEED) != 0) {
        memset(data_, 0, size);
    }
}

received_s receive_once(int sock_fd, receive_buffer &buffer) {
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int))];
    auto *header = reinterpret_cast<cmsghdr *>(control);
    header->cmsg_len = CMSG_LEN(sizeof(int));
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    const int none = -1;
    memcpy(CMSG_DATA(header), &none, sizeof(none));

    iovec data = {.iov_base = buffer.data(), .iov_len = base::k_max_socket_request_size};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    // Not the buffer's size, whose padding on a 64-bit machine has room for a second descriptor: the kernel
    // would open that one here too.
    message.msg_controllen = header->cmsg_len;

    const ssize_t size = recvmsg(sock_fd, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    int io_fd = -1;
    if (size >= 0) {
        memcpy(&io_fd, CMSG_DATA(header), sizeof(io_fd));
    }
    return {size, base::unique_fd(io_fd)};
}

}  // namespace svc
