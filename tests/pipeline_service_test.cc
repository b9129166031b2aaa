// The pipeline service through real gRPC calls.

#include "svc/pipeline.h"
#include "tests/device_fixture.h"

namespace {

using nyx::DataPathAssistStatsResponse;
using nyx::FlowStatsSummaryResponse;
using nyx::SessionStatsGetResponse;
using test::IsMessage;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class pipeline_service : public test::device_service<nyx::PipelineSvc, PipelineSvcImpl> {
 protected:
    SessionStatsGetResponse sessions(uint32_t low, uint32_t high) {
        nyx::SessionStatsGetRequest req;
        req.set_stats_index_low(low);
        req.set_stats_index_high(high);
        return call<SessionStatsGetResponse>("SessionStatsGet", req);
    }

    std::vector<uint32_t> session_indexes(uint32_t low, uint32_t high) {
        std::vector<uint32_t> indexes;
        const auto rsp = sessions(low, high);
        for (const auto &session : rsp.response()) {
            indexes.push_back(session.session_index());
        }
        return indexes;
    }
};

TEST_F(pipeline_service, FlowSummaryThatTheDeviceModeLacks_IsAGrpcError) {
    sim::pipeline_state_s state;
    state.flow_summary = {{1, 2, 3, 4, 5, 6, 7, 8, 9, UINT64_MAX}};
    sim::put_pipeline_state(state);
    add_fault("nyx_flow_summary_get:code=SDK_RET_GENERIC_ERROR,nth=2");
    add_fault("nyx_flow_summary_get:code=SDK_RET_INVALID_OPERATION,nth=3");
    EXPECT_THAT(call<FlowStatsSummaryResponse>("FlowStatsSummaryGet"),
                IsMessage("counter_1: 1 counter_2: 2 counter_3: 3 counter_4: 4 counter_5: 5 counter_6: 6 "
                          "counter_7: 7 counter_8: 8 counter_9: 9 counter_10: 18446744073709551615"));
    EXPECT_THAT(call<FlowStatsSummaryResponse>("FlowStatsSummaryGet"),
                IsMessage("api_status: API_STATUS_ERROR"));
    FlowStatsSummaryResponse rsp;
    const auto status = status_of("FlowStatsSummaryGet", types::Empty(), &rsp);
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNIMPLEMENTED);
    EXPECT_EQ(status.error_message(), "Command not supported for the configured device mode");
    EXPECT_EQ(status.error_details(), "");
}

TEST_F(pipeline_service, DataPathAssistLeavesOutWord11) {
    sim::pipeline_state_s state;
    state.datapath_assist = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
    sim::put_pipeline_state(state);
    EXPECT_THAT(call<DataPathAssistStatsResponse>("DataPathAssistStatsGet"),
                IsMessage("counter_2: 1 counter_3: 2 counter_4: 3 counter_5: 4 counter_6: 5 counter_7: 6 "
                          "counter_8: 7 counter_9: 8 counter_10: 9 counter_11: 10 counter_12: 12"));
    add_fault("nyx_datapath_assist_stats_get:code=SDK_RET_INVALID_OPERATION");
    EXPECT_THAT(call<DataPathAssistStatsResponse>("DataPathAssistStatsGet"),
                IsMessage("api_status: API_STATUS_INVALID_OPERATION"));
}

TEST_F(pipeline_service, SessionsAreThoseOfTheRange) {
    EXPECT_THAT(session_indexes(0, UINT32_MAX),
                ElementsAreArray({1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 100U, 4000000000U}));
    EXPECT_THAT(session_indexes(8, 100), ElementsAre(8, 100));
    EXPECT_THAT(session_indexes(4000000000, 4000000000), ElementsAre(4000000000));
    EXPECT_THAT(session_indexes(100, 8), IsEmpty());
    EXPECT_THAT(sessions(9, 99), IsMessage(""));
}

TEST_F(pipeline_service, SessionWordsAreExchangedInPairs_AndStayAfterAFailure) {
    sim::pipeline_state_s state;
    state.sessions = {{0, {}}, {4000000000, {{1, 2, 3, UINT64_MAX}}}, {UINT32_MAX, {}}};
    sim::put_pipeline_state(state);
    add_fault("nyx_session_stats_get:code=39,nth=3");
    EXPECT_THAT(sessions(0, UINT32_MAX),
                IsMessage("response {} response { counter_a: 2 counter_b: 1 counter_c: 18446744073709551615 "
                          "counter_d: 3 session_index: 4000000000 } api_status: API_STATUS_TIMED_OUT"));
}

TEST_F(pipeline_service, MetersAreNotReported) {
    nyx::MeterStatsGetRequest req;
    req.set_stats_index_high(UINT32_MAX);
    EXPECT_THAT(call<nyx::MeterStatsGetResponse>("MeterStatsGet", req), IsMessage(""));
    add_fault("nyx_meter_stats_get:code=10,key=02");
    EXPECT_THAT(call<nyx::MeterStatsGetResponse>("MeterStatsGet", req),
                IsMessage("api_status: API_STATUS_RETRY"));
    // Shows that the range arrives: the third meter is outside of this one.
    req.set_stats_index_low(3);
    EXPECT_THAT(call<nyx::MeterStatsGetResponse>("MeterStatsGet", req), IsMessage(""));
}

TEST_F(pipeline_service, SwitchesSwitch_AndFailSilently) {
    using state_s = sim::pipeline_state_s;
    struct {
        std::string method, operation;
        bool state_s::*member;
        bool on;
    } const cases[] = {
        {"SessionStatisticsEnable", "nyx_session_stats_enable", &state_s::session_stats_enabled, true},
        {"SessionStatisticsDisable", "nyx_session_stats_disable", &state_s::session_stats_enabled, false},
        {"LifStatisticsEnable", "nyx_lif_stats_enable", &state_s::lif_stats_enabled, true},
        {"LifStatisticsDisable", "nyx_lif_stats_disable", &state_s::lif_stats_enabled, false},
        {"QuiesceStart", "nyx_quiesce_start", &state_s::quiesced, true},
        {"QuiesceStop", "nyx_quiesce_stop", &state_s::quiesced, false},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.method);
        state_s state;
        state.*row.member = !row.on;
        sim::put_pipeline_state(state);
        add_fault(row.operation + ":code=35,nth=1");
        call<types::Empty>(row.method);
        EXPECT_EQ(sim::pipeline_state().*row.member, !row.on);
        call<types::Empty>(row.method);
        EXPECT_EQ(sim::pipeline_state().*row.member, row.on);
    }
}

}  // namespace
