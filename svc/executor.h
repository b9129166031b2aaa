// Where the library may wait for peers: the agent's threads.

#pragma once

#include <functional>

namespace svc {

// Runs `work` soon, once, on a thread that may wait for any length of time. False when it can't take it: the
// library tries again. It must not run the work before it returns, nor throw. Called on the service request
// thread.
using executor_t = std::function<bool(std::function<void()>)>;

// Gives the library an executor; an empty one takes it away. To be called before the service request thread
// starts, or after it and all work have ended. Forty threads are enough: more never wait at once.
//
// With an executor the service request thread touches nothing that belongs to a peer of the socket: requests are
// received and parsed, outputs written and descriptors closed on the executor's threads. A debug command gets a
// file in memory (or a pipe) as its `io_fd`, which is copied to the peer's descriptor when the command has run. Without an
// executor all of that happens on the service request thread, which a hostile peer can then hold.
void set_executor(executor_t executor);

}  // namespace svc
