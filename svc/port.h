// The port service: the card's physical Ethernet ports.

#pragma once

#include "agent_api/sdk_ret.h"
#include "nyx/port.grpc.pb.h"
#include "svc/served.h"

// Each method ends with gRPC status OK; the outcome is the response's api_status. No state: any thread.
class PortSvcImpl final : public svc::served<nyx::PortSvc> {
 public:
    PortSvcImpl();
    ~PortSvcImpl() override;
    grpc::Status PortGet(grpc::ServerContext *context, const nyx::PortGetRequest *req,
                         nyx::PortGetResponse *rsp) override;
    grpc::Status PortUpdate(grpc::ServerContext *context, const nyx::PortUpdateRequest *req,
                            nyx::PortUpdateResponse *rsp) override;

    // The only outcome is a line in the log for an id above 16 bytes, which resets nothing.
    grpc::Status PortStatsReset(grpc::ServerContext *context, const types::Id *req,
                                types::Empty *rsp) override;
};

// The operations. A null request is SDK_RET_INVALID_ARG.
sdk::sdk_ret_t nyx_svc_port_get(const nyx::PortGetRequest *req, nyx::PortGetResponse *rsp);
sdk::sdk_ret_t nyx_svc_port_update(const nyx::PortUpdateRequest *req, nyx::PortUpdateResponse *rsp);
