// The living card: what a scenario does to what clients read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent_api/pipeline.h"
#include "agent_api/port.h"
#include "sim/api/lldp.h"
#include "sim/api/reset_card.h"
#include "sim/api/system.h"
#include "sim/api/tables.h"
#include "sim/card/card.h"
#include "sim/card/card_counters.h"
#include "sim/faults/faults.h"
#include "sim/scenario/running.h"
#include "svc/port_record.h"
#include "tests/card_sums.h"

namespace {

using test::buffers, test::lifs, test::ports;
using testing::ElementsAre;
using testing::HasSubstr;

// Each kind of place sends to each other one, and everything that can happen happens, at times that collide.
constexpr char k_everything[] = R"(
traffic = [
    {from = "port1", to = "lif1", packets = 3001, bytes = 900, replies = 1777, burst = 90, drops = 1234, session = 1},
    {from = "port2", to = "lif2", packets = 997, replies = 13, burst = 50, drops = 999, drop_reason = 4, session = 2},
    {from = "lif1", to = "lif2", packets = 7, burst = 90, drops = 500000, session = 1},
    {from = "port1", to = "port2", packets = 101, errors = 20000},
    {from = "port3", to = "lif3", packets = 9, replies = 3},
]
event = [
    {what = "link_down", port = 1, at = 3, every = 11, jitter = 4, lasts = 2.5},
    {what = "link_down", port = 2, at = 5, every = 7, lasts = 5},
    {what = "transceiver_out", port = 2, at = 4, every = 13, jitter = 2, lasts = 6},
    {what = "neighbor_gone", at = 2, every = 17, lasts = 9},
    {what = "fault", fault = "nyx_lif_stats_enable:code=6", at = 6, every = 20, lasts = 3},
    {what = "restart", at = 60, every = 60},
]
sensor = [{name = "temperature.core", from = 50, to = 110, period = 40, limit = 95}]
fill = [{table = "flow_info", at = 1, per_second = 37, entries = 900}]
)";

template <class Record>
void add_bytes(std::string *bytes, const Record &record) {
    bytes->append(reinterpret_cast<const char *>(&record), sizeof(record));
}

std::vector<int> trace_of(const nyx_if_info_s &port) {
    nyx::PortStatus proto;
    nyx_port_api_status_to_proto(&proto, &port.status, sdk::types::PORT_TYPE_MGMT);
    std::vector<int> states;
    for (const auto &record : proto.link_sm_records()) {
        states.push_back(record.state());
    }
    return states;
}

size_t flow_info() {
    for (size_t table = 0; table < sim::table_infos().size(); table++) {
        if (sim::table_infos()[table].name == "flow_info") return table;
    }
    throw std::logic_error("no table flow_info");
}

// All that a scenario can change.
std::string state_of_card() {
    std::string bytes;
    for (const auto &port : ports()) {
        add_bytes(&bytes, port);
        nyx::PortStatus proto;
        nyx_port_api_status_to_proto(&proto, &port.status, sdk::types::PORT_TYPE_MGMT);
        bytes += proto.SerializeAsString();
    }
    for (const auto &lif : lifs()) add_bytes(&bytes, lif);
    for (const auto &port : buffers()) add_bytes(&bytes, port);
    EXPECT_EQ(nyx_session_stats_get([](uint32_t, session_stats_entry_s *entry,
                                       void *ctxt) { add_bytes(static_cast<std::string *>(ctxt), *entry); },
                                    0, UINT32_MAX, &bytes),
              sdk::SDK_RET_OK);
    nyx_flow_stats_summary_s flows;
    EXPECT_EQ(nyx_flow_summary_get(&flows), sdk::SDK_RET_OK);
    add_bytes(&bytes, flows);
    const auto system = sim::system_state();
    add_bytes(&bytes, system.temperature);
    for (const auto &queue : system.credits[0].queues) add_bytes(&bytes, queue);
    nyx_if_lldp_stats_s lldp = {};
    (void)core::interface_lldp_stats_get(1, &lldp);
    add_bytes(&bytes, lldp);
    nyx_if_lldp_status_s status = {};
    (void)core::interface_lldp_status_get(1, &status);
    bytes += std::string(status.neighbor.system_name);
    return bytes + std::to_string(sim::table_entry_count(flow_info())) +
           std::to_string(sim::armed_faults().size());
}

class Scenario : public testing::Test {
 protected:
    ~Scenario() override {
        sim::stop_scenario();
        sim::on_card_restart(nullptr);
        sim::clear_faults();
        sim::start_scenario({}, {});
        sim::stop_scenario();  // leaves a card that has just started
    }

    static void start(const std::string &toml, uint64_t seed = 1) {
        sim::start_scenario(sim::parse_scenario(toml), {.name = "test", .seed = seed, .speed = 0});
    }

    static void advance(uint64_t ms) { EXPECT_TRUE(sim::advance_scenario(ms)); }
};

