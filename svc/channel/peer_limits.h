// How many peers may be connected at once.

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <unordered_map>

namespace svc {

// Whether a user's peers draw on the reserve: root, and the agent's own user.
bool is_privileged(uid_t uid);

// Counts the open connections of each user. The bounds follow from the number of descriptors that the process
// may have: all peers together get half of them; those of other users than root and the agent's own get three
// quarters of that half, and each of these users an eighth of it, 128 at most. For one thread.
class peer_limits {
 public:
    peer_limits();

    // Counts one more peer of this user; false, and not counted, when there are as many as may be.
    bool admit(uid_t uid);
    void leave(uid_t uid);

 private:
    const size_t total_;
    size_t open_ = 0, open_of_others_ = 0;
    std::unordered_map<uid_t, size_t> open_of_;
};

}  // namespace svc
