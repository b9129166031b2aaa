// Calls of all services, as many as an input holds: for each the number of its method, the size of its request, and
// the request. The stand-in is at its start before the first one.

#include <unistd.h>

#include <string>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/quiet.h"
#include "sim/api/batches.h"
#include "sim/api/debug_stats.h"
#include "sim/api/pipeline.h"
#include "sim/api/system.h"
#include "sim/api/tables.h"
#include "sim/card/card.h"
#include "sim/card/if_records.h"
#include "svc/debug.h"
#include "svc/host_if_mac.h"
#include "svc/interface.h"
#include "svc/lif_classic.h"
#include "svc/nyx_tbl_functions.h"
#include "svc/pipeline.h"
#include "svc/port.h"
#include "svc/system.h"
#include "tests/temporary_folder.h"

namespace {

template <class Request, class Response, class Function>
void parse_and_call(std::string_view bytes, const Function &function) {
    Request req;
    if (req.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
        Response rsp;
        (void)function(&req, &rsp);
        fuzz::check_message(rsp);
    }
}

// What gRPC does with a request, less the transport.
template <auto Method>
struct call;
template <class Service, class Request, class Response,
          grpc::Status (Service::*Method)(grpc::ServerContext *, const Request *, Response *)>
struct call<Method> {
    static void make(std::string_view bytes) {
        static Service service;
        parse_and_call<Request, Response>(
            bytes, [](const auto *req, auto *rsp) { return (service.*Method)(nullptr, req, rsp); });
    }
};
template <class Request, class Response, sdk::sdk_ret_t (*Function)(const Request *, Response *)>
struct call<Function> {
    static void make(std::string_view bytes) { parse_and_call<Request, Response>(bytes, Function); }
};

constexpr void (*k_methods[])(std::string_view) = {
    call<&IfSvcImpl::InterfaceCreate>::make,
    call<&IfSvcImpl::InterfaceUpdate>::make,
    call<&IfSvcImpl::InterfaceDelete>::make,
    call<&IfSvcImpl::InterfaceGet>::make,
    call<&IfSvcImpl::LifGet>::make,
    call<&IfSvcImpl::LifStatsReset>::make,
    call<&LifClassicSvcImpl::LifClassicGet>::make,
    call<&PortSvcImpl::PortGet>::make,
    call<&PortSvcImpl::PortUpdate>::make,
    call<&PortSvcImpl::PortStatsReset>::make,
    call<&SystemSvcImpl::SystemGet>::make,
    call<&SystemSvcImpl::ClockFrequencyUpdate>::make,
    call<&SystemSvcImpl::QueueCreditsGet>::make,
    call<&SystemSvcImpl::ProcessRecoveryEnable>::make,
    call<&SystemSvcImpl::ProcessRecoveryDisable>::make,
    call<&SystemSvcImpl::ProcessRecoveryGet>::make,
    call<&PipelineSvcImpl::MeterStatsGet>::make,
    call<&PipelineSvcImpl::SessionStatsGet>::make,
    call<&PipelineSvcImpl::FlowStatsSummaryGet>::make,
    call<&PipelineSvcImpl::DataPathAssistStatsGet>::make,
    call<&PipelineSvcImpl::SessionStatisticsEnable>::make,
    call<&PipelineSvcImpl::SessionStatisticsDisable>::make,
    call<&PipelineSvcImpl::LifStatisticsEnable>::make,
    call<&PipelineSvcImpl::LifStatisticsDisable>::make,
    call<&PipelineSvcImpl::QuiesceStart>::make,
    call<&PipelineSvcImpl::QuiesceStop>::make,
    call<&DebugSvcImpl::TraceUpdate>::make,
    call<&DebugSvcImpl::TraceFlush>::make,
    call<&DebugSvcImpl::TableStatsGet>::make,
    call<&DebugSvcImpl::LlcSetup>::make,
    call<&DebugSvcImpl::LlcStatsGet>::make,
    call<&DebugSvcImpl::PbStatsGet>::make,
    call<&DebugSvcImpl::PbDropStatsReset>::make,
    call<&DebugSvcImpl::SlabGet>::make,
    call<&DebugSvcImpl::HeapGet>::make,
    call<&DebugSvcImpl::MemoryTrim>::make,
    call<&DebugSvcImpl::StartAacsServer>::make,
    call<&DebugSvcImpl::StopAacsServer>::make,
    call<&DebugSvcImpl::InternalPortGet>::make,
#define TABLE(name)                                                           \
    call<nyx_svc_##name##_create>::make, call<nyx_svc_##name##_update>::make, \
        call<nyx_svc_##name##_get>::make, call<nyx_svc_##name##_delete>::make,
#include "fuzz/tables.inc"
#undef TABLE
};

// LIFs stay as they are: requests change nothing of them but how often they were reset.
void reset() {
    static const test::temporary_folder folder;
    g_host_if_mac_file = folder / "mac.json";
    unlink(g_host_if_mac_file.c_str());
    fuzz::be_quiet();
    sim::drop_batches();
    static const auto card = sim::card_records();  // each time anew, its ports would bring new traces
    (void)sim::change_if_records([](sim::if_records_s &records) {
        records = card;
        return sdk::SDK_RET_OK;
    });
    sim::clear_tables();
    sim::put_system_state({});
    sim::put_pipeline_state({});
    sim::put_debug_stats_state({});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    reset();
    for (fuzz::input in(data, size); !in.empty();) {
        const auto call = k_methods[in.take<uint8_t>() % std::size(k_methods)];
        call(in.take_bytes(in.take<uint16_t>()));
    }
    return 0;
}
