// The stand-in's own gRPC service: faults and scenarios while it runs, and the heartbeats of its threads.

#pragma once

#include "nyx/fault.grpc.pb.h"
#include "svc/served.h"

namespace host {

// Arms, lists and removes faults (sim/faults/faults.h): INVALID_ARGUMENT for a text that is not a fault, NOT_FOUND for
// an unknown id. Starts and moves scenarios (sim/scenario/running.h). Reports heartbeats (sim/framework/watchdog.h). No state of its own: any thread.
class FaultSvcImpl final : public svc::served<nyx::FaultSvc> {
 public:
    FaultSvcImpl();
    grpc::Status FaultAdd(grpc::ServerContext *context, const nyx::FaultAddRequest *req,
                          nyx::FaultAddResponse *rsp) override;
    grpc::Status FaultList(grpc::ServerContext *context, const types::Empty *req,
                           nyx::FaultListResponse *rsp) override;
    grpc::Status FaultClear(grpc::ServerContext *context, const nyx::FaultClearRequest *req,
                            nyx::FaultListResponse *rsp) override;
    grpc::Status FaultOperationsGet(grpc::ServerContext *context, const types::Empty *req,
                                    nyx::FaultOperationsGetResponse *rsp) override;
    grpc::Status HeartbeatGet(grpc::ServerContext *context, const nyx::HeartbeatGetRequest *req,
                              nyx::HeartbeatGetResponse *rsp) override;
    grpc::Status ScenarioSet(grpc::ServerContext *context, const nyx::ScenarioSetRequest *req,
                             nyx::ScenarioGetResponse *rsp) override;
    grpc::Status ScenarioGet(grpc::ServerContext *context, const types::Empty *req,
                             nyx::ScenarioGetResponse *rsp) override;
    grpc::Status ScenarioAdvance(grpc::ServerContext *context, const nyx::ScenarioAdvanceRequest *req,
                                 nyx::ScenarioGetResponse *rsp) override;
    grpc::Status ScenarioStop(grpc::ServerContext *context, const types::Empty *req,
                              nyx::ScenarioGetResponse *rsp) override;
};

}  // namespace host
