#include "svc/pipeline.h"

#include "svc/common/ret_code.h"

PipelineSvcImpl::~PipelineSvcImpl() = default;

void nyx_meter_stats_to_proto(nyx_meter_stats_entry_s *, void *) {}

grpc::Status PipelineSvcImpl::MeterStatsGet(grpc::ServerContext *, const nyx::MeterStatsGetRequest *req,
                                            nyx::MeterStatsGetResponse *rsp) {
    rsp->set_api_status(sdk_ret_to_api_status(
        nyx_meter_stats_get(nyx_meter_stats_to_proto, req->stats_index_low(), req->stats_index_high(), rsp)));
    return grpc::Status::OK;
}

void nyx_session_stats_to_proto(uint32_t index, session_stats_entry_s *entry, void *ctxt) {
    auto *proto = static_cast<nyx::SessionStatsGetResponse *>(ctxt)->add_response();
    // The words of each pair change places.
    proto->set_counter_a(entry->word[1]);
    proto->set_counter_b(entry->word[0]);
    proto->set_counter_c(entry->word[3]);
    proto->set_counter_d(entry->word[2]);
    proto->set_session_index(index);
}

grpc::Status PipelineSvcImpl::SessionStatsGet(grpc::ServerContext *, const nyx::SessionStatsGetRequest *req,
                                              nyx::SessionStatsGetResponse *rsp) {
    rsp->set_api_status(sdk_ret_to_api_status(nyx_session_stats_get(
        nyx_session_stats_to_proto, req->stats_index_low(), req->stats_index_high(), rsp)));
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::FlowStatsSummaryGet(grpc::ServerContext *, const types::Empty *,
                                                  nyx::FlowStatsSummaryResponse *rsp) {
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
}

grpc::Status PipelineSvcImpl::DataPathAssistStatsGet(grpc::ServerContext *, const types::Empty *,
                                                     nyx::DataPathAssistStatsResponse *rsp) {
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
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::SessionStatisticsEnable(grpc::ServerContext *, const types::Empty *,
                                                      types::Empty *) {
    (void)nyx_session_stats_enable();
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::SessionStatisticsDisable(grpc::ServerContext *, const types::Empty *,
                                                       types::Empty *) {
    (void)nyx_session_stats_disable();
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::LifStatisticsEnable(grpc::ServerContext *, const types::Empty *,
                                                  types::Empty *) {
    (void)nyx_lif_stats_enable();
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::LifStatisticsDisable(grpc::ServerContext *, const types::Empty *,
                                                   types::Empty *) {
    (void)nyx_lif_stats_disable();
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::QuiesceStart(grpc::ServerContext *, const types::Empty *, types::Empty *) {
    (void)nyx_quiesce_start();
    return grpc::Status::OK;
}

grpc::Status PipelineSvcImpl::QuiesceStop(grpc::ServerContext *, const types::Empty *, types::Empty *) {
    (void)nyx_quiesce_stop();
    return grpc::Status::OK;
}
