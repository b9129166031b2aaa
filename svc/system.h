// The system service: the adapter as a whole.

#pragma once

#include "agent_api/queue_credits.h"
#include "nyx/system.grpc.pb.h"
#include "svc/served.h"

// Each method ends with gRPC status OK; the outcome is the response's api_status, where it has one. No state: any
// thread.
class SystemSvcImpl final : public svc::served<nyx::SystemSvc> {
 public:
    SystemSvcImpl();
    ~SystemSvcImpl() override;
    grpc::Status SystemGet(grpc::ServerContext *context, const types::Empty *req,
                           nyx::SystemGetResponse *rsp) override;
    grpc::Status ClockFrequencyUpdate(grpc::ServerContext *context, const nyx::ClockFrequencyRequest *req,
                                      nyx::ClockFrequencyResponse *rsp) override;
    grpc::Status QueueCreditsGet(grpc::ServerContext *context, const types::Empty *req,
                                 nyx::QueueCreditsGetResponse *rsp) override;
    grpc::Status ProcessRecoveryEnable(grpc::ServerContext *context, const types::Empty *req,
                                       types::Empty *rsp) override;
    grpc::Status ProcessRecoveryDisable(grpc::ServerContext *context, const types::Empty *req,
                                        types::Empty *rsp) override;
    grpc::Status ProcessRecoveryGet(grpc::ServerContext *context, const types::Empty *req,
                                    nyx::ProcessRecoveryGetResponse *rsp) override;
};

// Appends the credits of one port to a nyx::QueueCreditsGetResponse.
void nyx_queue_credits_to_proto(uint32_t port, sdk::asic::pd::port_queue_credit_s *credits, void *ctxt);
