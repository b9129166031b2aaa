// The classic LIF service: LIFs with their receive-side configuration in the pipeline.

#pragma once

#include "agent_api/sdk_ret.h"
#include "nyx/lif.grpc.pb.h"
#include "svc/served.h"

// Ends with gRPC status OK; the outcome is the response's api_status. No state: any thread.
class LifClassicSvcImpl final : public svc::served<nyx::LifClassicSvc> {
 public:
    LifClassicSvcImpl();
    ~LifClassicSvcImpl() override;
    grpc::Status LifClassicGet(grpc::ServerContext *context, const nyx::LifClassicGetRequest *req,
                               nyx::LifClassicGetResponse *rsp) override;
};

sdk::sdk_ret_t nyx_svc_lif_classic_get(const nyx::LifClassicGetRequest *req, nyx::LifClassicGetResponse *rsp);

// Appends a nyx_lif_info_s to a nyx::LifClassicGetResponse, with a status when the pipeline has an implementation
// object for the LIF.
void nyx_lif_api_info_to_config_proto(void *info, void *ctxt);
