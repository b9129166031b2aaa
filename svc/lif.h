// LIFs as the object API knows them.

#pragma once

#include "agent_api/sdk_ret.h"
#include "nyx/interface.pb.h"

// A null request is SDK_RET_INVALID_ARG; one without ids reads all LIFs.
sdk::sdk_ret_t nyx_svc_lif_get(const nyx::LifGetRequest *req, nyx::LifGetResponse *rsp);

// Appends a nyx_lif_info_s to a nyx::LifGetResponse.
void nyx_lif_api_info_to_proto(void *info, void *ctxt);
