// The fault service: failures of the stand-in, to be had while it runs.

#pragma once

#include "nyx/fault.grpc.pb.h"

namespace host {

// Arms, lists and removes the faults of sim/faults/faults.h. Ends with INVALID_ARGUMENT for a text that is no fault, and
// with NOT_FOUND for an id that no fault has. No state: any thread.
class FaultSvcImpl : public nyx::FaultSvc::Service {
 public:
    grpc::Status FaultAdd(grpc::ServerContext *context, const nyx::FaultAddRequest *req,
                          nyx::FaultAddResponse *rsp) override;
    grpc::Status FaultList(grpc::ServerContext *context, const types::Empty *req,
                           nyx::FaultListResponse *rsp) override;
    grpc::Status FaultClear(grpc::ServerContext *context, const nyx::FaultClearRequest *req,
                            nyx::FaultListResponse *rsp) override;
    grpc::Status FaultOperationsGet(grpc::ServerContext *context, const types::Empty *req,
                                    nyx::FaultOperationsGetResponse *rsp) override;
};

}  // namespace host
