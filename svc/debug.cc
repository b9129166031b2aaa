#include "svc/debug.h"

#include <malloc.h>

#include <bit>
#include <iterator>
#include <type_traits>

#include "agent_api/trace_level.h"
#include "svc/common/call.h"
#include "svc/common/ret_code.h"
#include "svc/common/text.h"
#include "svc/common/trace.h"
#include "svc/debug_internal_port.h"
#include "svc/debug_statistics.h"

namespace {

// Indexed by the messages' level, whose order is another one.
constexpr sdk::types::trace_level_e k_trace_levels[] = {
    sdk::types::TRACE_LEVEL_NONE, sdk::types::TRACE_LEVEL_ERROR, sdk::types::TRACE_LEVEL_DEBUG,
    sdk::types::TRACE_LEVEL_WARN, sdk::types::TRACE_LEVEL_INFO,  sdk::types::TRACE_LEVEL_VERBOSE,
};

constexpr uint32_t k_all_llc_types = 0xffffffff;
constexpr uint32_t k_max_llc_type = 32;
constexpr uint32_t k_max_reported_llc_type = 10;

// The response has 32 bits for each figure, so mallinfo2() would report no more.
struct mallinfo heap_figures() {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return mallinfo();
#pragma GCC diagnostic pop
}

// The lowest of the reported types; 0 when there is none, or when all types are counted.
uint32_t llc_type_of(uint32_t mask) {
    const uint32_t type = mask == k_all_llc_types ? 0 : static_cast<uint32_t>(std::countr_zero(mask)) + 1;
    return type <= k_max_reported_llc_type ? type : 0;
}

// Named after the methods: log lines start with the function's name.

void StartAacsServer(const nyx::AacsRequest *req, types::Empty *) {
    SVC_TRACE_VERBOSE("Received AACS Server Start");
    (void)debug::start_aacs_server(req->aacs_server_port());
}

void StopAacsServer(const types::Empty *, types::Empty *) {
    SVC_TRACE_VERBOSE("Received AACS Server Stop");
    (void)debug::stop_aacs_server();
}

}  // namespace

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&DebugSvcImpl::TraceUpdate>("TraceUpdate"),
    svc::method_of<&DebugSvcImpl::TraceFlush>("TraceFlush"),
    svc::method_of<&DebugSvcImpl::TableStatsGet>("TableStatsGet"),
    svc::method_of<&DebugSvcImpl::LlcSetup>("LlcSetup"),
    svc::method_of<&DebugSvcImpl::LlcStatsGet>("LlcStatsGet"),
    svc::method_of<&DebugSvcImpl::PbStatsGet>("PbStatsGet"),
    svc::method_of<&DebugSvcImpl::PbDropStatsReset>("PbDropStatsReset"),
    svc::method_of<&DebugSvcImpl::SlabGet>("SlabGet"),
    svc::method_of<&DebugSvcImpl::HeapGet>("HeapGet"),
    svc::method_of<&DebugSvcImpl::MemoryTrim>("MemoryTrim"),
    svc::method_of<&DebugSvcImpl::StartAacsServer>("StartAacsServer"),
    svc::method_of<&DebugSvcImpl::StopAacsServer>("StopAacsServer"),
    svc::method_of<&DebugSvcImpl::InternalPortGet>("InternalPortGet"),
};

DebugSvcImpl::DebugSvcImpl() : served(k_methods) {}

DebugSvcImpl::~DebugSvcImpl() = default;

grpc::Status DebugSvcImpl::TraceUpdate(grpc::ServerContext *context, const nyx::TraceRequest *req,
                                       nyx::TraceResponse *rsp) {
    return svc::call(context, req, rsp, [&]() -> grpc::Status {
        const auto level = static_cast<uint32_t>(req->trace_level());
        if (level >= std::size(k_trace_levels)) {
            rsp->set_api_status(types::API_STATUS_INVALID_ARG);
            return grpc::Status::OK;
        }
        core::trace_update(k_trace_levels[level]);
        debug::nyx_set_trace_level(k_trace_levels[level]);
        rsp->set_api_status(types::API_STATUS_OK);
        rsp->set_trace_level(req->trace_level());
        return grpc::Status::OK;
    });
}

grpc::Status DebugSvcImpl::TraceFlush(grpc::ServerContext *context, const types::Empty *req,
                                      types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { core::flush_logs(); });
}

grpc::Status DebugSvcImpl::HeapGet(grpc::ServerContext *context, const nyx::HeapGetRequest *req,
                                   nyx::HeapGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        const auto figures = heap_figures();
        auto *stats = rsp->mutable_stats();
        stats->set_arena(static_cast<uint32_t>(figures.arena));
        stats->set_ordblks(static_cast<uint32_t>(figures.ordblks));
        stats->set_smblks(static_cast<uint32_t>(figures.smblks));
        stats->set_hblks(static_cast<uint32_t>(figures.hblks));
        stats->set_hblkhd(static_cast<uint32_t>(figures.hblkhd));
        stats->set_usmblks(static_cast<uint32_t>(figures.usmblks));
        stats->set_fsmblks(static_cast<uint32_t>(figures.fsmblks));
        stats->set_uordblks(static_cast<uint32_t>(figures.uordblks));
        stats->set_fordblks(static_cast<uint32_t>(figures.fordblks));
        stats->set_keepcost(static_cast<uint32_t>(figures.keepcost));
        rsp->set_api_status(types::API_STATUS_OK);
    });
}

