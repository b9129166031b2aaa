// The read-modify-write of a small file that other threads and processes update, and anybody may read, at any time.

#pragma once

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

#include "base/file_source.h"
#include "base/unique_fd.h"

namespace svc {

// Waits for the other updates, for at most 5 seconds. Where the path is a symbolic link, the file is what it leads to.
//
// The file is replaced whole, by a rename: a reader, or whoever comes after a crash, finds the old or the new content.
// It keeps its owner, group and permissions. Until then the new content stands in PATH.new. That file is the lock, too:
// a writer holds it by flock(2), so that one that is killed leaves no lock.
//
// Where replacing is not possible but writing is, the file is written in place: its folder can't be written, it is a
// mount point, its owner can't be given to another file, or PATH.new is somebody else's and can't be removed.
//
// A user who may not update the file can lock it, or a PATH.new of their own. Such a lock delays an update by 2 seconds,
// and the updates after it by 0.1 seconds each. It is then ignored.
//
// Blocking; for one thread.
class file_update {
 public:
    explicit file_update(const std::string &path);
    file_update(const file_update &) = delete;
    file_update &operator=(const file_update &) = delete;
    ~file_update();

    // The content. Throws std::system_error, or std::runtime_error when it is not a regular file.
    base::file_source read() const;

    // Throws the same, also when the other updates took too long. The file then holds what it held before, unless an
    // I/O error occurred in place.
    void write(std::string_view text);

    // Whether the file, or a new one in its folder, may be written.
    static bool is_possible(const std::string &path);

 private:
    using clock = std::chrono::steady_clock;

    void lock();
    int lock_new_file(uid_t owner);
    static bool wait_for(int fd, clock::time_point deadline);
    static bool wait_for_stranger(int fd);
    int replace(std::string_view text, const struct stat *old);

    static inline std::timed_mutex g_threads;
    // Of the last wait for a stranger's lock. Under g_threads, but ThreadSanitizer of g++ 12 sees no timed mutex.
    static inline std::atomic<bool> g_timed_out = false;
    const clock::time_point deadline_;
    const std::unique_lock<std::timed_mutex> threads_;
    std::string path_, new_path_;
    int path_error_, lock_error_ = 0;
    base::unique_fd new_file_;  // valid: locked, and nobody else's
    base::unique_fd old_file_;  // locked instead, where no new file can be had
};

}  // namespace svc
