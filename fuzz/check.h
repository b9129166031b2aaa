// What ends a fuzz run: anything that must hold and does not.

#pragma once

#include <google/protobuf/message.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace fuzz {

inline void check(bool holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "does not hold: %s\n", what);
        abort();
    }
}

// Those who receive a message refuse it whole when one of its texts is not UTF-8.
inline void check_message(const google::protobuf::Message &message) {
    std::string bytes;
    check(message.SerializeToString(&bytes), "a message serialises");
    const std::unique_ptr<google::protobuf::Message> received(message.New());
    check(received->ParseFromString(bytes), "a message that was sent can be received");
    check(received->SerializeAsString() == bytes, "a message is received as it was sent");
}

}  // namespace fuzz
