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
#include "svc/grpc_nyx_tbl.h"
#include "svc/host_if_mac.h"
#include "svc/interface.h"
#include "svc/lif.h"
#include "svc/pipeline.h"
#include "svc/port.h"
#include "svc/system.h"
#include "tests/temporary_folder.h"

namespace {

template <class>
struct method;
template <class Service, class Request, class Response>
struct method<grpc::Status (Service::*)(grpc::ServerContext *, const Request *, Response *)> {
    using service_t = Service;
    using request_t = Request;
    using response_t = Response;
};

template <class Service>
Service &service() {
    static Service service;
    return service;
}

// What gRPC does with a request, less the transport.
template <auto Method>
void call(std::string_view bytes) {
    using types = method<decltype(Method)>;
    typename types::request_t req;
    if (req.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
        typename types::response_t rsp;
        (void)(service<typename types::service_t>().*Method)(nullptr, &req, &rsp);
        fuzz::check_message(rsp);
    }
}

constexpr void (*k_methods[])(std::string_view) = {
    call<&IfSvcImpl::InterfaceCreate>,
    call<&IfSvcImpl::InterfaceUpdate>,
    call<&IfSvcImpl::InterfaceDelete>,
    call<&IfSvcImpl::InterfaceGet>,
    call<&IfSvcImpl::LifGet>,
    call<&IfSvcImpl::LifStatsReset>,
    call<&LifClassicSvcImpl::LifClassicGet>,
    call<&PortSvcImpl::PortGet>,
    call<&PortSvcImpl::PortUpdate>,
    call<&PortSvcImpl::PortStatsReset>,
    call<&SystemSvcImpl::SystemGet>,
    call<&SystemSvcImpl::ClockFrequencyUpdate>,
    call<&SystemSvcImpl::QueueCreditsGet>,
    call<&SystemSvcImpl::ProcessRecoveryEnable>,
    call<&SystemSvcImpl::ProcessRecoveryDisable>,
    call<&SystemSvcImpl::ProcessRecoveryGet>,
    call<&PipelineSvcImpl::MeterStatsGet>,
    call<&PipelineSvcImpl::SessionStatsGet>,
    call<&PipelineSvcImpl::FlowStatsSummaryGet>,
    call<&PipelineSvcImpl::DataPathAssistStatsGet>,
    call<&PipelineSvcImpl::SessionStatisticsEnable>,
    call<&PipelineSvcImpl::SessionStatisticsDisable>,
    call<&PipelineSvcImpl::LifStatisticsEnable>,
    call<&PipelineSvcImpl::LifStatisticsDisable>,
    call<&PipelineSvcImpl::QuiesceStart>,
    call<&PipelineSvcImpl::QuiesceStop>,
    call<&DebugSvcImpl::TraceUpdate>,
    call<&DebugSvcImpl::TraceFlush>,
    call<&DebugSvcImpl::TableStatsGet>,
    call<&DebugSvcImpl::LlcSetup>,
    call<&DebugSvcImpl::LlcStatsGet>,
    call<&DebugSvcImpl::PbStatsGet>,
    call<&DebugSvcImpl::PbDropStatsReset>,
    call<&DebugSvcImpl::SlabGet>,
    call<&DebugSvcImpl::HeapGet>,
    call<&DebugSvcImpl::MemoryTrim>,
    call<&DebugSvcImpl::StartAacsServer>,
    call<&DebugSvcImpl::StopAacsServer>,
    call<&DebugSvcImpl::InternalPortGet>,
#define TABLE(name)                                                                                          \
    call<&NyxTblSvcImpl::name##Create>, call<&NyxTblSvcImpl::name##Update>, call<&NyxTblSvcImpl::name##Get>, \
        call<&NyxTblSvcImpl::name##Delete>,
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
