// Runs a service request.

#pragma once

#include <cstdint>

#include "agent_api/sdk_ret.h"
#include "nyx/types/service.pb.h"

// Runs the request that came over the connection `sock_fd` and writes its answer there, if it has one.
//
// Serves only nyx.CommandMessage with SERVICE_OP_NONE: runs its command in the debug library, with `io_fd` (-1:
// none) for the output, answers with a types.ServiceResponseMessage and returns the command's code. A command or
// arguments that can't be parsed are answered with SDK_RET_INVALID_ARG and not run. Every other request does
// nothing, is not answered, and returns SDK_RET_OK, or SDK_RET_INVALID_ARG when its type URL has no "/".
//
// `sock_fd` may be any descriptor that can be written to. An answer that it does not take within half a second
// is logged and lost. Writes raise no SIGPIPE, SIGXFSZ or SIGTTOU, those of the command included.
//
// Both descriptors stay the caller's. Runs on the service request thread, for as long as the command runs.
sdk::sdk_ret_t handle_svc_req(int32_t sock_fd, types::ServiceRequestMessage *req, int32_t io_fd);
