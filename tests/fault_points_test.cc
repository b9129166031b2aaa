// Runs every operation of every service while each of its calls into the agent, and then each of its allocations, fails.

#include <gmock/gmock.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/api/batches.h"
#include "sim/api/debug_stats.h"
#include "sim/api/internal_switch.h"
#include "sim/api/pipeline.h"
#include "sim/api/reset_card.h"
#include "sim/api/system.h"
#include "sim/api/tables.h"
#include "sim/card/card.h"
#include "sim/faults/faults.h"
#include "svc/debug.h"
#include "svc/host_if_mac.h"
#include "svc/interface.h"
#include "svc/lif_classic.h"
#include "svc/pipeline.h"
#include "svc/port.h"
#include "svc/system.h"
#include "svc/table_service.h"
#include "tests/allocation_points.h"
#include "tests/grpc_fixture.h"
#include "tests/table_layouts.h"
#include "tests/trace_capture.h"

namespace {

using google::protobuf::Message;

// Requests in the text format, where CALLERS_BATCH gives the handle of an open batch.
struct call_s {
    std::string method;  // SERVICE/METHOD
    std::string request;
};

struct operation_s {
    call_s call;
    call_s before = {};                 // a call that must succeed first, if any
    std::string also_passed_over = {};  // a call into the agent whose failure it recovers from
};

#define CALLERS_BATCH "batch_ctxt { batch_cookie: HANDLE } "

const std::string k_three_interfaces =
    "request { id: 'A' loopback_if_spec {} } request { id: 'B' l3_if_spec {} } request { id: 'C' "
    "control_if_spec {} }";
const call_s k_create_three = {"IfSvc/InterfaceCreate", k_three_interfaces};

std::string ids(const std::vector<nyx_obj_key_s> &keys) {
    std::string text;
    for (const auto &key : keys) {
        types::Id id;
        id.set_id(key.id, sizeof(key.id));
        text += id.ShortDebugString() + " ";
    }
    return text;
}

const std::string k_ports = ids({sim::port_key(1), sim::port_key(2), sim::port_key(3)});
const std::string k_lifs = ids({sim::lif_key(1), sim::lif_key(2)});
const std::string k_port_update = "spec { " + ids({sim::port_key(1)}) + "number_a: 7 }";

const std::vector<operation_s> k_operations = {
    {k_create_three},
    {{"IfSvc/InterfaceCreate", CALLERS_BATCH + k_three_interfaces}},
    {{"IfSvc/InterfaceCreate",
      "request { id: 'A' loopback_if_spec {} } "
      "request { id: 'h' host_if_spec { name: 'h1' mac_address: 1 } }"}},
    {{"IfSvc/InterfaceCreate", k_three_interfaces}, k_create_three},  // fails: they already exist
    {{"IfSvc/InterfaceCreate",
      "request { id: 'h' host_if_spec { name: 'h1' } }"}},  // fails: without an address
    {{"IfSvc/InterfaceUpdate", k_three_interfaces}, k_create_three},
    {{"IfSvc/InterfaceUpdate", CALLERS_BATCH + k_three_interfaces}, k_create_three},
    {{"IfSvc/InterfaceUpdate", "request { host_if_spec { name: 'h1' mac_address: 1 } }"}, {}, "nyx_if_read"},
    {{"IfSvc/InterfaceUpdate", k_three_interfaces}},  // fails: unknown ids
    {{"IfSvc/InterfaceDelete", "id: 'A' id: 'B' id: 'C'"}, k_create_three},
    {{"IfSvc/InterfaceDelete", CALLERS_BATCH "id: 'A' id: 'B' id: 'C'"}, k_create_three},
    {{"IfSvc/InterfaceDelete", "id: 'A' id: 'B' id: 'C'"}},  // fails: unknown ids
    {{"IfSvc/InterfaceGet", ids({sim::uplink_key(1), sim::uplink_key(2), sim::host_interface_key(0)})}},
    {{"IfSvc/InterfaceGet", ""}, k_create_three},
    {{"IfSvc/LifGet", k_lifs}},
    {{"IfSvc/LifGet", ""}},
    {{"IfSvc/LifStatsReset", "id: 'A'"}},
    {{"LifClassicSvc/LifClassicGet", k_lifs}},
    {{"LifClassicSvc/LifClassicGet", ""}},
    {{"PortSvc/PortGet", k_ports}},
    {{"PortSvc/PortGet", ""}},
    {{"PortSvc/PortUpdate", k_port_update}},
    {{"PortSvc/PortUpdate", CALLERS_BATCH + k_port_update}},
    {{"PortSvc/PortStatsReset", k_ports.substr(0, k_ports.find(" id:"))}},
    {{"SystemSvc/SystemGet", ""}},
    {{"SystemSvc/ClockFrequencyUpdate",
      "clock_frequency: 833 arm_clock_frequency: 2000 p4_stage_frequency: 1500"}},
    {{"SystemSvc/QueueCreditsGet", ""}},
    {{"SystemSvc/ProcessRecoveryEnable", ""}},
    {{"SystemSvc/ProcessRecoveryDisable", ""}},
    {{"SystemSvc/ProcessRecoveryGet", ""}},
    {{"PipelineSvc/MeterStatsGet", "stats_index_high: 3"}},
    {{"PipelineSvc/SessionStatsGet", "stats_index_high: 5"}},
    {{"PipelineSvc/FlowStatsSummaryGet", ""}},
    {{"PipelineSvc/DataPathAssistStatsGet", ""}},
    {{"PipelineSvc/SessionStatisticsEnable", ""}},
    {{"PipelineSvc/SessionStatisticsDisable", ""}},
    {{"PipelineSvc/LifStatisticsEnable", ""}},
    {{"PipelineSvc/LifStatisticsDisable", ""}},
    {{"PipelineSvc/QuiesceStart", ""}},
    {{"PipelineSvc/QuiesceStop", ""}},
    {{"DebugSvc/TraceUpdate", "trace_level: TRACE_LEVEL_INFO"}},
    {{"DebugSvc/TraceFlush", ""}},
    {{"DebugSvc/TableStatsGet", ""}},
    {{"DebugSvc/LlcSetup", "llc_type: 3"}},
    {{"DebugSvc/LlcStatsGet", ""}},
    {{"DebugSvc/PbStatsGet", ""}},
    {{"DebugSvc/PbDropStatsReset", ""}},
    {{"DebugSvc/SlabGet", ""}},
    {{"DebugSvc/MemoryTrim", ""}},
    {{"DebugSvc/StartAacsServer", "aacs_server_port: 9000"}},
    {{"DebugSvc/StopAacsServer", ""}},
    {{"DebugSvc/InternalPortGet", "request { port_number: 1 } request { port_number: 2 }"}},
};

// Failures that requests ignore: LLDP stays empty, and only the last of several clocks decides the status.
constexpr const char *k_passed_over[] = {"core::interface_lldp_stats_get", "core::interface_lldp_status_get",
                                         "nyx_arm_clock_frequency_update", "nyx_clock_frequency_update"};

std::vector<operation_s> table_operations() {
    std::vector<operation_s> operations;
    for (const auto &layout : test::table_layouts()) {
        const auto action = layout.actions.empty() ? 0 : layout.actions[0].id;
        const std::vector<test::entry_s> entries = {test::make_entry(layout, action, 0x01, 0x60),
                                                    test::make_entry(layout, action, 0x11, 0x70),
                                                    test::make_entry(layout, action, 0x21, 0x80)};
        const std::string method = "NyxTblSvc/" + layout.name;
        const auto specs = test::write_request(layout, entries)->ShortDebugString();
        const auto keys = test::keys_request(layout, "Get", entries)->ShortDebugString();
        const call_s create = {method + "Create", specs};
        operations.push_back({create});
        operations.push_back({{method + "Update", specs}, create});
        operations.push_back({{method + "Get", keys}, create});
        operations.push_back({{method + "Delete", keys}, create});
    }
    return operations;
}

class points : public testing::TestWithParam<std::string> {
 protected:
    struct outcome_s {
        grpc::Status status;
        std::shared_ptr<Message> response;
    };

