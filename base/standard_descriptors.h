// Standard input, output and error of a program.

#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace base {

// To be called first in main(). A socket or file that got the number of a closed standard descriptor would be
// taken for it. Opened for reading, a missing stdout still refuses to be written. Ends the process with exit code
// 1 when there is nothing to open.
inline void occupy_standard_descriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY) != fd) {
            std::_Exit(1);
        }
    }
}

}  // namespace base
