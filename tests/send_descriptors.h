// Sends bytes and descriptors in one message (SCM_RIGHTS, unix(7)).

#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace test {

// As sendmsg(2): how many bytes were sent, or -1 and errno.
inline ssize_t send_with_descriptors(int fd, std::string_view bytes, std::span<const int> descriptors,
                                     int flags) {
    iovec part = {.iov_base = const_cast<char *>(bytes.data()), .iov_len = bytes.size()};
    std::vector<uint8_t> control(CMSG_SPACE(descriptors.size_bytes()));
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size_bytes());
    }
    return sendmsg(fd, &message, flags);
}

}  // namespace test