    points() { g_host_if_mac_file = folder_ / "mac.json"; }
    ~points() override { start_over(); }

    // The operations of the service under test.
    static std::vector<operation_s> operations() {
        auto all = GetParam() == "NyxTblSvc" ? table_operations() : k_operations;
        std::erase_if(all, [](const auto &each) { return !each.call.method.starts_with(GetParam() + "/"); });
        return all;
    }

    // Puts the agent into the state that the operation starts from.
    void prepare(const operation_s &operation) {
        start_over();
        if (!operation.before.method.empty()) {
            EXPECT_TRUE(make(operation.before).status.ok());
        }
        nyx_batch_params_s params = {};
        batch_ = operation.call.request.starts_with(CALLERS_BATCH) ? nyx_batch_start(&params) : 0;
    }

    outcome_s make(const call_s &call) {
        const auto *pool = google::protobuf::DescriptorPool::generated_pool();
        const auto *method = pool->FindMethodByName("nyx." + boost::replace_all_copy(call.method, "/", "."));
        auto *factory = google::protobuf::MessageFactory::generated_factory();
        const std::unique_ptr<Message> request(factory->GetPrototype(method->input_type())->New());
        const auto text = boost::replace_all_copy(call.request, "HANDLE", std::to_string(batch_));
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, request.get())) << text;
        outcome_s outcome = {{},
                             std::shared_ptr<Message>(factory->GetPrototype(method->output_type())->New())};
        outcome.status = server_.call("/nyx." + call.method, *request, outcome.response.get());
        return outcome;
    }

    // After any failure, no batch is open, and the next call ends as if nothing had happened.
    void expect_unharmed(const operation_s &operation, const outcome_s &undisturbed) {
        EXPECT_EQ(sim::open_batches(), batch_ ? 1U : 0U);
        prepare(operation);
        const auto next = make(operation.call);
        EXPECT_EQ(next.status.error_code(), undisturbed.status.error_code());
        EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(*next.response, *undisturbed.response))
            << next.response->ShortDebugString() << "\n"
            << undisturbed.response->ShortDebugString();
    }

    void fail_each_call_into_the_agent(const operation_s &operation);
    int64_t fail_each_allocation(const operation_s &operation, bool and_all_after);  // how many it made

    static void print(const operation_s &operation, const std::string &kind, uint64_t struck, uint64_t all) {
        printf("%s%s: %lu of %lu %s\n", operation.call.method.c_str(),
               operation.call.request.starts_with(CALLERS_BATCH) ? " in the caller's batch" : "", struck, all,
               kind.c_str());
    }

 private:
    void start_over() {
        sim::clear_faults();
        sim::clear_tables();
        sim::put_system_state({});
        sim::put_pipeline_state({});
        sim::debug_stats_state_s few;  // two records of each kind are enough
        few.pb_ports.resize(2);
        few.tables.resize(2);
        sim::put_debug_stats_state(few);
        sim::put_switch_ports(sim::default_switch_ports());
        sim::reset_card();
        std::filesystem::remove(g_host_if_mac_file);
        batch_ = 0;
    }

    test::trace_capture trace_;
    test::temporary_folder folder_;
    const std::unique_ptr<grpc::Service> tables_ = make_table_service();
    IfSvcImpl interfaces_;
    LifClassicSvcImpl lifs_;
    PortSvcImpl ports_;
    SystemSvcImpl system_;
    PipelineSvcImpl pipeline_;
    DebugSvcImpl debug_;
    test::grpc_server server_{{tables_.get(), &interfaces_, &lifs_, &ports_, &system_, &pipeline_, &debug_}};
    uint64_t batch_ = 0;  // the caller's, if the operation has one
};

