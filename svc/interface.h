// The interface service: interfaces, and LIFs as the object API knows them.

#pragma once

#include "agent_api/sdk_ret.h"
#include "nyx/interface.grpc.pb.h"
#include "svc/served.h"

// Each method ends with gRPC status OK; the outcome is the response's api_status. No state: any thread.
class IfSvcImpl final : public svc::served<nyx::IfSvc> {
 public:
    IfSvcImpl();
    ~IfSvcImpl() override;
    grpc::Status InterfaceCreate(grpc::ServerContext *context, const nyx::InterfaceRequest *req,
                                 nyx::InterfaceResponse *rsp) override;
    grpc::Status InterfaceUpdate(grpc::ServerContext *context, const nyx::InterfaceRequest *req,
                                 nyx::InterfaceResponse *rsp) override;
    grpc::Status InterfaceDelete(grpc::ServerContext *context, const nyx::InterfaceDeleteRequest *req,
                                 nyx::InterfaceDeleteResponse *rsp) override;
    grpc::Status InterfaceGet(grpc::ServerContext *context, const nyx::InterfaceGetRequest *req,
                              nyx::InterfaceGetResponse *rsp) override;
    grpc::Status LifGet(grpc::ServerContext *context, const nyx::LifGetRequest *req,
                        nyx::LifGetResponse *rsp) override;
    grpc::Status LifStatsReset(grpc::ServerContext *context, const types::Id *req,
                               types::Empty *rsp) override;
};

// The operations. A null request, and one without entries to write, is SDK_RET_INVALID_ARG.
//
// Entries are handled in order up to the first failure, each by the control plane's hook first. An own batch is then
// destroyed; what was handled before stays in a caller's batch and in the MAC file.
sdk::sdk_ret_t nyx_svc_interface_create(const nyx::InterfaceRequest *req, nyx::InterfaceResponse *rsp);
sdk::sdk_ret_t nyx_svc_interface_update(const nyx::InterfaceRequest *req, nyx::InterfaceResponse *rsp);

// With an own batch the response gets the same status for each id; with the caller's batch it gets none.
sdk::sdk_ret_t nyx_svc_interface_delete(const nyx::InterfaceDeleteRequest *req,
                                        nyx::InterfaceDeleteResponse *rsp);

void nyx_svc_interface_get(const nyx::InterfaceGetRequest *req, nyx::InterfaceGetResponse *rsp);
