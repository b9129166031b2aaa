// Runs a service request.

#pragma once

#include <cstdint>

#include "agent_api/sdk_ret.h"
#include "nyx/types/service.pb.h"

// Runs the request that came over the connection `sock_fd` and writes its answer there, if it has one.
//
// Only a nyx.CommandMessage with SERVICE_OP_NONE is served: its command runs in the debug library, with
// `io_fd` (-1: none) for its text, and is answered with a types.ServiceResponseMessage. Returns the command's
// code. SDK_RET_INVALID_ARG: the payload's type URL holds no "/" and nothing was answered; or the command or
// its arguments can't be parsed, and that status was answered without running anything. Every other request
// does nothing, is not answered, and returns SDK_RET_OK.
//
// Both descriptors stay the caller's. Runs on the service request thread, for as long as the command runs.
sdk::sdk_ret_t handle_svc_req(int32_t sock_fd, types::ServiceRequestMessage *req, int32_t io_fd);
