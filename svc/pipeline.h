// The pipeline service: statistics of the packet pipeline, and quiescing it.

#pragma once

#include "agent_api/pipeline.h"
#include "nyx/pipeline.grpc.pb.h"
#include "svc/served.h"

// Each method ends with gRPC status OK; the outcome is the response's api_status, where it has one. Only
// FlowStatsSummaryGet ends with UNIMPLEMENTED when the device mode does not offer it. No state: any thread.
class PipelineSvcImpl final : public svc::served<nyx::PipelineSvc> {
 public:
    PipelineSvcImpl();
    ~PipelineSvcImpl() override;
    grpc::Status MeterStatsGet(grpc::ServerContext *context, const nyx::MeterStatsGetRequest *req,
                               nyx::MeterStatsGetResponse *rsp) override;
    grpc::Status SessionStatsGet(grpc::ServerContext *context, const nyx::SessionStatsGetRequest *req,
                                 nyx::SessionStatsGetResponse *rsp) override;
    grpc::Status FlowStatsSummaryGet(grpc::ServerContext *context, const types::Empty *req,
                                     nyx::FlowStatsSummaryResponse *rsp) override;
    grpc::Status DataPathAssistStatsGet(grpc::ServerContext *context, const types::Empty *req,
                                        nyx::DataPathAssistStatsResponse *rsp) override;
    grpc::Status SessionStatisticsEnable(grpc::ServerContext *context, const types::Empty *req,
                                         types::Empty *rsp) override;
    grpc::Status SessionStatisticsDisable(grpc::ServerContext *context, const types::Empty *req,
                                          types::Empty *rsp) override;
    grpc::Status LifStatisticsEnable(grpc::ServerContext *context, const types::Empty *req,
                                     types::Empty *rsp) override;
    grpc::Status LifStatisticsDisable(grpc::ServerContext *context, const types::Empty *req,
                                      types::Empty *rsp) override;
    grpc::Status QuiesceStart(grpc::ServerContext *context, const types::Empty *req,
                              types::Empty *rsp) override;
    grpc::Status QuiesceStop(grpc::ServerContext *context, const types::Empty *req,
                             types::Empty *rsp) override;
};

// Appends one session to a nyx::SessionStatsGetResponse.
void nyx_session_stats_to_proto(uint32_t index, session_stats_entry_s *entry, void *ctxt);

// Does nothing: meters are walked, but not reported.
void nyx_meter_stats_to_proto(nyx_meter_stats_entry_s *entry, void *ctxt);
