// The debug service: a view of the running agent for operators and support.

#pragma once

#include <cstdint>

#include "agent_api/debug_stats.h"
#include "nyx/debug.grpc.pb.h"
#include "svc/served.h"

// Methods of the service that are not here answer UNIMPLEMENTED. Each one here ends with gRPC status OK, and the
// outcome is the response's api_status, where it has one; only InternalPortGet ends with INVALID_ARGUMENT for a bad
// request. No state: any thread.
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

// Callbacks of the debug library's walks: each appends one record to the response of its method.
bool nyx_slab_to_proto(void *info, void *ctxt);  // a nyx_slab_info_s; false: go on
void nyx_pb_stats_entry_to_proto(nyx_pb_debug_stats_s *stats, void *ctxt);
void nyx_table_stats_entry_to_proto(nyx_table_stats_s *stats, void *ctxt);

// Appends one port of the internal switch, counted from 0.
void marvell_get_port_info(uint8_t port, nyx::InternalPortResponseMsg *rsp);
