#include "svc/file_update.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

constexpr auto k_patience = std::chrono::seconds(5);
// For a lock that a stranger could keep for ever. Less than k_patience: other threads wait for us meanwhile.
constexpr auto k_patience_with_strangers = std::chrono::seconds(2);
constexpr auto k_patience_after_timeout = std::chrono::milliseconds(100);
constexpr auto k_pause = std::chrono::milliseconds(1);
constexpr int k_max_links = 40;  // as many as the kernel follows

[[noreturn]] void fail(int error, const std::string &path) {
    throw std::system_error(error, std::generic_category(), path);
}

std::string folder_of(const std::string &path) {
    return path.substr(0, path.rfind('/') + 1);  // empty: the current folder
}

// Makes `path` what it leads to, whether that exists or not. Returns an errno.
int follow_links(std::string *path) {
    for (int i = 0; i < k_max_links; i++) {
        char target[PATH_MAX];
        const ssize_t size = readlink(path->c_str(), target, sizeof(target));
        if (size < 0) {
            return errno == EINVAL || errno == ENOENT ? 0 : errno;
        }
        const std::string_view text(target, static_cast<size_t>(size));
        *path = (text.starts_with('/') ? "" : folder_of(*path)).append(text);
    }
    return ELOOP;
}

// Errors that stand in the way of a new file, and not of writing the old one. With any other error, a full disk above
// all, writing in place would risk what the file holds.
bool is_obstacle(int error) {
    constexpr int k_obstacles[] = {EACCES, EPERM, EROFS, EBUSY, EISDIR, ELOOP, ENXIO, ENAMETOOLONG};
    return std::ranges::find(k_obstacles, error) != std::end(k_obstacles);
}

// Returns an errno.
int write_whole(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(fd, text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }
    return 0;
}

// Returns an errno.
int overwrite(int fd, std::string_view text, off_t old_size) {
    // Takes the room before the first byte is lost. Not every file system can.
    const auto size = static_cast<off_t>(text.size());
    if (fallocate(fd, 0, 0, size) != 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
        const int error = errno;
        (void)!ftruncate(fd, old_size);
        return error;
    }
    if (const int error = write_whole(fd, text)) {
        return error;
    }
    return ftruncate(fd, size) != 0 || fsync(fd) != 0 ? errno : 0;
}

bool is_same_file(const std::string &path, const struct stat &status) {
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0 && found.st_ino == status.st_ino && found.st_dev == status.st_dev;
}

}  // namespace

namespace svc {

file_update::file_update(const std::string &path)
    : deadline_(clock::now() + k_patience),
      threads_(g_threads, deadline_),
      path_(path),
      path_error_(follow_links(&path_)) {
    new_path_ = path_ + ".new";
    if (!threads_.owns_lock()) {
        lock_error_ = ETIMEDOUT;
    } else if (!path_error_) {
        lock();
    }
}

file_update::~file_update() {
    if (new_file_.valid()) {
        (void)unlink(new_path_.c_str());
    }
}

void file_update::lock() {
    struct stat old = {};
    const uid_t owner = stat(path_.c_str(), &old) == 0 ? old.st_uid : geteuid();
    lock_error_ = lock_new_file(owner);
    if (is_obstacle(lock_error_)) {
        lock_error_ = 0;
        old_file_.reset(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW));
        // Anybody who may read the file can hold its lock. After a timeout the update goes on without it.
        (void)wait_for_stranger(old_file_.get());
    }
}

