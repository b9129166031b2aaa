#include "svc/channel/peer_limits.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

namespace svc {

namespace {

constexpr size_t k_least_peers = 16, k_least_of_user = 8, k_most_of_user = 128;

size_t max_peers() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return std::max<size_t>(limit.rlim_cur / 2, k_least_peers);
}

}  // namespace

bool is_privileged(uid_t uid) { return uid == 0 || uid == geteuid(); }

peer_limits::peer_limits() : total_(max_peers()) {}

bool peer_limits::admit(uid_t uid) {
    const bool other = !is_privileged(uid);
    const size_t of_user = std::clamp(total_ / 8, k_least_of_user, k_most_of_user);
    if (open_ >= total_ || (other && open_of_others_ >= total_ / 4 * 3)) {
        return false;
    }
    size_t &open = open_of_[uid];
    if (other && open >= of_user) {
        return false;
    }
    open++;
    open_++;
    open_of_others_ += other;
    return true;
}

void peer_limits::leave(uid_t uid) {
    if (const auto user = open_of_.find(uid); --user->second == 0) {
        open_of_.erase(user);
    }
    open_--;
    open_of_others_ -= !is_privileged(uid);
}

}  // namespace svc
