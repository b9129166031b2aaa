// The service request thread: serves the agent's Unix domain socket.
//
// Any local user may connect. A connection carries one types.ServiceRequestMessage, sent in one piece, with
// at most one descriptor (SCM_RIGHTS) for the command's output. The server closes the connection after its
// answer.
//
// The agent's thread framework calls all of these on the same event thread. `ctxt` is the socket's path, a
// NUL-terminated text of 1 to 107 bytes.

#pragma once

#include "agent_api/event_thread.h"
#include "agent_api/sdk_ret.h"

namespace core {

// Starts the heartbeat (after 10 seconds, then every second) and listens.
// SDK_RET_GENERIC_ERROR: the socket can't be set up; the reason is logged. A socket that was listening before
// still does, though its file may be gone.
sdk::sdk_ret_t svc_server_thread_init(void *ctxt);

// Stops listening. Accepted connections are still served while the event loop runs, and closed when the thread
// ends; the file at the path stays. Does nothing when the thread does not listen.
void svc_server_thread_exit(void *ctxt);

// Stops listening until resume. Always SDK_RET_OK.
sdk::sdk_ret_t svc_server_thread_suspend_cb(void *ctxt);

// Listens again, as init does.
sdk::sdk_ret_t svc_server_thread_resume_cb(void *ctxt);

// Replaces whatever is at the path by a socket that listens. Errors as for init.
sdk::sdk_ret_t svc_server_thread_uds_init(void *ctxt);

// Callbacks of the framework: the listening socket, one connection, the heartbeat. Each acts on the descriptor and
// watcher that it is given. read_cb stops the watcher and closes the descriptor, unless receiving fails; it
// releases the memory of watchers that accept_cb made.
void svc_server_accept_cb(sdk::event_thread::io_ *io, int fd, int events);
void svc_server_read_cb(sdk::event_thread::io_ *io, int fd, int events);
void svc_server_thread_heartbeat_punch_cb(sdk::event_thread::timer_ *timer);

// Connections of the socket that are open now. Any thread.
size_t svc_server_open_connections();

}  // namespace core
