// The file of a Unix socket that this process listens on.

#pragma once

#include <sys/stat.h>

#include <string>

#include "base/unique_fd.h"

namespace host {

// Claims a path for this process: no other agent gets it while this object lives, and a file that is not this
// process's is never removed. PATH.lock is beside the socket for as long, unless another user has made one. Owned by one thread.
class socket_file {
 public:
    // Throws setup_error when another agent has the path, when somebody else listens there, when something that is
    // no socket is there, or when the path is too long.
    explicit socket_file(std::string path);
    ~socket_file();

    const std::string &path() const { return path_; }

    // To be called when the socket is bound: remembers that the file is ours.
    void bound();

    // Removes the file, if it is still the one that was bound.
    void remove();

 private:
    void lock();

    const std::string path_;
    const std::string lock_path_;
    base::unique_fd lock_;
    struct stat bound_ = {};
};

}  // namespace host