TEST_F(Scenario, CountersBalanceAtAnyMoment) {
    for (const uint64_t seed : {1, 2, 3}) {
        start(k_everything, seed);
        uint32_t most_drops = 0;
        for (uint64_t step = 1; step < 200; step++) {
            advance(step * 7919 % 2003);
            const test::sums_s now = test::sums();
            ASSERT_TRUE(now.balance) << sim::scenario_status().history.now_ms;
            most_drops = std::max(most_drops, now.drops);
        }
        EXPECT_GT(most_drops, 1000u);
        EXPECT_EQ(sim::scenario_status().history.restarts, sim::scenario_status().history.now_ms / 60'000);
    }
}

// The same seed gives the same card, however often somebody looks; another seed gives another card.
TEST_F(Scenario, StateFollowsFromSeedAndTime) {
    std::vector<std::string> states;
    for (const auto &[seed, step] : {std::pair(1, 59'000), {1, 1}, {1, 700}, {2, 59'000}}) {
        start(k_everything, static_cast<uint64_t>(seed));
        for (int at = 0; at < 59'000; at += step) {
            advance(static_cast<uint64_t>(std::min(step, 59'000 - at)));
            (void)sim::fault("nyx_if_read");
        }
        states.push_back(state_of_card());
    }
    EXPECT_EQ(states[0], states[1]);
    EXPECT_EQ(states[0], states[2]);
    EXPECT_NE(states[0], states[3]);
}

TEST_F(Scenario, LinkDownShowsInPortUplinkNeighborAndTrace) {
    start(
        R"(event = [{what = "link_down", at = 5, lasts = 2}, {what = "transceiver_out", port = 2, at = 6, lasts = 5}]
             traffic = [{from = "port1", to = "lif1", packets = 1000}])");
    const auto before = trace_of(ports()[0]);
    advance(5'000);
    // "+" copies what is not aligned in a packed record.
    EXPECT_EQ(+ports()[0].status.oper_state, +NYX_STATE_DOWN);
    EXPECT_EQ(+ports()[0].stats.mac_counter[sim::PORT_RX_FRAMES], 5000u);
    nyx_if_lldp_status_s lldp = {};
    EXPECT_EQ(core::interface_lldp_status_get(1, &lldp), sdk::SDK_RET_OK);
    EXPECT_STREQ(lldp.neighbor.system_name, "");
    advance(1'999);
    EXPECT_EQ(+ports()[0].stats.mac_counter[sim::PORT_RX_FRAMES], 5000u);
    EXPECT_EQ(+ports()[1].status.port.xcvr_number, 0u);
    advance(1'001);
    EXPECT_EQ(+ports()[0].status.oper_state, +NYX_STATE_UP);
    EXPECT_EQ(+ports()[0].stats.mac_counter[sim::PORT_RX_FRAMES], 6000u);
    const auto after = trace_of(ports()[0]);
    EXPECT_THAT(std::vector(after.end() - 6, after.end()), ElementsAre(3, 5, 8, 9, 12, 24));
    advance(3'000);
    EXPECT_EQ(+ports()[1].status.port.xcvr_number, 2u);
    EXPECT_THAT(sim::scenario_status().history.last, testing::SizeIs(4));
}

TEST_F(Scenario, TableFillsAndRestartLosesIt) {
    int restarts = 0;
    sim::on_card_restart([&] { restarts++; });
    start(R"(fill = [{table = "flow_info", per_second = 1000, entries = 150000}]
             event = [{what = "fault", fault = "nyx_tbl_flow_info_create:full=2000", at = 1, lasts = 9},
                      {what = "restart", at = 200}])");
    const size_t table = flow_info();
    std::vector<uint8_t> record(sim::table_infos()[table].record_size, 0xff);
    advance(1'999);
    EXPECT_EQ(sim::table_create(table, record.data()), sdk::SDK_RET_OK);
    EXPECT_EQ(sim::table_entry_count(table), 2000u);
    record.back() = record[1] = 0;
    EXPECT_EQ(sim::table_create(table, record.data()), sdk::SDK_RET_RESOURCE_EXHAUSTION);
    advance(197'000);
    EXPECT_EQ(sim::table_entry_count(table), 150'001u);
    EXPECT_EQ(sim::table_create(table, record.data()), sdk::SDK_RET_OK);
    EXPECT_EQ(restarts, 1);
    advance(2'001);
    EXPECT_EQ(sim::table_entry_count(table), 1000u);
    EXPECT_EQ(restarts, 2);
}

TEST_F(Scenario, SensorsDriftOverTheirLimit) {
    start(R"(sensor = [{name = "temperature.core", from = 40, to = 100, period = 60, limit = 90},
                       {name = "voltage.card", from = 12000, to = 11000, period = 60}])");
    const std::vector<std::vector<uint32_t>> expected = {
        {50, 11834, 1}, {60, 11667, 1}, {100, 11000, 2}, {40, 12000, 1}};
    const uint64_t steps[] = {5'000, 5'000, 20'000, 30'000};
    for (size_t i = 0; i < expected.size(); i++) {
        advance(steps[i]);
        const auto state = sim::system_state();
        EXPECT_THAT(expected[i], ElementsAre(state.temperature.value[0], state.voltage.value[0], state.led))
            << i;
    }
}

// Somebody who no longer waits holds up nobody, and what is left happens step by step.
TEST_F(Scenario, AbandonedAdvanceIsFinishedByLaterOperations) {
    start(R"(fill = [{table = "flow_info", per_second = 100000, entries = 400000}])");
    EXPECT_TRUE(sim::advance_scenario(10'000, [] { return false; }));
    EXPECT_EQ(sim::scenario_status().history.now_ms, 1'001u);
    for (int i = 0; i < 3; i++) {
        (void)sim::fault("nyx_if_read");
    }
    EXPECT_EQ(sim::scenario_status().history.now_ms, 10'000u);
    EXPECT_EQ(sim::table_entry_count(flow_info()), 400'000u);
}

// What clients clear begins at 0 again, and stays still once the scenario has been stopped.
TEST_F(Scenario, ClearedCountersGoOnFromZero) {
    start(R"(traffic = [{from = "port1", to = "lif1", packets = 1000}])");
    advance(3'000);
    const auto key = sim::port_key(1);
    auto lif = sim::lif_key(1);
    EXPECT_EQ(api::port_stats_reset(&key), sdk::SDK_RET_OK);
    EXPECT_EQ(nyx_lif_stats_reset(&lif), sdk::SDK_RET_OK);
    advance(2'000);
    EXPECT_EQ(+ports()[0].stats.mac_counter[sim::PORT_RX_FRAMES], 2000u);
    EXPECT_EQ(lifs()[0].lif_word_2, 2000u);
    sim::stop_scenario();
    EXPECT_FALSE(sim::advance_scenario(1'000));
    EXPECT_EQ(lifs()[0].lif_word_2, 2000u);
}

TEST_F(Scenario, RunningClockMovesTheCardWhileThreadsRead) {
    sim::start_scenario(sim::parse_scenario(k_everything), {.name = "test", .speed = 1000});
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; i++) {
        readers.emplace_back([] {
            while (sim::scenario_status().history.restarts < 2) {
                (void)state_of_card();
            }
        });
    }
    for (auto &reader : readers) {
        reader.join();
    }
    sim::stop_scenario();
    EXPECT_TRUE(test::sums().balance);
}

TEST_F(Scenario, InvalidTextIsRefusedWithTheReason) {
    const std::pair<const char *, const char *> cases[] = {
        {"traffic = 1", "[[traffic]]"},
        {"[[trafic]]", "unknown key \"trafic\"; nearest: traffic"},
        {"[[traffic]]\nfrom = \"port1\"", "packets is missing"},
        {"[[traffic]]\nfrom = \"port1\"\nto = \"prt2\"\npackets = 1",
         "line 3: to \"prt2\" is unknown; nearest: port2"},
        {"[[traffic]]\nfrom = \"port1\"\nto = \"lif1\"\npackets = -1", "whole number from 0 to 1000000000"},
        {"[[traffic]]\nfrom = \"port1\"\nto = \"lif1\"\npackets = 1.5", "whole number"},
        {"[[event]]\nwhat = \"link_down\"\nlasts = 0.1", "lasts must be a number of seconds from 1 to 86400"},
        {"[[event]]\nwhat = \"link_down\"\nat = nan", "at must be a number of seconds"},
        {"[[event]]\nwhat = \"link_down\"\nevery = 5\nlasts = 3\njitter = 2", "longer than lasts and jitter"},
        {"[[event]]\nwhat = \"neighbor_gone\"\nport = 2", "port 1 only"},
        {"[[event]]\nwhat = \"fault\"\nfault = \"nyx_if_raed:code=6\"", "nearest: nyx_if_read"},
        {"sensor = [{name = 5, from = 1, to = 2, period = 9}]", "name must be a text"},
        {"fill = [{table = \"flow_inf\", per_second = 1, entries = 1}]", "nearest: flow_info"},
        {"title = ", "line 1: "},
        {"[[\nevent]]", "the text is not TOML"},
        {"fill = [{table = \"flow\", per_second = 1, entries = 600000}, {table = \"flow_info\", per_second = "
         "1, "
         "entries = 600000}]",
         "up to 1000000 entries together"},
    };
    for (const auto &[text, reason] : cases) {
        try {
            sim::parse_scenario(text);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument &error) {
            EXPECT_THAT(error.what(), HasSubstr(reason)) << text;
        }
    }
    EXPECT_THROW(sim::parse_scenario(std::string(sim::k_max_scenario_bytes + 1, ' ')), std::invalid_argument);
    EXPECT_THROW(sim::parse_scenario("x=" + std::string(60'000, '[')), std::invalid_argument);
    EXPECT_NO_THROW(sim::parse_scenario(""));
    std::string title = "x";
    for (int i = 0; i < 100; i++) {
        title += "\u00e9";
    }
    EXPECT_EQ(sim::parse_scenario("title = '" + title + "'").title,
              title.substr(0, 199));  // whole characters
}

}  // namespace
