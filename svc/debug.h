// The debug service: a view of the running agent for operators and support.

#pragma once

#include <cstdint>

#include "agent_api/debug_stats.h"
#include "nyx/debug.grpc.pb.h"
#include "svc/served.h"

// The service's other methods answer UNIMPLEMENTED. These end with gRPC status OK, and the outcome is the response's
// api_status, where it has one; only InternalPortGet ends with INVALID_ARGUMENT for a bad request. No state: any
// thread.
class DebugSvcImpl final : public svc::served<nyx::DebugSvc> {
 public:
    DebugSvcImpl();
    ~DebugSvcImpl() override;
    grpc::Status TraceUpdate(grpc::ServerContext *context, const nyx::TraceRequest *req,
                             nyx::TraceResponse *rsp) override;
    grpc::Status TraceFlush(grpc::ServerContext *context, const types::Empty *req,
                            types::Empty *rsp) override;
    grpc::Status TableStatsGet(grpc::ServerContext *context, const types::Empty *req,
                               nyx::TableStatsGetResponse *rsp) override;
    grpc::Status LlcSetup(grpc::ServerContext *context, const nyx::LlcSetupRequest *req,
                          nyx::LlcSetupResponse *rsp) override;
    grpc::Status LlcStatsGet(grpc::ServerContext *context, const types::Empty *req,
                             nyx::LlcStatsGetResponse *rsp) override;
    grpc::Status PbStatsGet(grpc::ServerContext *context, const types::Empty *req,
                            nyx::PbStatsGetResponse *rsp) override;
    grpc::Status PbDropStatsReset(grpc::ServerContext *context, const types::Empty *req,
                                  types::Empty *rsp) override;
    grpc::Status SlabGet(grpc::ServerContext *context, const types::Empty *req,
                         nyx::SlabGetResponse *rsp) override;
    grpc::Status HeapGet(grpc::ServerContext *context, const nyx::HeapGetRequest *req,
                         nyx::HeapGetResponse *rsp) override;
    grpc::Status MemoryTrim(grpc::ServerContext *context, const types::Empty *req,
                            types::Empty *rsp) override;
    grpc::Status StartAacsServer(grpc::ServerContext *context, const nyx::AacsRequest *req,
                                 types::Empty *rsp) override;
    grpc::Status StopAacsServer(grpc::ServerContext *context, const types::Empty *req,
                                types::Empty *rsp) override;
    grpc::Status InternalPortGet(grpc::ServerContext *context, const nyx::InternalPortRequestMsg *req,
                                 nyx::InternalPortResponseMsg *rsp) override;
};

// A callback of the debug library's walk: appends a nyx_slab_info_s to a nyx::SlabGetResponse. False: the walk goes on.
bool nyx_slab_to_proto(void *info, void *ctxt);
