#include "host/socket_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/setup_error.h"
#include "host/unix_address.h"

namespace host {

namespace {

constexpr const char *k_in_use = ": in use, probably by another agent";

bool same_file(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Whether `path` still names the file behind `fd`: its owner removes a lock when it lets go of it.
bool names(const std::string &path, int fd) {
    struct stat named, open;
    return stat(path.c_str(), &named) == 0 && fstat(fd, &open) == 0 && same_file(named, open);
}

// Whether another user owns what is at `path`. Keeps errno.
bool is_foreign(const std::string &path) {
    const int error = errno;
    struct stat status;
    const bool foreign = lstat(path.c_str(), &status) == 0 && status.st_uid != geteuid();
    errno = error;
    return foreign;
}

bool somebody_listens(const std::string &path) {
    const sockaddr_un address = to_unix_address(path);
    const base::unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // EAGAIN: somebody listens who has not accepted the last peers yet.
    return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 ||
           errno == EAGAIN;
}

}  // namespace

socket_file::socket_file(std::string path) : path_(std::move(path)), lock_path_(path_ + ".lock") {
    (void)to_unix_address(path_);
    struct stat status;
    const bool taken = lstat(path_.c_str(), &status) == 0;
    if (taken && !S_ISSOCK(status.st_mode)) {
        throw setup_error(path_ + ": exists and is not a socket; move it away or choose another path");
    }
    lock();
    if (taken && somebody_listens(path_)) {
        throw setup_error(path_ + k_in_use);
    }
}

socket_file::~socket_file() {
    remove();
    if (lock_.valid() && names(lock_path_, lock_.get())) {
        unlink(lock_path_.c_str());
    }
}

// A lock file of another user does not keep us from starting, in a folder like /tmp where anybody can make one: then
// nothing but the look for a listener keeps two agents apart that start at the same instant.
void socket_file::lock() {
    base::unique_fd lock;
    do {
        // Without O_CREAT first: the kernel refuses to create what another user has made in a sticky folder.
        lock.reset(open(lock_path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (!lock.valid() && errno == ENOENT) {
            lock.reset(
                open(lock_path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        }
        if (is_foreign(lock_path_)) {
            return;
        }
        if (!lock.valid()) {
            throw setup_error(lock_path_ + ": can't be created: " + strerror(errno));
        }
        if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
            throw setup_error(path_ + k_in_use);
        }
    } while (!names(lock_path_, lock.get()));
    lock_ = std::move(lock);
}

void socket_file::bound() {
    if (lstat(path_.c_str(), &bound_) != 0) {
        bound_ = {};
    }
}

void socket_file::remove() {
    struct stat status;
    if (bound_.st_ino != 0 && lstat(path_.c_str(), &status) == 0 && same_file(status, bound_)) {
        unlink(path_.c_str());
    }
}

}  // namespace host
