// Updates of ports and resets of their counters through real gRPC calls.

#include <thread>

#include "agent_api/agent_state.h"
#include "agent_api/batch.h"
#include "sim/api/batches.h"
#include "sim/card/if_records.h"
#include "svc/port_record.h"
#include "tests/port_fixture.h"

namespace {

using test::every_setting;
using test::id_text;
using test::IsMessage;
using test::port_record;
using test::port_service;
using test::record_of_every_setting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class port_update : public port_service {
 protected:
    int update(const nyx::PortSpec &spec, uint64_t cookie = 0) {
        nyx::PortUpdateRequest req;
        *req.mutable_spec() = spec;
        if (cookie) {
            req.mutable_batch_ctxt()->set_batch_cookie(cookie);
        }
        return call<nyx::PortUpdateResponse>("PortUpdate", req).api_status();
    }

    // The settings that the port API has now.
    static std::string settings(const std::string &id) {
        nyx_obj_key_s key = {};
        memcpy(key.id, id.data(), id.size());
        std::string bytes(39, 0);
        const auto record = sim::if_records()->ports.at(key);
        memcpy(bytes.data(), reinterpret_cast<const char *>(&record) + 25, bytes.size());
        return bytes;
    }

    static uint32_t epoch() { return core::agent_state::state()->epoch; }

    const std::string wanted_ = record_of_every_setting("").bytes(25, 64);
};

TEST_F(port_update, OwnBatchIsCommittedWithTheNextEpoch) {
    const uint32_t before = epoch();
    EXPECT_EQ(update(every_setting(port_1_)), types::API_STATUS_OK);
    EXPECT_EQ(settings(port_1_), wanted_);
    EXPECT_EQ(epoch(), before + 1);
    const auto params = sim::last_batch_params();
    EXPECT_EQ(uint64_t{params.epoch}, before + 1);
    EXPECT_EQ(params.async, 0);
    EXPECT_EQ(sim::open_batches(), 0U);

    nyx::PortSpec nothing;
    nothing.set_id(port_1_);
    EXPECT_EQ(update(nothing), types::API_STATUS_OK);
    EXPECT_EQ(settings(port_1_), std::string(39, 0));
    EXPECT_EQ(epoch(), before + 2);
}

TEST_F(port_update, CallersBatchStaysOpen_AndTheEpochAsItWas) {
    nyx_batch_params_s params = {};
    const uint64_t batch = nyx_batch_start(&params);
    const uint32_t before = epoch();
    EXPECT_EQ(update(every_setting(port_1_), batch), types::API_STATUS_OK);
    EXPECT_EQ(update({}, batch), types::API_STATUS_LOOKUP_FAILURE);
    EXPECT_EQ(sim::open_batches(), 1U);
    EXPECT_EQ(epoch(), before);
    EXPECT_NE(settings(port_1_), wanted_);
    EXPECT_EQ(nyx_batch_commit(batch), sdk::SDK_RET_OK);
    EXPECT_EQ(settings(port_1_), wanted_);
    EXPECT_EQ(update(every_setting(port_1_), batch), types::API_STATUS_INVALID_ARG);  // closed by now
    EXPECT_EQ(sim::open_batches(), 0U);
    EXPECT_EQ(epoch(), before);
}

TEST_F(port_update, ValuesWithoutANameAreSentAsNone) {
    struct {
        int raw;
        uint32_t three_valued, setting_b;
    } const cases[] = {{0, 0, 0},        {1, 1, 0},       {2, 2, 0},         {3, 0, 1},
                       {6, 0, 4},        {9, 0, 7},       {10, 0, 0},        {-1, 0, 0},
                       {0x103, 0, 0},    {0x10001, 0, 0}, {INT32_MIN, 0, 0}, {INT32_MIN + 3, 0, 0},
                       {INT32_MAX, 0, 0}};
    for (const auto &[raw, three_valued, setting_b] : cases) {
        nyx::PortSpec spec;
        spec.set_id(port_2_);
        spec.set_setting_a(static_cast<nyx::PortSetting>(raw));
        spec.set_port_type(static_cast<nyx::PortType>(raw));
        spec.set_setting_b(static_cast<nyx::PortSettingB>(raw));
        spec.set_setting_c(static_cast<nyx::PortSetting>(raw));
        spec.set_setting_d(static_cast<nyx::PortSetting>(raw));
        spec.set_setting_e(static_cast<nyx::PortSetting>(raw));
        EXPECT_EQ(update(spec), types::API_STATUS_OK);
        auto expected =
            port_record("", three_valued).put(25, three_valued).put(33, setting_b).put(37, three_valued);
        expected.put(50, three_valued).put(56, three_valued);
        EXPECT_EQ(settings(port_2_), expected.bytes(25, 64)) << raw;
    }
}

TEST_F(port_update, RecordHoldsTheSettingsAndZerosElsewhere) {
    for (const std::string id :
         {"", "abc", "sixteen bytes id", "seventeen bytes id", "0123456789abcdef0123456789abcdef"}) {
        nyx_if_spec_s spec = {};
        nyx_port_proto_to_api_spec(&spec, every_setting(id));
        const std::string bytes(reinterpret_cast<const char *>(&spec), sizeof(spec));
        EXPECT_EQ(bytes, record_of_every_setting(id.size() > 16 ? "" : id).bytes(0, 383)) << id;
    }
    sim::put_port(port_record("").info());
    EXPECT_EQ(update(every_setting(port_1_ + "x")), types::API_STATUS_OK);
    EXPECT_EQ(settings(""), wanted_);
    EXPECT_NE(settings(port_1_), wanted_);
}

TEST_F(port_update, FailuresLeaveNoBatchOpen_AndChangeNothing) {
    const auto before = settings(port_1_);
    add_fault("nyx_batch_commit:code=39");
    EXPECT_EQ(update(every_setting(port_1_)), types::API_STATUS_TIMED_OUT);
    EXPECT_EQ(sim::open_batches(), 0U);
    EXPECT_EQ(update(every_setting("missing")), types::API_STATUS_LOOKUP_FAILURE);
    add_fault("api::port_update:code=42");
    EXPECT_EQ(update(every_setting(port_1_)), types::API_STATUS_ENTRY_EXISTS_IN_HW);
    EXPECT_EQ(sim::open_batches(), 0U);
    EXPECT_THAT(trace_.messages(), IsEmpty());
    add_fault("nyx_batch_start:code=6");
    const uint32_t epoch_before = epoch();
    EXPECT_EQ(update(every_setting(port_1_)), types::API_STATUS_ERROR);
    EXPECT_EQ(epoch(), epoch_before + 1);
    EXPECT_THAT(trace_.sink().lines(),
                ElementsAre(testing::MatchesRegex(
                    "\\[nyx_svc_port_update:[0-9]+\\] Failed to create a new batch, port update failed")));
    EXPECT_EQ(settings(port_1_), before);

    nyx::PortUpdateRequest req;
    nyx::PortUpdateResponse rsp;
    EXPECT_EQ(nyx_svc_port_update(&req, &rsp), sdk::SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(nyx_svc_port_update(nullptr, &rsp), sdk::SDK_RET_INVALID_ARG);
    EXPECT_THAT(rsp, IsMessage("api_status: API_STATUS_INVALID_ARG"));
    EXPECT_EQ(trace_.messages().size(), 2U);
}

TEST_F(port_update, UpdatesAtOnceAllGetAnEpochOfTheirOwn) {
    const uint32_t before = epoch();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([this] {
            for (int round = 0; round < 25; round++) {
                EXPECT_EQ(update(every_setting(port_1_)), types::API_STATUS_OK);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(epoch(), before + 100);
    EXPECT_EQ(sim::open_batches(), 0U);
}

class port_stats_reset : public port_service {
 protected:
    // Which of the card's ports have counters above zero after the reset.
    std::vector<std::string> counting_after(const std::string &id) {
        sim::reset_card();
        sim::put_port(port_record("abc").put<uint64_t>(712, 1).info());
        types::Id req;
        req.set_id(id);
        EXPECT_THAT(call<types::Empty>("PortStatsReset", req), IsMessage(""));
        std::vector<std::string> counting;
        for (const auto &[key, info] : sim::if_records()->ports) {
            if (info.stats.mac_counter[0] != 0) {
                counting.push_back(id_text(key));
            }
        }
        return counting;
    }

    const std::string abc_ = std::string("abc") + std::string(13, 0);
};

TEST_F(port_stats_reset, ClearsThePortOfTheId_OrAllForAnEmptyOne) {
    EXPECT_THAT(counting_after(port_2_), ElementsAre(port_1_, port_3_, abc_));
    EXPECT_THAT(counting_after("abc"), ElementsAre(port_1_, port_2_, port_3_));
    EXPECT_THAT(counting_after(""), IsEmpty());
    EXPECT_THAT(counting_after("missing"), SizeIs(4));
    add_fault("api::port_stats_reset:code=6");
    EXPECT_THAT(counting_after(port_1_), SizeIs(4));
    EXPECT_THAT(counting_after(""), SizeIs(4));
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(port_stats_reset, IdAbove16BytesClearsNothing_AndIsLogged) {
    EXPECT_THAT(counting_after(port_1_ + "x"), SizeIs(4));
    EXPECT_THAT(trace_.messages(), SizeIs(1));
    EXPECT_THAT(counting_after(std::string(1000, 0)), SizeIs(4));
    EXPECT_THAT(trace_.messages(), SizeIs(2));
}

}  // namespace
