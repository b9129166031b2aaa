// The grammar of faults, and which calls they strike.

#include "sim/faults/faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sim/api/tables.h"

namespace {

using testing::HasSubstr;

class faults : public testing::Test {
 protected:
    ~faults() override {
        sim::clear_faults();
        sim::clear_tables();
    }

    static uint32_t add(const std::string &text) { return sim::add_fault(sim::parse_fault(text)); }

    // One letter for each of twelve calls: x if it fails.
    static std::string strikes(const std::string &operation) {
        std::string pattern;
        for (int i = 0; i < 12; i++) {
            pattern += sim::fault(operation) ? 'x' : '.';
        }
        return pattern;
    }
};

TEST_F(faults, LimitsChooseTheCalls) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"code=6", "xxxxxxxxxxxx"},
        {"code=SDK_RET_HW_TABLE_FULL,nth=3", "..x........."},
        {"code=6,every=3", "..x..x..x..x"},
        {"after=9,code=6", ".........xxx"},
        {"code=6,after=4,every=2", ".....x.x.x.x"},
        {"code=6,chance=100", "xxxxxxxxxxxx"},
        {"delay=1,every=2", "............"},
        {"code=6,key=07", "............"},
    };
    for (const auto &[settings, pattern] : cases) {
        sim::clear_faults();
        add("nyx_if_read:" + settings);
        EXPECT_EQ(strikes("nyx_if_read"), pattern) << settings;
        EXPECT_EQ(strikes("nyx_if_create"), "............") << settings;
    }
}

TEST_F(faults, ChanceStrikesTheSameCallsForTheSameSeed) {
    std::vector<std::string> patterns;
    for (const char *seed : {"", ",seed=1", ",seed=2"}) {
        sim::clear_faults();
        add(std::string("nyx_if_read:code=6,chance=50") + seed);
        patterns.push_back(strikes("nyx_if_read"));
    }
    EXPECT_EQ(patterns[0], patterns[1]);
    EXPECT_NE(patterns[0], patterns[2]);
    EXPECT_THAT(patterns[0], testing::AllOf(HasSubstr("x"), HasSubstr(".")));
}

TEST_F(faults, WalkBreaksAfterSoManyRecords) {
    add("nyx_if_read_all:code=10,walk=2");
    std::vector<int> records = {1, 2, 3, 4}, visited;
    const auto no_key = [](int) { return std::span<const uint8_t>(); };
    const auto visit = [&](int record) { visited.push_back(record); };
    for (int walk = 0; walk < 2; walk++) {
        visited.clear();
        EXPECT_EQ(sim::walk("nyx_if_read_all", records, no_key, visit), sdk::SDK_RET_RETRY_OPERATION);
        EXPECT_EQ(visited, std::vector({1, 2}));
    }
    EXPECT_EQ(sim::fault("nyx_if_read_all"), sdk::SDK_RET_OK);
}

// Two threads fill a table that has room for ten.
TEST_F(faults, FullTableNeverHasMoreEntries) {
    const auto infos = sim::table_infos();
    const size_t table = std::ranges::find(infos, "flow_info", &sim::table_info_s::name) - infos.begin();
    add("nyx_tbl_flow_info_create:full=10");
    std::atomic<int> created = 0, refused = 0;
    const auto fill = [&](uint8_t thread) {
        std::vector<uint8_t> record(infos[table].record_size);
        for (record[1] = 0; record[1] < 100; record[1]++) {
            record[2] = thread;
            const auto ret = sim::table_create(table, record.data());
            created += ret == sdk::SDK_RET_OK;
            refused += ret == sdk::SDK_RET_RESOURCE_EXHAUSTION;
        }
    };
    std::thread other(fill, 1);
    fill(2);
    other.join();
    EXPECT_EQ(created, 10);
    EXPECT_EQ(refused, 190);
}

TEST_F(faults, ListCounts_RemovingTakesAllIdsOrNone) {
    const uint32_t first = add("nyx_if_read:code=6,every=4"), second = add("nyx_if_create:code=6");
    strikes("nyx_if_read");
    ASSERT_EQ(sim::armed_faults().size(), 2u);
    EXPECT_EQ(sim::armed_faults()[0].calls, 12u);
    EXPECT_EQ(sim::armed_faults()[0].strikes, 3u);
    std::vector<sim::armed_fault_s> removed;
    EXPECT_EQ(sim::remove_faults(std::vector{first, second + 1}, &removed), second + 1);
    EXPECT_EQ(sim::armed_faults().size(), 2u);
    EXPECT_EQ(sim::remove_faults(std::vector{first}, &removed), std::nullopt);
    EXPECT_EQ(removed.at(0).text, "nyx_if_read:code=6,every=4");
    EXPECT_EQ(strikes("nyx_if_read"), "............");
    EXPECT_EQ(strikes("nyx_if_create"), "xxxxxxxxxxxx");
}

TEST_F(faults, InvalidTextsAreRefusedWithTheReason) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"nyx_if_read", "OPERATION:code=CODE"},
        {"nyx_if_raed:code=6", "unknown operation 'nyx_if_raed'; nearest: nyx_if_read"},
        {"nyx_if_read:nth=6", "needs code= or delay="},
        {"nyx_if_read:code=0", "code= must be"},
        {"nyx_if_read:code=SDK_RET_HW_TABLE_FUL", "nearest: SDK_RET_HW_TABLE_FULL"},
        {"nyx_if_read:code=6,nth=0", "nth= must be"},
        {"nyx_if_read:code=6,key=0", "hexadecimal"},
        {"nyx_if_read:code=6,code=7", "code= is given twice"},
        {"nyx_if_read:code=6,nht=7", "known: code=, key=, after="},
        {"nyx_if_read:code=6,chance=101", "chance= must be a number from 1 to 100"},
        {"nyx_if_read:code=6,nth=2,every=2", "at most one of"},
        {"nyx_if_read:code=6,chance=5,every=2", "at most one of"},
        {"nyx_if_read:code=6,nth=2,after=2", "leave out after="},
        {"nyx_if_read:code=6,seed=2", "seed= needs chance="},
        {"nyx_if_create:full=2", "only for nyx_tbl_<table>_create"},
        {"nyx_tbl_flow_update:full=2", "only for nyx_tbl_<table>_create"},
        {"nyx_tbl_flow_create:full=2,delay=5", "full= goes only with code="},
        {"nyx_if_read:code=6,key=" + std::string(512, '0'), "at most 512 bytes"},
    };
    for (const auto &[text, reason] : cases) {
        try {
            sim::parse_fault(text);
            ADD_FAILURE() << text << " was accepted";
        } catch (const std::invalid_argument &error) {
            EXPECT_THAT(error.what(), HasSubstr(reason));
        }
    }
}

}  // namespace
