// LIFs through real gRPC calls: as the object API knows them, and in the classic view.

#include "sim/api/lifs.h"
#include "svc/interface.h"
#include "svc/lif_classic.h"
#include "tests/card_fixture.h"
#include "tests/record_bytes.h"

namespace {

using std::string_literals::operator""s;
using test::IsMessage;
using test::le;
using test::make_record;
using test::record_bytes;
using testing::ElementsAre;
using testing::SizeIs;

const std::string k_id = "ABCDEFGHIJKLMNOP";
const std::string k_bad = "\xef\xbf\xbd";

class lif_service : public test::card_service<nyx::IfSvc, IfSvcImpl> {
 protected:
    nyx::LifGetResponse get(const std::vector<std::string> &ids) {
        return read<nyx::LifGetRequest, nyx::LifGetResponse>("LifGet", ids);
    }
    static std::string id(uint8_t number) { return test::id_of(sim::lif_key(number)); }
    static void put(record_bytes parts) {
        parts.insert(parts.begin(), {0, k_id});
        sim::put_lif(make_record<nyx_lif_info_s>(parts));
    }
};

TEST_F(lif_service, TypesAreMapped) {
    const std::tuple<uint32_t, uint8_t, int> types[] = {
        {0, 0, 0}, {1, 0, 1},  {1, 1, 2},  {1, 255, 2},   {2, 0, 3},         {2, 1, 3},
        {3, 0, 4}, {4, 0, 6},  {5, 0, 5},  {6, 0, 7},     {7, 1, 0},         {8, 0, 8},
        {9, 1, 0}, {10, 0, 9}, {11, 1, 0}, {0x101, 1, 0}, {UINT32_MAX, 1, 0}};
    for (const auto &[api, qualifier, reported] : types) {
        put({{44, le(api, 4)}, {48, le(qualifier, 1)}});
        EXPECT_EQ(get({k_id}).response(0).spec().type(), reported) << api;
    }
}

TEST_F(lif_service, MembersAreReadAtTheirPlaces) {
    put({{17, std::string(103, '\xff')},
         {44, le(8, 4)},
         {50, "\xaa\xbb\xcc\xdd\xee\x0f"},
         {84, le(0xfffefdfc, 4)},
         {88, le(2, 4)},
         {92, "fifteen letters\0"s},
         {108, le(1, 4)},
         {112, le(2, 4)},
         {116, le(3, 4)}});
    EXPECT_THAT(get({k_id}),
                IsMessage("response { spec { id: '" + k_id +
                          "' mac_address: 0xaabbccddee0f "
                          "type: LIF_TYPE_8 } status { name: 'fifteen letters' lif_word_1: 0xfffefdfc "
                          "lif_word_2: 2 lif_word_3: 3 admin_status: STATE_DOWN oper_status: STATE_UP } }"));
    put({{92, "sixteen\xff letters"}, {108, le(3, 4)}, {112, le(UINT32_MAX, 4)}});
    EXPECT_THAT(get({k_id}).response(0).status(), IsMessage("name: 'sixteen" + k_bad + " letters'"));
}

TEST_F(lif_service, ReadsKeepWhatCameBeforeAFailure) {
    const auto rsp = get({id(2), k_id, id(1)});
    EXPECT_EQ(rsp.api_status(), 5);
    ASSERT_EQ(rsp.response_size(), 1);
    EXPECT_EQ(rsp.response(0).spec().id(), id(2));
    EXPECT_EQ(get({}).response_size(), 5);
    for (const auto &[code, status] :
         {std::pair{"10", 7}, {"44", 1}, {"45", 1}, {"255", 1}, {"256", 1}, {"300", 1}}) {
        sim::clear_faults();
        add_fault("nyx_lif_read:nth=2,code="s + code);
        add_fault("nyx_lif_read_all:nth=4,code="s + code);
        const auto some = get({id(1), id(2), id(3)}), all = get({});
        EXPECT_EQ(some.api_status(), status);
        EXPECT_EQ(some.response_size(), 1);
        EXPECT_EQ(all.api_status(), status);
        EXPECT_EQ(all.response_size(), 3);
    }
    nyx::LifGetResponse null_rsp;
    EXPECT_TRUE(IfSvcImpl().LifGet(nullptr, nullptr, &null_rsp).ok());
    EXPECT_THAT(null_rsp, IsMessage("api_status: API_STATUS_INVALID_ARG"));
}

TEST_F(lif_service, StatisticsOfOneOrAllAreReset) {
    sim::put_lif(nyx_lif_info_s());
    const auto resets_after = [&](const std::string &id) {
        types::Id req;
        req.set_id(id);
        call<types::Empty>("LifStatsReset", req);
        return std::vector{sim::lif_stats_resets({}), sim::lif_stats_resets(sim::lif_key(1)),
                           sim::lif_stats_resets(sim::lif_key(2))};
    };
    EXPECT_THAT(resets_after(id(1)), ElementsAre(0, 1, 0));
    EXPECT_THAT(resets_after(""), ElementsAre(1, 2, 1));
    EXPECT_THAT(resets_after(std::string(17, 'i')), ElementsAre(2, 2, 1));
    EXPECT_THAT(resets_after("unknown"), ElementsAre(2, 2, 1));
    add_fault("nyx_lif_stats_reset:code=1");
    EXPECT_THAT(resets_after(""), ElementsAre(2, 2, 1));
}

class lif_classic_service : public test::card_service<nyx::LifClassicSvc, LifClassicSvcImpl> {
 protected:
    nyx::LifClassicGetResponse get(const std::vector<std::string> &ids) {
        return read<nyx::LifClassicGetRequest, nyx::LifClassicGetResponse>("LifClassicGet", ids);
    }