grpc::Status DebugSvcImpl::MemoryTrim(grpc::ServerContext *context, const types::Empty *req,
                                      types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { malloc_trim(0); });
}

bool nyx_slab_to_proto(void *info, void *ctxt) {
    const auto &slab = *static_cast<const nyx_slab_info_s *>(info);
    auto *proto = static_cast<nyx::SlabGetResponse *>(ctxt)->add_response();
    auto *spec = proto->mutable_spec();
    spec->set_name(svc::text_of(slab.name));
    spec->set_slab_value_1(slab.value_1);
    spec->set_slab_value_2(slab.value_2);
    spec->set_slab_value_3(slab.value_3);
    spec->set_slab_value_4(slab.value_4);
    spec->set_slab_flag_1(slab.flag_1);
    spec->set_slab_flag_2(slab.flag_2);
    spec->set_slab_flag_4(slab.flag_3);
    auto *stats = proto->mutable_stats();
    stats->set_slab_stat_1(slab.stat[0]);
    stats->set_slab_stat_2(slab.stat[1]);
    stats->set_slab_stat_3(slab.stat[2]);
    stats->set_slab_stat_4(slab.stat[3]);
    stats->set_slab_stat_5(slab.stat[4]);
    return false;
}

grpc::Status DebugSvcImpl::SlabGet(grpc::ServerContext *context, const types::Empty *req,
                                   nyx::SlabGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        rsp->set_api_status(sdk_ret_to_api_status(debug::nyx_slab_get(nyx_slab_to_proto, rsp)));
    });
}

grpc::Status DebugSvcImpl::LlcSetup(grpc::ServerContext *context, const nyx::LlcSetupRequest *req,
                                    nyx::LlcSetupResponse *rsp) {
    return svc::call(context, req, rsp, [&]() -> grpc::Status {
        const uint32_t type = req->llc_type();
        if (type > k_max_llc_type) {
            rsp->set_api_status(types::API_STATUS_INVALID_ARG);
            return grpc::Status::OK;
        }
        sdk::asic::pd::llc_counters_s counters{};
        counters.mask = type ? 1u << (type - 1) : k_all_llc_types;
        rsp->set_api_status(sdk_ret_to_api_status(debug::nyx_llc_setup(&counters)));
        return grpc::Status::OK;
    });
}

grpc::Status DebugSvcImpl::LlcStatsGet(grpc::ServerContext *context, const types::Empty *req,
                                       nyx::LlcStatsGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        auto *stats = rsp->mutable_stats();
        sdk::asic::pd::llc_counters_s counters{};
        const auto ret = debug::nyx_llc_get(&counters);
        if (ret == sdk::SDK_RET_OK) {
            stats->set_llc_type(llc_type_of(counters.mask));
            for (size_t i = 0; i < std::extent_v<decltype(counters.counter)>; i++) {
                stats->add_count(counters.counter[i]);
            }
        }
        rsp->set_api_status(sdk_ret_to_api_status(ret));
    });
}

grpc::Status DebugSvcImpl::StartAacsServer(grpc::ServerContext *context, const nyx::AacsRequest *req,
                                           types::Empty *rsp) {
    return svc::call(context, req, rsp, ::StartAacsServer);
}

grpc::Status DebugSvcImpl::StopAacsServer(grpc::ServerContext *context, const types::Empty *req,
                                          types::Empty *rsp) {
    return svc::call(context, req, rsp, ::StopAacsServer);
}

grpc::Status DebugSvcImpl::PbStatsGet(grpc::ServerContext *context, const types::Empty *req,
                                      nyx::PbStatsGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        rsp->set_api_status(sdk_ret_to_api_status(debug::nyx_pb_stats_get(nyx_pb_stats_entry_to_proto, rsp)));
    });
}

grpc::Status DebugSvcImpl::PbDropStatsReset(grpc::ServerContext *context, const types::Empty *req,
                                            types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)debug::nyx_pb_stats_reset(true, false); });
}

grpc::Status DebugSvcImpl::TableStatsGet(grpc::ServerContext *context, const types::Empty *req,
                                         nyx::TableStatsGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        rsp->set_api_status(
            sdk_ret_to_api_status(debug::nyx_table_stats_get(nyx_table_stats_entry_to_proto, rsp)));
    });
}

grpc::Status DebugSvcImpl::InternalPortGet(grpc::ServerContext *context,
                                           const nyx::InternalPortRequestMsg *req,
                                           nyx::InternalPortResponseMsg *rsp) {
    return svc::call(context, req, rsp, [&]() -> grpc::Status {
        if (req->request().empty()) {
            return {grpc::StatusCode::INVALID_ARGUMENT, "Empty Request"};
        }
        for (const auto &request : req->request()) {
            if (svc::client_has_left()) {
                return grpc::Status::CANCELLED;
            }
            if (!svc::append_internal_ports(static_cast<uint8_t>(request.port_number()), rsp)) {
                return {grpc::StatusCode::INVALID_ARGUMENT, "Internal port number must be between 1-7"};
            }
        }
        return grpc::Status::OK;
    });
}
