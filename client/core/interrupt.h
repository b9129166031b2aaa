// SIGINT and SIGTERM as a wish to end after what has begun.

#pragma once

#include "client/core/outcome.h"

namespace nyxctl {

// From the first call on, the first of these signals only sets what interrupted() returns; a second one ends the
// process.
void catch_interrupts();

bool interrupted();
outcome_s interrupted_failure();

// Whether a read would not wait.
bool is_readable(int fd);

// Waits until `fd` can be read, or is at its end. Returns false after a signal.
bool wait_to_read(int fd);

}  // namespace nyxctl