    // The LIF with id 0x1234 and this implementation object.
    nyx::LifClassic get(std::unique_ptr<api::impl::lif_impl> impl) {
        sim::put_lif(make_record<nyx_lif_info_s>({{0, k_id},
                                                  {17, "\xff\x34\x12\xff"},
                                                  {92, "sixteen\xff letters"},
                                                  {108, le(1, 4)},
                                                  {112, le(2, 4)}}));
        sim::put_lif_impl(0x1234, std::move(impl));
        const auto rsp = get(std::vector{k_id});
        EXPECT_EQ(rsp.api_status(), types::API_STATUS_OK);
        EXPECT_EQ(rsp.response_size(), 1);
        return rsp.response_size() ? rsp.response(0) : nyx::LifClassic();
    }

    const std::string spec_ = "spec { id: '" + k_id + "' name: 'sixteen" + k_bad + " letters' } ";
    const std::string states_ = "admin_status: STATE_DOWN oper_status: STATE_UP ";
};

TEST_F(lif_classic_service, ConfigurationComesFromTheImplementationObject) {
    EXPECT_THAT(get(sim::make_lif_impl({})),
                IsMessage(spec_ + "status { flags {} pkt_filters {} " + states_ + "}"));
    sim::lif_impl_s impl = {};
    impl.pinned_if_idx = 0xfffefdfc;
    impl.impl_value = 0xfcfdfeff;
    impl.macs = {0xffffffffffff, 1};
    impl.vlans = {4095, 0};
    impl.mac_vlans = {{10, 100}, {0xfedcba987654, 4095}};
    EXPECT_THAT(get(sim::make_lif_impl(impl)),
                IsMessage(spec_ + "status { flags {} pkt_filters {} " + states_ +
                          "pinned_if_idx: 0xfffefdfc impl_value: 0xfcfdfeff "
                          "mac_filter { mac_address: 0xffffffffffff mac_address: 1 } "
                          "vlan_filter { vlan_id: 4095 vlan_id: 0 } mac_vlan_filter { "
                          "mac_vlan { mac_address: 10 vlan_id: 100 } "
                          "mac_vlan { mac_address: 0xfedcba987654 vlan_id: 4095 } } }"));
}

TEST_F(lif_classic_service, EachFlagIsItsOwn) {
    using impl_s = sim::lif_impl_s;
    const std::pair<bool impl_s::*, std::string> flags[] = {
        {&impl_s::vlan_insert, "flags { vlan_insert: true } pkt_filters {}"},
        {&impl_s::vlan_strip, "flags { vlan_strip: true } pkt_filters {}"},
        {&impl_s::rdma, "flags { rdma: true } pkt_filters {}"},
        {&impl_s::rdma_sniff, "flags { rdma_sniff: true } pkt_filters {}"},
        {&impl_s::trunk, "flags { trunk: true } pkt_filters {}"},
        {&impl_s::broadcast, "flags {} pkt_filters { broadcast: true }"},
        {&impl_s::all_multicast, "flags {} pkt_filters { all_multicast: true }"},
        {&impl_s::promiscuous, "flags {} pkt_filters { promiscuous: true }"}};
    for (const auto &[flag, text] : flags) {
        impl_s impl = {};
        impl.*flag = true;
        EXPECT_THAT(get(sim::make_lif_impl(impl)).status(), IsMessage(text + states_));
    }
}

TEST_F(lif_classic_service, FirstSixtyFourOfEachFilterAreReported) {
    sim::lif_impl_s impl = {};
    for (uint32_t count = 1; count <= 70; count++) {
        impl.macs.push_back(count);
        impl.vlans.push_back(1000 + count);
        impl.mac_vlans.push_back({2000 + count, 3000 + count});
        if (count < 63) {
            continue;
        }
        const auto status = get(sim::make_lif_impl(impl)).status();
        const uint32_t last = std::min(count, 64U);
        ASSERT_THAT(status.mac_filter().mac_address(), SizeIs(last));
        ASSERT_THAT(status.vlan_filter().vlan_id(), SizeIs(last));
        ASSERT_THAT(status.mac_vlan_filter().mac_vlan(), SizeIs(last));
        EXPECT_EQ(status.mac_filter().mac_address().at(static_cast<int>(last) - 1), last);
        EXPECT_EQ(status.vlan_filter().vlan_id().at(static_cast<int>(last) - 1), 1000 + last);
        EXPECT_EQ(status.mac_vlan_filter().mac_vlan().rbegin()->mac_address(), 2000 + last);
        EXPECT_EQ(status.mac_vlan_filter().mac_vlan().rbegin()->vlan_id(), 3000 + last);
    }
}

TEST_F(lif_classic_service, WithoutAnObjectOfItsPipeline_OnlyTheSpecIsReported) {
    class other_lif_impl : public api::impl::lif_impl {};
    EXPECT_THAT(get(nullptr), IsMessage(spec_));
    EXPECT_THAT(get(std::make_unique<other_lif_impl>()), IsMessage(spec_));
}

TEST_F(lif_classic_service, ReadsKeepWhatCameBeforeAFailure) {
    add_fault("nyx_lif_read_all:nth=4,code=45");
    const auto known = test::id_of(sim::lif_key(2));
    for (const auto &[ids, status, count] :
         {std::tuple{std::vector{known, k_id, known}, 5, 1}, {std::vector<std::string>(), 1, 3}}) {
        const auto rsp = get(ids);
        EXPECT_EQ(rsp.api_status(), status);
        EXPECT_EQ(rsp.response_size(), count);
        EXPECT_EQ(rsp.response(count - 1).spec().name(), count == 1 ? "host1-lif-large" : "mgmt-lif");
    }
    nyx::LifClassicGetResponse null_rsp;
    EXPECT_TRUE(LifClassicSvcImpl().LifClassicGet(nullptr, nullptr, &null_rsp).ok());
    EXPECT_EQ(null_rsp.api_status(), types::API_STATUS_INVALID_ARG);
}

}  // namespace
