// The link event trace in a port's status, at rest and while it is being written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "agent_api/link_event_tracer.h"
#include "sim/card/link_event_writer.h"
#include "svc/port_record.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct event_s {
    link_event_time_s wall_clock, elapsed_clock;
    uint32_t state;
};

// A trace at a standstill. Its buffers are not a byte larger than their records.
struct still_trace_s {
    explicit still_trace_s(uint32_t generation, const std::vector<event_s> &even,
                           const std::vector<event_s> &odd, uint32_t data_size = 4) {
        put(0, even, data_size);
        put(1, odd, data_size);
        tracer.record_data_size = data_size;
        tracer.generation = generation;
    }

    void put(int buffer, const std::vector<event_s> &events, uint32_t data_size) {
        const size_t size = 32 + std::min(data_size, 4U);
        records[buffer].resize(events.size() * size);
        for (size_t i = 0; i < events.size(); i++) {
            memcpy(&records[buffer][i * size], &events[i], size);
        }
        tracer.buffer[buffer].records = records[buffer].data();
        tracer.buffer[buffer].num_records = static_cast<uint32_t>(events.size());
    }

    std::vector<char> records[2];
    link_event_tracer_s tracer = {};
};

std::vector<nyx::PortLinkSMRecord> read(const link_event_tracer_s &tracer) {
    nyx_if_status_s status = {};
    status.port.link_event_tracer = &tracer;
    nyx::PortStatus proto;
    nyx_port_api_status_to_proto(&proto, &status, sdk::types::PORT_TYPE_MGMT);
    return {proto.link_sm_records().begin(), proto.link_sm_records().end()};
}

std::vector<int> states(const link_event_tracer_s &tracer) {
    std::vector<int> states;
    for (const auto &record : read(tracer)) {
        states.push_back(record.state());
    }
    return states;
}

std::vector<event_s> events(std::initializer_list<uint32_t> states) {
    std::vector<event_s> events;
    for (const uint32_t state : states) {
        events.push_back({{state, 0}, {state, 0}, state});
    }
    return events;
}

class link_event_trace : public testing::Test {
 protected:
    link_event_trace() { set_zone("TEST-5:30"); }
    ~link_event_trace() override { set_zone("UTC0"); }