// Returns an errno.
int file_update::lock_new_file(uid_t owner) {
    for (bool removed = false;;) {
        struct stat status = {};
        new_file_.reset(
            open(new_path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        int error = !new_file_.valid() || fstat(new_file_.get(), &status) != 0 ? errno : 0;
        const bool is_own = status.st_uid == geteuid();
        const bool is_writers = is_own || status.st_uid == owner;  // the owner's: about to be renamed
        if (!error && (!S_ISREG(status.st_mode) || !is_writers || status.st_nlink > 1)) {
            error = EPERM;
        }
        if (!error && !is_own && !wait_for_stranger(new_file_.get()) && is_same_file(new_path_, status)) {
            error = EPERM;
        }
        if (is_obstacle(error) && !removed && unlink(new_path_.c_str()) == 0) {
            removed = true;
            continue;
        }
        if (!error && is_own && !wait_for(new_file_.get(), deadline_)) {
            error = ETIMEDOUT;
        }
        if (error) {
            new_file_.reset();
            return error;
        }
        // Who had the lock has renamed or removed the file, or was killed.
        if (is_same_file(new_path_, status)) {
            return 0;
        }
    }
}

// False when somebody else has kept the lock for too long. A file system without locks lets everybody pass.
bool file_update::wait_for(int fd, clock::time_point deadline) {
    while (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        if (clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(k_pause);
    }
    return true;
}

// The same for a lock that a user without any right to update the file can hold.
bool file_update::wait_for_stranger(int fd) {
    const clock::duration patience = g_timed_out ? k_patience_after_timeout : k_patience_with_strangers;
    g_timed_out = !wait_for(fd, clock::now() + patience);
    return !g_timed_out;
}

base::file_source file_update::read() const {
    if (path_error_) {
        fail(path_error_, path_);
    }
    return base::file_source(path_);
}

void file_update::write(std::string_view text) {
    if (const int error = path_error_ ? path_error_ : lock_error_) {
        fail(error, path_);
    }
    constexpr int k_flags = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;
    base::unique_fd file(open(path_.c_str(), k_flags));
    struct stat old = {};
    if (file.valid() ? fstat(file.get(), &old) != 0 : errno != ENOENT) {
        fail(errno, path_);
    }
    if (file.valid() && !S_ISREG(old.st_mode)) {
        throw std::runtime_error(path_ + ": not a regular file");
    }
    if (new_file_.valid()) {
        const int error = replace(text, file.valid() ? &old : nullptr);
        if (!is_obstacle(error)) {
            return error ? fail(error, new_path_) : void();
        }
    }
    if (!file.valid()) {
        file.reset(open(path_.c_str(), k_flags | O_CREAT | O_EXCL, 0644));
    }
    if (const int error = file.valid() ? overwrite(file.get(), text, old.st_size) : errno) {
        fail(error, path_);
    }
}

// Returns an errno. The folder is not synced, which would cost as much again: a power cut within seconds can bring the
// old file back, whole.
int file_update::replace(std::string_view text, const struct stat *old) {
    const int fd = new_file_.get();
    if (ftruncate(fd, 0) != 0) {  // of one that was killed
        return errno;
    }
    if (const int error = write_whole(fd, text)) {
        return error;
    }
    // The owner first: giving a file away clears permissions.
    if ((old && fchown(fd, old->st_uid, old->st_gid) != 0) ||
        fchmod(fd, old ? old->st_mode & 07777 : 0644) != 0 || fsync(fd) != 0) {
        return errno;
    }
    // Another process that waited too long for the lock has removed our file, and may be writing its own.
    struct stat own = {};
    if (fstat(fd, &own) != 0 || !is_same_file(new_path_, own)) {
        return ESTALE;
    }
    if (rename(new_path_.c_str(), path_.c_str()) != 0) {
        return errno;
    }
    new_file_.reset();
    return 0;
}

bool file_update::is_possible(const std::string &path) {
    std::string file = path;
    struct stat status = {};
    if (follow_links(&file) != 0) {
        return false;
    }
    const auto is_writable = [](const std::string &name, int how) {
        return faccessat(AT_FDCWD, name.c_str(), how, AT_EACCESS) == 0;
    };
    if (stat(file.c_str(), &status) == 0) {
        return S_ISREG(status.st_mode) && is_writable(file, W_OK);
    }
    return errno == ENOENT && is_writable(folder_of(file) + ".", W_OK | X_OK);
}

}  // namespace svc
