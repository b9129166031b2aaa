// The debug service through real gRPC calls.

#include <algorithm>
#include <array>
#include <cstdlib>

#include "sim/framework/trace_level.h"
#include "svc/debug.h"
#include "tests/device_fixture.h"

namespace {

using google::protobuf::MessageFactory;
using nyx::InternalPortResponseMsg;
using nyx::PbStatsGetResponse;
using nyx::SlabGetResponse;
using nyx::TableStatsGetResponse;
using test::IsMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class debug_service : public test::device_service<nyx::DebugSvc, DebugSvcImpl> {
 protected:
    nyx::TraceResponse update_trace(int level) {
        nyx::TraceRequest req;
        req.set_trace_level(static_cast<nyx::TraceLevel>(level));
        return call<nyx::TraceResponse>("TraceUpdate", req);
    }

    types::ApiStatus set_up_llc(uint32_t type) {
        nyx::LlcSetupRequest req;
        req.set_llc_type(type);
        return call<nyx::LlcSetupResponse>("LlcSetup", req).api_status();
    }

    void start_aacs(uint32_t port) {
        nyx::AacsRequest req;
        req.set_aacs_server_port(port);
        EXPECT_THAT(call<types::Empty>("StartAacsServer", req), IsMessage(""));
    }

    static nyx::InternalPortRequestMsg ports_request(const std::vector<uint32_t> &ports) {
        nyx::InternalPortRequestMsg req;
        for (const uint32_t port : ports) {
            req.add_request()->set_port_number(port);
        }
        return req;
    }

    std::vector<uint32_t> reported_ports(const std::vector<uint32_t> &ports) {
        std::vector<uint32_t> numbers;
        const auto rsp = call<InternalPortResponseMsg>("InternalPortGet", ports_request(ports));
        for (const auto &port : rsp.response()) {
            numbers.push_back(port.port_number());
        }
        return numbers;
    }
};

TEST_F(debug_service, ThirteenMethodsAreProvided) {
    const auto *service =
        google::protobuf::DescriptorPool::generated_pool()->FindServiceByName("nyx.DebugSvc");
    ASSERT_EQ(service->method_count(), 36);
    int provided = 0;
    for (int i = 0; i < service->method_count(); i++) {
        auto *factory = MessageFactory::generated_factory();
        const std::unique_ptr<google::protobuf::Message> rsp(
            factory->GetPrototype(service->method(i)->output_type())->New());
        const auto status = status_of(service->method(i)->name(),
                                      *factory->GetPrototype(service->method(i)->input_type()), rsp.get());
        provided += status.error_code() != grpc::StatusCode::UNIMPLEMENTED;
    }
    EXPECT_EQ(provided, 13);
}

TEST_F(debug_service, TraceLevelsAreTranslated_OthersChangeNothing) {
    for (const auto &[level, sdk_level] : {std::pair{5, 5}, {4, 3}, {3, 2}, {1, 1}, {0, 0}, {2, 4}}) {
        const auto rsp = update_trace(level);
        EXPECT_EQ(rsp.api_status(), types::API_STATUS_OK);
        EXPECT_EQ(rsp.trace_level(), level);
        EXPECT_EQ(trace_.log().trace_level, sdk_level) << level;
        EXPECT_EQ(static_cast<int>(sim::sdk_trace_level()), sdk_level) << level;
    }
    for (const int level : {6, 256, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_THAT(update_trace(level), IsMessage("api_status: API_STATUS_INVALID_ARG")) << level;
        EXPECT_EQ(trace_.log().trace_level, 4);
        EXPECT_EQ(sim::sdk_trace_level(), sdk::types::TRACE_LEVEL_DEBUG);
    }
}

TEST_F(debug_service, TraceFlushWritesOutWhatIsLogged) {
    call<types::Empty>("TraceFlush");
    EXPECT_EQ(trace_.sink().flushes(), 1);
}

TEST_F(debug_service, HeapFiguresAreThoseOfTheAllocator) {
    constexpr uint32_t k_size = 100 << 20;  // large enough for a mapping of its own
    const auto before = call<nyx::HeapGetResponse>("HeapGet").stats();
    const std::unique_ptr<void, decltype(&free)> block(malloc(k_size), free);
    call<types::Empty>("MemoryTrim");
    const auto rsp = call<nyx::HeapGetResponse>("HeapGet");
    EXPECT_EQ(rsp.api_status(), types::API_STATUS_OK);
    ASSERT_TRUE(block && rsp.has_stats());
    const auto &after = rsp.stats();
    EXPECT_EQ(after.arena(), after.uordblks() + after.fordblks());
    EXPECT_EQ(after.usmblks(), 0U);
    EXPECT_LE(std::max(after.keepcost(), after.fsmblks()), after.fordblks());
    if (after.arena() > 0) {  // a sanitizer's allocator has no figures
        EXPECT_EQ(after.hblks(), before.hblks() + 1);
        EXPECT_GE(after.hblkhd(), before.hblkhd() + k_size);
    }
}

TEST_F(debug_service, SlabRecordIsReportedFieldByField) {
    sim::debug_stats_state_s state;
    state.slabs = {
        {9, "flows", 1, 2, 3, 4, 0, 7, 1, 1, {5, 6, 7, 8, 9}}, {1, "", 0, 0, 0, 0, 0x80, 0, 0, 0, {}}, {}};
    sim::put_debug_stats_state(state);
    const std::string first =
        "response { spec { name: 'flows' slab_value_1: 1 slab_value_2: 2 slab_value_3: 3 slab_value_4: 4 "
        "slab_flag_2: true slab_flag_4: true } stats { slab_stat_1: 5 slab_stat_2: 6 slab_stat_3: 7 "
        "slab_stat_4: 8 slab_stat_5: 9 } }";
    const std::string second = "response { spec { slab_flag_1: true } stats {} }";
    EXPECT_THAT(call<SlabGetResponse>("SlabGet"),
                IsMessage(first + second + "response { spec {} stats {} }"));
    add_fault("debug::nyx_slab_get:code=10,nth=3");
    EXPECT_THAT(call<SlabGetResponse>("SlabGet"), IsMessage(first + second + "api_status: API_STATUS_RETRY"));
    state.slabs.clear();
    sim::put_debug_stats_state(state);
    EXPECT_THAT(call<SlabGetResponse>("SlabGet"), IsMessage(""));
}

TEST_F(debug_service, NamesInAnyEncodingMakeAResponse) {
    static const std::pair<std::string, std::string> names[] = {
        // static: descriptions stay in place as long as services run
        {std::string(28, 'n'), std::string(28, 'n')},
        {std::string("ab\0cd", 5), "ab"},
        {"na\xff\xc3", "na\xef\xbf\xbd\xef\xbf\xbd"},
        {std::string(26, 'n') + "\xe2\x82", std::string(26, 'n') + "\xef\xbf\xbd\xef\xbf\xbd"},
        {"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f"}};
    for (const auto &[bytes, name] : names) {
        sim::debug_stats_state_s state;
        state.slabs = {{}};
        bytes.copy(state.slabs[0].name, sizeof(state.slabs[0].name));
        state.slabs[0].value_1 = UINT32_MAX;  // the bytes after the name
        state.tables = {{.table_id = 0, .table_name = bytes.c_str(), .api_counter = {}, .table_counter = {}}};
        sim::put_debug_stats_state(state);
        auto ports = sim::default_switch_ports();
        ports[0].descr = bytes.c_str();
        sim::put_switch_ports(ports);

        const auto slabs = call<SlabGetResponse>("SlabGet");
        ASSERT_EQ(slabs.response_size(), 1);
        EXPECT_EQ(slabs.response(0).spec().name(), name);
        const auto tables = call<TableStatsGetResponse>("TableStatsGet");
        ASSERT_EQ(tables.response_size(), 1);
        EXPECT_EQ(tables.response(0).table_name(), name);
        const auto described = call<InternalPortResponseMsg>("InternalPortGet", ports_request({1}));
        ASSERT_EQ(described.response_size(), 1);
        EXPECT_EQ(described.response(0).description(), name);
    }
}

// All entries of a list: index and count.
std::string entries(const std::string &index_name, const std::string &count_name, uint32_t size,
                    uint32_t first_count) {
    std::string text;
    for (uint32_t i = 0; i < size; i++) {
        text += "entry { " + index_name + ": " + std::to_string(i) + " " + count_name + ": " +
                std::to_string(first_count ? first_count + i : 0) + " } ";
    }
    return text;
}

TEST_F(debug_service, PacketBufferPortIsReportedFieldByField) {
    nyx_pb_debug_stats_s full{};
    full.port = 7;
    for (uint32_t i = 0; i < 14; i++) {
        full.drop[i] = 100 + i;
    }
    for (uint32_t i = 0; i < 6; i++) {
        full.fifo_drop[i] = 200 + i;
    }
    for (uint32_t i = 0; i < 4; i++) {
        full.buffer_value[i] = 10 + i;
        full.fifo_value[i] = 20 + i;
    }
    full.input_queue[5] = {0x80, 55, {1, 2, 1ULL << 40}, {4, 5}, 6, 7, 1ULL << 33};
    full.output_queue[5] = {0, 1, 2, 3};
    full.input_queue[6] = {0, 1, {2, 3, 4}, {5, 6}, 7, 8, 9};
    full.input_queue[31] = {1, 56, {}, {}, 0, 0, 0};
    full.output_queue[0] = {1, 0, 8, 1ULL << 34};
    full.output_queue[31] = {2, 57, 9, 10};
    sim::debug_stats_state_s state;
    state.pb_ports = {full, {}, {}};
    sim::put_debug_stats_state(state);
    const std::string ports =
        "pb_stats { port_stats { port { port_type: 1 port_number: 7 } buffer_stats { drop_stats { " +
        entries("reasons", "drop_count", 14, 100) +
        "} buffer_value_1: 10 buffer_value_2: 11 buffer_value_3: 12 buffer_value_4: 13 } "
        "oflow_fifo_stats { drop_stats { " +
        entries("type", "count", 6, 200) +
        "} fifo_value_1: 20 fifo_value_2: 21 fifo_value_3: 22 fifo_value_4: 23 } "
        "qos_queue_stats { input_queue_stats { oflow_queue_stats { oflow_count_1: 1 oflow_count_2: 2 "
        "oflow_count_3: 1099511627776 oflow_value_1: 4 oflow_value_2: 5 } queue_number: 55 "
        "input_value_a: 6 input_value_b: 7 input_count: 8589934592 } "
        "input_queue_stats { oflow_queue_stats {} queue_number: 56 } "
        "output_queue_stats { output_value: 8 output_count: 17179869184 } "
        "output_queue_stats { queue_number: 57 output_value: 9 output_count: 10 } } } "
        "port_stats { port { port_type: 3 } buffer_stats { drop_stats { " +
        entries("reasons", "drop_count", 14, 0) + "} } oflow_fifo_stats { drop_stats { " +
        entries("type", "count", 6, 0) + "} } qos_queue_stats {} } }";
    add_fault("debug::nyx_pb_stats_get:code=4,nth=3");
    EXPECT_THAT(call<PbStatsGetResponse>("PbStatsGet"),
                IsMessage(ports + "api_status: API_STATUS_LOOKUP_FAILURE"));
    state.pb_ports.pop_back();
    sim::put_debug_stats_state(state);
    EXPECT_THAT(call<PbStatsGetResponse>("PbStatsGet"), IsMessage(ports));
}

TEST_F(debug_service, PacketBufferPortsHaveTypes) {
    sim::debug_stats_state_s state;
    state.pb_ports.clear();
    for (const uint32_t port : {0U, 2U, 4U, 5U, 6U, 7U, 8U, UINT32_MAX}) {
        state.pb_ports.emplace_back().port = port;
    }
    sim::put_debug_stats_state(state);
    std::vector<std::pair<uint32_t, uint32_t>> ports;
    const auto rsp = call<PbStatsGetResponse>("PbStatsGet");
    for (const auto &stats : rsp.pb_stats().port_stats()) {
        ports.emplace_back(stats.port().port_type(), stats.port().port_number());
    }
    EXPECT_THAT(ports, ElementsAre(std::pair(3, 0), std::pair(3, 2), std::pair(3, 4), std::pair(0, 5),
                                   std::pair(2, 6), std::pair(1, 7), std::pair(0, 0), std::pair(0, 0)));
}

TEST_F(debug_service, DropResetClearsDropsOnly_AndFailsSilently) {
    add_fault("debug::nyx_pb_stats_reset:code=9,nth=1");
    const auto port = [&] { return call<PbStatsGetResponse>("PbStatsGet").pb_stats().port_stats(3); };
    auto expected = port();
    EXPECT_THAT(call<types::Empty>("PbDropStatsReset"), IsMessage(""));
    EXPECT_THAT(port(), IsMessage(expected.ShortDebugString()));
    EXPECT_THAT(call<types::Empty>("PbDropStatsReset"), IsMessage(""));
    for (auto &entry : *expected.mutable_buffer_stats()->mutable_drop_stats()->mutable_entry()) {
        entry.clear_drop_count();
    }
    for (auto &entry : *expected.mutable_oflow_fifo_stats()->mutable_drop_stats()->mutable_entry()) {
        entry.clear_count();
    }
    EXPECT_THAT(port(), IsMessage(expected.ShortDebugString()));
}

TEST_F(debug_service, TableCountersButTheFourthAreReported) {
    nyx_table_stats_s stats{.table_id = 5, .table_name = "flow", .api_counter = {}, .table_counter = {}};
    for (uint32_t i = 0; i < 15; i++) {
        stats.api_counter[i] = (1ULL << 32) + 100 + i;
    }
    stats.api_counter[3] = 999;
    stats.table_counter[0] = UINT64_MAX;
    stats.table_counter[1] = (1ULL << 32) + 7;
    sim::debug_stats_state_s state;
    state.tables = {stats, stats};
    sim::put_debug_stats_state(state);
    std::string api;
    for (int type = 0; type < 14; type++) {
        api += "entry { type: " + std::to_string(type) +
               " count: " + std::to_string(100 + type + (type < 3 ? 0 : 1)) + " } ";
    }
    const std::string table = "response { table_name: 'flow' api_stats { " + api +
                              "} table_stats { entry { count: 4294967295 } entry { type: 1 count: 7 } } }";
    EXPECT_THAT(call<TableStatsGetResponse>("TableStatsGet"), IsMessage(table + table));
    add_fault("debug::nyx_table_stats_get:code=6,nth=2");
    EXPECT_THAT(call<TableStatsGetResponse>("TableStatsGet"),
                IsMessage(table + "api_status: API_STATUS_RESOURCE_EXHAUSTION"));
}

TEST_F(debug_service, TablesCountTheirOperations) {
    std::vector<uint8_t> entry(sim::table_infos()[36].record_size);
    for (const auto &[key, expected] :
         {std::pair{1, sdk::SDK_RET_OK}, {2, sdk::SDK_RET_OK}, {2, sdk::SDK_RET_ALREADY_PRESENT}}) {
        entry[1] = static_cast<uint8_t>(key);
        EXPECT_EQ(sim::table_create(36, entry.data()), expected);
    }
    EXPECT_EQ(sim::table_update(36, entry.data()), sdk::SDK_RET_OK);
    EXPECT_EQ(sim::table_delete(36, entry.data() + 1), sdk::SDK_RET_OK);
    EXPECT_EQ(sim::table_update(36, entry.data()), sdk::SDK_RET_LOOKUP_FAILURE);
    EXPECT_EQ(sim::table_delete(36, entry.data() + 1), sdk::SDK_RET_LOOKUP_FAILURE);
    const auto rsp = call<TableStatsGetResponse>("TableStatsGet");
    ASSERT_EQ(rsp.response_size(), 37);
    std::vector<uint32_t> counts;
    for (const auto &count : rsp.response(36).api_stats().entry()) {
        counts.push_back(count.count());
    }
    EXPECT_THAT(counts, ElementsAre(2, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(rsp.response(36).table_stats(), IsMessage("entry { count: 1 } entry { type: 1 count: 2 }"));
}

TEST_F(debug_service, LlcTypesSelectTheirMasks) {
    const std::array<uint32_t, 3> cases[] = {
        // type, mask, type reported
        {3, 0x4, 3}, {0, UINT32_MAX, 0}, {1, 0x1, 1}, {10, 0x200, 10}, {11, 0x400, 0}, {32, 0x80000000, 0}};
    for (const auto &[type, mask, reported] : cases) {
        EXPECT_EQ(set_up_llc(type), types::API_STATUS_OK);
        EXPECT_EQ(sim::debug_stats_state().llc_mask, mask) << type;
        EXPECT_EQ(call<nyx::LlcStatsGetResponse>("LlcStatsGet").stats().llc_type(), reported) << type;
    }
    for (const uint32_t type : {33U, 64U, UINT32_MAX}) {
        EXPECT_EQ(set_up_llc(type), types::API_STATUS_INVALID_ARG) << type;
        EXPECT_EQ(sim::debug_stats_state().llc_mask, 0x80000000) << type;
    }
}

TEST_F(debug_service, LlcCountersAndFailuresAreReported) {
    sim::debug_stats_state_s state;
    state.llc_mask = 0xc018;  // types 4, 5, 15 and 16; the stand-in counts 1000 events for each number
    sim::put_debug_stats_state(state);
    EXPECT_THAT(call<nyx::LlcStatsGetResponse>("LlcStatsGet"),
                IsMessage("stats { llc_type: 4 "
                          "count: [0, 0, 0, 4000, 5000, 0, 0, 0, 0, 0, 0, 0, 0, 0, 15000, 16000] }"));
    add_fault("debug::nyx_llc_setup:code=9");
    add_fault("debug::nyx_llc_get:code=10");
    EXPECT_EQ(set_up_llc(0), types::API_STATUS_ERROR);
    EXPECT_THAT(call<nyx::LlcStatsGetResponse>("LlcStatsGet"),
                IsMessage("api_status: API_STATUS_RETRY stats {}"));
}

TEST_F(debug_service, AacsServerIsStartedAndStopped_FailuresAreSilent) {
    trace_.log().trace_level = 5;
    trace_.log().logger()->set_level(spdlog::level::trace);
    start_aacs(70000);
    EXPECT_EQ(sim::debug_stats_state().aacs_port, std::nullopt);
    start_aacs(9000);
    start_aacs(9001);
    EXPECT_EQ(sim::debug_stats_state().aacs_port, 9000U);
    call<types::Empty>("StopAacsServer");
    EXPECT_EQ(sim::debug_stats_state().aacs_port, std::nullopt);
    call<types::Empty>("StopAacsServer");
    const std::string start = "Received AACS Server Start", stop = "Received AACS Server Stop";
    EXPECT_THAT(trace_.messages(), ElementsAre(start, start, start, stop, stop));
    EXPECT_THAT(trace_.sink().lines().front(), StartsWith("[StartAacsServer:"));
    EXPECT_THAT(trace_.sink().lines().back(), StartsWith("[StopAacsServer:"));
}

TEST_F(debug_service, SwitchPortsAreChosenByTheLow8Bits) {
    EXPECT_THAT(reported_ports({0}), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_THAT(reported_ports({7, 257, 2, 2}), ElementsAre(7, 1, 2, 2));
    EXPECT_THAT(reported_ports({256}), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    const std::string beyond = "Internal port number must be between 1-7";
    const std::pair<std::vector<uint32_t>, std::string> refused[] = {
        {{}, "Empty Request"}, {{8}, beyond}, {{255}, beyond}, {{1, 0, 8}, beyond}, {{UINT32_MAX}, beyond}};
    for (const auto &[ports, message] : refused) {
        InternalPortResponseMsg rsp;
        const auto status = status_of("InternalPortGet", ports_request(ports), &rsp);
        EXPECT_EQ(status.error_code(), grpc::StatusCode::INVALID_ARGUMENT);
        EXPECT_EQ(status.error_message(), message);
    }
    sim::put_switch_ports({});
    EXPECT_THAT(reported_ports({0}), IsEmpty());
}

TEST_F(debug_service, SwitchPortIsReportedFieldByField) {
    const auto get = [&] { return call<InternalPortResponseMsg>("InternalPortGet", ports_request({0})); };
    sim::switch_port_s port{{0x80, 200, 60000, 1}, {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}}, "up"};
    sim::put_switch_ports({port});
    const std::string stats =
        "stats { counter_1: 1 counter_2: 2 counter_3: 3 counter_4: 4 counter_5: 5 counter_6: 6 "
        "counter_7: 7 counter_8: 8 counter_9: 9 counter_10: 10 counter_11: 11 counter_12: 12 "
        "counter_13: 13 } ";
    const std::string status = "status { link_state: 1 mode: 2 value_a: 200 value_b: 60000 } ";
    const std::string zeroed = "status { link_state: 2 mode: 1 } ";
    EXPECT_THAT(get(), IsMessage("response { port_number: 1 description: 'up' " + status + stats + "}"));

    port.descr = nullptr;
    sim::put_switch_ports({port});
    add_fault("sdk::iswitch::iswitch_get_port_status:code=15,nth=1");
    EXPECT_THAT(get(), IsMessage("response { port_number: 1 " + zeroed + stats + "}"));
    add_fault("sdk::iswitch::iswitch_get_port_stats:code=15,nth=1");
    EXPECT_THAT(get(), IsMessage("response { port_number: 1 " + status + "stats {} }"));

    for (const auto &[mode, reported] : {std::pair{0U, 1U}, {2U, 3U}, {UINT32_MAX, 3U}}) {
        port.status.mode = mode;
        sim::put_switch_ports({port});
        EXPECT_EQ(get().response(0).status().mode(), reported) << mode;
    }
}

}  // namespace