INSTANTIATE_TEST_SUITE_P(services, points,
                         testing::Values("NyxTblSvc", "IfSvc", "LifClassicSvc", "PortSvc", "SystemSvc",
                                         "PipelineSvc", "DebugSvc"),
                         [](const auto &service) { return service.param; });

std::vector<int> statuses(const Message &response) {
    const auto *field = response.GetDescriptor()->FindFieldByName("api_status");
    const auto *reflection = response.GetReflection();
    std::vector<int> statuses;
    if (field && !field->is_repeated()) {
        statuses.push_back(reflection->GetEnumValue(response, field));
    }
    for (int i = 0; field && field->is_repeated() && i < reflection->FieldSize(response, field); i++) {
        statuses.push_back(reflection->GetRepeatedEnumValue(response, field, i));
    }
    return statuses;
}

// Without parsing a text, because there are thousands.
void add_fault(const std::string &agent_operation, uint64_t nth) {
    sim::fault_s fault;
    fault.text = fault.operation = agent_operation;
    fault.code = sdk::SDK_RET_RETRY_OPERATION;
    fault.nth = nth;
    sim::add_fault(std::move(fault));
}

// The operations of the agent that the last request called, and how often.
std::vector<sim::armed_fault_s> counters() {
    auto counters = sim::armed_faults();
    std::erase_if(counters, [](const auto &counter) { return counter.calls == 0; });
    return counters;
}

