#include "svc/pipeline.h"

#include "svc/common/call.h"
#include "svc/common/ret_code.h"

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&PipelineSvcImpl::MeterStatsGet>("MeterStatsGet"),
    svc::method_of<&PipelineSvcImpl::SessionStatsGet>("SessionStatsGet"),
    svc::method_of<&PipelineSvcImpl::FlowStatsSummaryGet>("FlowStatsSummaryGet"),
    svc::method_of<&PipelineSvcImpl::DataPathAssistStatsGet>("DataPathAssistStatsGet"),
    svc::method_of<&PipelineSvcImpl::SessionStatisticsEnable>("SessionStatisticsEnable"),
    svc::method_of<&PipelineSvcImpl::SessionStatisticsDisable>("SessionStatisticsDisable"),
    svc::method_of<&PipelineSvcImpl::LifStatisticsEnable>("LifStatisticsEnable"),
    svc::method_of<&PipelineSvcImpl::LifStatisticsDisable>("LifStatisticsDisable"),
    svc::method_of<&PipelineSvcImpl::QuiesceStart>("QuiesceStart"),
    svc::method_of<&PipelineSvcImpl::QuiesceStop>("QuiesceStop"),
};

PipelineSvcImpl::PipelineSvcImpl() : served(k_methods) {}

PipelineSvcImpl::~PipelineSvcImpl() = default;

void nyx_meter_stats_to_proto(nyx_meter_stats_entry_s *, void *) {}

grpc::Status PipelineSvcImpl::MeterStatsGet(grpc::ServerContext *context,
                                            const nyx::MeterStatsGetRequest *req,
                                            nyx::MeterStatsGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        rsp->set_api_status(sdk_ret_to_api_status(nyx_meter_stats_get(
            nyx_meter_stats_to_proto, req->stats_index_low(), req->stats_index_high(), rsp)));
    });
}

void nyx_session_stats_to_proto(uint32_t index, session_stats_entry_s *entry, void *ctxt) {
    auto *proto = static_cast<nyx::SessionStatsGetResponse *>(ctxt)->add_response();
    // Records and messages order the words of a pair differently.
    proto->set_counter_a(entry->word[1]);
    proto->set_counter_b(entry->word[0]);
    proto->set_counter_c(entry->word[3]);
    proto->set_counter_d(entry->word[2]);
    proto->set_session_index(index);
}

grpc::Status PipelineSvcImpl::SessionStatsGet(grpc::ServerContext *context,
                                              const nyx::SessionStatsGetRequest *req,
                                              nyx::SessionStatsGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        rsp->set_api_status(sdk_ret_to_api_status(nyx_session_stats_get(
            nyx_session_stats_to_proto, req->stats_index_low(), req->stats_index_high(), rsp)));
    });
}

grpc::Status PipelineSvcImpl::FlowStatsSummaryGet(grpc::ServerContext *context, const types::Empty *req,
                                                  nyx::FlowStatsSummaryResponse *rsp) {
    return svc::call(context, req, rsp, [&]() -> grpc::Status {
        nyx_flow_stats_summary_s summary{};
        const auto ret = nyx_flow_summary_get(&summary);
        rsp->set_api_status(sdk_ret_to_api_status(ret));
        if (ret == sdk::SDK_RET_INVALID_OPERATION) {
            return {grpc::StatusCode::UNIMPLEMENTED, "Command not supported for the configured device mode"};
        }
        if (ret == sdk::SDK_RET_OK) {
            rsp->set_counter_1(summary.word[0]);
            rsp->set_counter_2(summary.word[1]);
            rsp->set_counter_3(summary.word[2]);
            rsp->set_counter_4(summary.word[3]);
            rsp->set_counter_5(summary.word[4]);
            rsp->set_counter_6(summary.word[5]);
            rsp->set_counter_7(summary.word[6]);
            rsp->set_counter_8(summary.word[7]);
            rsp->set_counter_9(summary.word[8]);
            rsp->set_counter_10(summary.word[9]);
        }
        return grpc::Status::OK;
    });
}

grpc::Status PipelineSvcImpl::DataPathAssistStatsGet(grpc::ServerContext *context, const types::Empty *req,
                                                     nyx::DataPathAssistStatsResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        nyx_datapath_assist_stats_s stats{};
        const auto ret = nyx_datapath_assist_stats_get(&stats);
        rsp->set_api_status(sdk_ret_to_api_status(ret));
        if (ret == sdk::SDK_RET_OK) {
            rsp->set_counter_1(stats.word[0]);
            rsp->set_counter_2(stats.word[1]);
            rsp->set_counter_3(stats.word[2]);
            rsp->set_counter_4(stats.word[3]);
            rsp->set_counter_5(stats.word[4]);
            rsp->set_counter_6(stats.word[5]);
            rsp->set_counter_7(stats.word[6]);
            rsp->set_counter_8(stats.word[7]);
            rsp->set_counter_9(stats.word[8]);
            rsp->set_counter_10(stats.word[9]);
            rsp->set_counter_11(stats.word[10]);
            rsp->set_counter_12(stats.word[12]);  // word 11 is not carried
        }
    });
}

grpc::Status PipelineSvcImpl::SessionStatisticsEnable(grpc::ServerContext *context, const types::Empty *req,
                                                      types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)nyx_session_stats_enable(); });
}

grpc::Status PipelineSvcImpl::SessionStatisticsDisable(grpc::ServerContext *context, const types::Empty *req,
                                                       types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)nyx_session_stats_disable(); });
}

grpc::Status PipelineSvcImpl::LifStatisticsEnable(grpc::ServerContext *context, const types::Empty *req,
                                                  types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)nyx_lif_stats_enable(); });
}

grpc::Status PipelineSvcImpl::LifStatisticsDisable(grpc::ServerContext *context, const types::Empty *req,
                                                   types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)nyx_lif_stats_disable(); });
}

grpc::Status PipelineSvcImpl::QuiesceStart(grpc::ServerContext *context, const types::Empty *req,
                                           types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)nyx_quiesce_start(); });
}

grpc::Status PipelineSvcImpl::QuiesceStop(grpc::ServerContext *context, const types::Empty *req,
                                          types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { (void)nyx_quiesce_stop(); });
}