 private:
    static void set_zone(const char *zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

// A new time zone is used from the next trace on.
TEST_F(link_event_trace, TimeZoneIsThatOfTheMoment) {
    const still_trace_s trace(1, {}, events({1}));
    EXPECT_EQ(read(trace.tracer)[0].timestamp(), "1970-01-01 05:30:01.0");
    setenv("TZ", "TEST-1", 1);
    EXPECT_EQ(read(trace.tracer)[0].timestamp(), "1970-01-01 01:00:01.0");
}

TEST_F(link_event_trace, TextsTellLocalTimeAndTheTimeSinceTheRecordBefore) {
    struct {
        link_event_time_s wall_clock, elapsed_clock;
        const char *timestamp, *elapsed;
    } const cases[] = {
        {{0, 7'000'000}, {5, 250'000'000}, "1970-01-01 05:30:00.7", "5.250000000"},
        {{951782399, 0}, {6, 750'000'000}, "2000-02-29 05:29:59.0", "1.500000000"},
        {{-1, 999'999'999}, {8, 250'000'000}, "1970-01-01 05:29:59.999", "1.500000000"},
        {{0, 999'999}, {8, 250'000'000}, "1970-01-01 05:30:00.0", "0.000000000"},
        {{0, 50'000'000}, {7, 999'999'999}, "1970-01-01 05:30:00.50", "0.000000000"},
        {{0, 5'999'999}, {8, 0}, "1970-01-01 05:30:00.5", "0.000000001"},
        {{253402300800, 0}, {9, 0}, "10000-01-01 05:30:00.0", "1.000000000"},
        {{0, 0}, {9, 999'999'999}, "1970-01-01 05:30:00.0", "0.999999999"},
        {{0, 0}, {9, 1}, "1970-01-01 05:30:00.0", "0.000000000"},
        {{-62167240000, 0}, {9, 1}, "-1-12-31 23:43:20.0", "0.000000000"},
        {{0, INT64_MAX}, {5'000'000'009, 1}, "1970-01-01 05:30:00.922337203", "5000000000.000000000"},
    };
    std::vector<event_s> all;
    for (const auto &each : cases) {
        all.push_back({each.wall_clock, each.elapsed_clock, 1});
    }
    const still_trace_s trace(1, {}, all);
    const auto records = read(trace.tracer);
    ASSERT_EQ(records.size(), std::size(cases));
    for (size_t i = 0; i < records.size(); i++) {
        EXPECT_EQ(records[i].timestamp(), cases[i].timestamp) << i;
        EXPECT_EQ(records[i].elapsed(), cases[i].elapsed) << i;
    }
}

TEST_F(link_event_trace, AbsurdTimesEndInBoundedTexts) {
    constexpr int64_t values[] = {
        INT64_MIN,         INT64_MAX,          -1,           0, INT64_MIN + 1, 67767976233532799,
        67767976233532800, -67768040609740800, 1'000'000'000};
    std::vector<event_s> all;
    for (const int64_t seconds : values) {
        for (const int64_t nanoseconds : values) {
            all.push_back({{seconds, nanoseconds}, {nanoseconds, seconds}, 1});
            all.push_back({{nanoseconds, seconds}, {seconds, nanoseconds}, 1});
        }
    }
    const still_trace_s trace(1, {}, all);
    const auto records = read(trace.tracer);
    EXPECT_EQ(records.size(), all.size());
    for (const auto &record : records) {
        EXPECT_LE(record.timestamp().size(), 29U) << record.timestamp();
        EXPECT_LE(record.elapsed().size(), 29U) << record.elapsed();
        EXPECT_TRUE(nyx::PortLinkSMRecord().ParseFromString(record.SerializeAsString()));
    }
}

TEST_F(link_event_trace, PreviousGenerationComesBeforeTheCurrentOne) {
    const auto even = events({1, 2, 24}), odd = events({3, 4});
    EXPECT_THAT(states(still_trace_s(0, even, odd).tracer), IsEmpty());
    EXPECT_THAT(states(still_trace_s(1, {}, odd).tracer), ElementsAre(3, 4));
    EXPECT_THAT(states(still_trace_s(2, even, odd).tracer), ElementsAre(3, 4, 1, 2, 24));
    EXPECT_THAT(states(still_trace_s(3, even, odd).tracer), ElementsAre(1, 2, 24, 3, 4));
    EXPECT_THAT(states(still_trace_s(UINT32_MAX, even, odd).tracer), ElementsAre(1, 2, 24, 3, 4));
    EXPECT_THAT(states(still_trace_s(2, {}, odd).tracer), ElementsAre(3, 4));
    EXPECT_THAT(states(still_trace_s(2, events({0, 25, 0x101, UINT32_MAX}), {}).tracer),
                ElementsAre(0, 0, 0, 0));
    const auto over_both = read(still_trace_s(3, events({5}), events({7})).tracer);
    EXPECT_EQ(over_both.at(1).elapsed(), "2.000000000");
}

TEST_F(link_event_trace, RecordsOfAnotherShapeAreNeverReadBeyondTheirEnd) {
    const auto two = events({9, 12});
    for (const uint32_t size : {5U, 8U, 0x80000000U, UINT32_MAX - 31, UINT32_MAX}) {
        EXPECT_THAT(states(still_trace_s(2, two, two, size).tracer), IsEmpty()) << size;
    }
    for (const uint32_t size : {1U, 2U, 3U}) {
        EXPECT_THAT(states(still_trace_s(1, {}, two, size).tracer), ElementsAre(9, 12)) << size;
    }
    EXPECT_THAT(states(still_trace_s(1, {}, two, 0).tracer), ElementsAre(0, 0));
    still_trace_s no_buffers(2, two, two);
    no_buffers.tracer.buffer[0].records = no_buffers.tracer.buffer[1].records = nullptr;
    EXPECT_THAT(states(no_buffers.tracer), IsEmpty());
}

// Event number n of a trace in which each part of a record is made from n.
uint32_t state_of(int64_t n) { return static_cast<uint32_t>(1 + n % 24); }
link_event_time_s wall_clock_of(int64_t n) { return {n, n * 7919 % 1000 * 1'000'000}; }
link_event_time_s elapsed_clock_of(int64_t n) { return {2 * n, n}; }

int64_t number_of(const nyx::PortLinkSMRecord &record, std::string *fault) {
    tm time = {};
    const char *milliseconds = strptime(record.timestamp().c_str(), "%Y-%m-%d %H:%M:%S.", &time);
    const int64_t n = timegm(&time) - 19'800;
    if (!milliseconds || atoll(milliseconds) != n * 7919 % 1000 ||
        record.state() != static_cast<int>(state_of(n))) {
        *fault = "torn: " + record.ShortDebugString();
    }
    return n;
}

// Checks the records; `fault` takes what is wrong. Returns the number of the last one.
int64_t check(const std::vector<nyx::PortLinkSMRecord> &records, std::string *fault) {
    int64_t last = 0;
    for (const auto &record : records) {
        const int64_t n = number_of(record, fault);
        const int64_t passed = n - last;
        char elapsed[64];
        snprintf(elapsed, sizeof(elapsed), "%ld.%.9ld", 2 * passed, passed);
        if (passed <= 0 || record.elapsed() != elapsed) {
            *fault = "after " + std::to_string(last) + ": " + record.ShortDebugString();
        }
        last = n;
    }
    return last;
}

struct seen_s {
    uint64_t records = 0;
    std::string fault;
};

void read_rounds(const link_event_tracer_s &tracer, int rounds, seen_s *seen) {
    int64_t oldest = 0;
    for (int round = 0; round < rounds && seen->fault.empty(); round++) {
        const auto records = read(tracer);
        seen->records += records.size();
        check(records, &seen->fault);
        // A shortened list may end before the one that was read before it, but never starts before it.
        const int64_t first = records.empty() ? oldest : number_of(records.front(), &seen->fault);
        if (first < oldest) {
            seen->fault = "overwritten before: " + records.front().ShortDebugString();
        }
        oldest = first;
    }
}

// A trace that begins anew looks like one that was just made, whatever it held.
TEST_F(link_event_trace, ClearedTraceBeginsAnew) {
    sim::link_event_trace trace(2);
    for (uint32_t written = 0; written < 6; written++) {
        for (uint32_t i = 0; i < written; i++) {
            trace.append(1, {}, {});
        }
        trace.clear();
        EXPECT_THAT(states(*trace.tracer()), IsEmpty()) << written;
        for (uint32_t state = 2; state < 5; state++) {
            trace.append(state, {}, {});
        }
        EXPECT_THAT(states(*trace.tracer()), ElementsAre(2, 3, 4)) << written;
    }
}

class written_trace : public link_event_trace, public testing::WithParamInterface<uint32_t> {};

TEST_P(written_trace, ReadersFindWholeRecordsInTheirOrder) {
    constexpr int k_readers = 3, k_rounds = 3000;
    sim::link_event_trace trace(GetParam());
    std::atomic<bool> done = false;
    int64_t written = 0;
    const auto append = [&] {
        written++;
        trace.append(state_of(written), wall_clock_of(written), elapsed_clock_of(written));
    };
    while (written <= 2 * GetParam()) {
        append();  // so that readers find something before the writer's thread runs
    }
    std::thread writer([&] {
        while (!done || written < 5000) {
            append();
        }
    });
    seen_s seen[k_readers];
    std::vector<std::thread> readers;
    for (auto &each : seen) {
        readers.emplace_back([&] { read_rounds(*trace.tracer(), k_rounds, &each); });
    }
    for (auto &reader : readers) {
        reader.join();
    }
    done = true;
    writer.join();
    uint64_t records = 0;
    for (const auto &each : seen) {
        EXPECT_EQ(each.fault, "");
        records += each.records;
    }
    // A reader may never catch a record of a small buffer.
    EXPECT_TRUE(records > 0 || GetParam() < 256);
    const auto at_the_end = read(*trace.tracer());
    EXPECT_GT(at_the_end.size(), GetParam());  // one buffer is full, the other has something
    EXPECT_LE(at_the_end.size(), 2 * GetParam());
    std::string fault;
    EXPECT_EQ(check(at_the_end, &fault), written);
    EXPECT_EQ(fault, "");
}

INSTANTIATE_TEST_SUITE_P(capacities, written_trace, testing::Values(1, 2, 8, 256));

}  // namespace