void points::fail_each_call_into_the_agent(const operation_s &operation) {
    prepare(operation);
    for (const auto &each : sim::fault_operations()) {
        add_fault(each, UINT32_MAX);
    }
    const auto undisturbed = make(operation.call);
    uint64_t struck = 0, all = 0;
    for (const auto &counter : counters()) {
        const auto &agent_operation = counter.text;
        for (uint64_t nth = 1; nth <= counter.calls; nth++) {
            SCOPED_TRACE(agent_operation + " " + std::to_string(nth));
            prepare(operation);
            add_fault(agent_operation, nth);
            const auto outcome = make(operation.call);
            all++;
            struck += sim::armed_faults().front().strikes;
            sim::clear_faults();
            EXPECT_TRUE(outcome.status.ok()) << outcome.status.error_message();
            if (!std::ranges::count(k_passed_over, agent_operation) &&
                agent_operation != operation.also_passed_over) {
                EXPECT_THAT(statuses(*outcome.response), testing::Each(testing::Gt(0)));
            }
            expect_unharmed(operation, undisturbed);
        }
    }
    EXPECT_EQ(struck, all);
    print(operation, "calls", struck, all);
}

int64_t points::fail_each_allocation(const operation_s &operation, bool and_all_after) {
    prepare(operation);
    const auto undisturbed = make(operation.call);
    for (int64_t nth = 1;; nth++) {
        SCOPED_TRACE(nth);
        prepare(operation);
        outcome_s outcome;
        {
            const test::failing_allocation failing(nth, and_all_after);
            outcome = make(operation.call);
            if (!failing.struck()) {
                print(operation, "allocations", nth - 1, nth - 1);
                return nth - 1;
            }
        }
        EXPECT_THAT(outcome.status.error_code(), testing::AnyOf(grpc::OK, grpc::RESOURCE_EXHAUSTED));
        expect_unharmed(operation, undisturbed);
    }
}

TEST_P(points, EachCallIntoTheAgentMayFail) {
    for (const auto &operation : operations()) {
        SCOPED_TRACE(operation.call.method + " " + operation.call.request);
        fail_each_call_into_the_agent(operation);
    }
}

TEST_P(points, EachAllocationMayFail) {
    int64_t allocations = 0;
    for (const auto &operation : operations()) {
        SCOPED_TRACE(operation.call.method + " " + operation.call.request);
        for (const bool and_all_after : {false, true}) {
            allocations += fail_each_allocation(operation, and_all_after);
        }
    }
    EXPECT_TRUE(allocations > 0 || !test::k_protobufs_fail);
}

}  // namespace
