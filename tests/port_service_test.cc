// Reading ports through real gRPC calls, and the texts of transceivers.

#include <algorithm>
#include <tuple>
#include <utility>

#include "agent_api/xcvr.h"
#include "svc/port_record.h"
#include "tests/port_fixture.h"

namespace {

using nyx::PortGetResponse;
using test::IsMessage;
using test::k_status;
using test::k_xcvr_id;
using test::port_record;
using test::port_service;
using testing::AnyOf;
using testing::ElementsAre;
using testing::StartsWith;

TEST_F(port_service, PortsAreReadByTheirIds_OtherInterfacesAreLeftOut) {
    EXPECT_THAT(ids(get({port_2_})), ElementsAre(port_2_));
    EXPECT_THAT(ids(get({port_3_, uplink_1_, port_1_, port_3_})), ElementsAre(port_3_, port_1_, port_3_));
    EXPECT_THAT(get({uplink_1_}), IsMessage(""));
    EXPECT_THAT(ids(get({})), ElementsAre(port_1_, port_2_, port_3_));
    for (const uint32_t type : {0U, 2U, 0x101U, 0x80000001U}) {
        sim::put_port(port_record("of another type").put(17, type).info());
        EXPECT_THAT(get({"of another type"}), IsMessage("")) << type;
        EXPECT_EQ(get({}).response_size(), 3) << type;
    }
}

TEST_F(port_service, FailureEndsTheReading_WhatWasReadBeforeStays) {
    const auto missing = get({port_2_, "missing", port_1_});
    EXPECT_THAT(ids(missing), ElementsAre(port_2_));
    EXPECT_EQ(missing.api_status(), types::API_STATUS_LOOKUP_FAILURE);
    for (const auto &[code, status] :
         {std::pair{"1", 4}, {"10", 7}, {"39", 9}, {"42", 10}, {"44", 1}, {"300", 1}}) {
        SCOPED_TRACE(code);
        sim::clear_faults();
        add_fault(std::string("api::port_get:nth=2,code=") + code);
        add_fault(std::string("api::port_get_all:nth=3,code=") + code);
        const auto some = get({port_3_, port_1_, port_2_}), all = get({});
        EXPECT_THAT(ids(some), ElementsAre(port_3_));
        EXPECT_THAT(ids(all), ElementsAre(port_1_, port_2_));
        EXPECT_EQ(some.api_status(), status);
        EXPECT_EQ(all.api_status(), status);
    }
    PortGetResponse rsp;
    EXPECT_EQ(nyx_svc_port_get(nullptr, &rsp), sdk::SDK_RET_INVALID_ARG);
    EXPECT_THAT(rsp, IsMessage("api_status: API_STATUS_INVALID_ARG"));
}

TEST_F(port_service, ShortIdsAreFilledWithZeros_LongOnesNameNoPort) {
    EXPECT_THAT(ids(get({})), testing::Not(testing::Contains(std::string(16, 0))));
    EXPECT_THAT(get({""}), IsMessage("api_status: API_STATUS_LOOKUP_FAILURE"));
    EXPECT_EQ(read(port_record("abc")).spec().id(), std::string("abc") + std::string(13, 0));
    EXPECT_EQ(ids(get({"abc"})), ids(get({std::string("abc\0", 4)})));
    EXPECT_EQ(read(port_record("sixteen bytes id")).spec().id(), "sixteen bytes id");
    for (const size_t size : {17U, 1000U}) {
        const auto rsp = get({("sixteen bytes id" + std::string(size, 0)).substr(0, size)});
        EXPECT_EQ(rsp.response_size(), 0) << size;
        EXPECT_THAT(rsp.api_status(), AnyOf(types::API_STATUS_LOOKUP_FAILURE, types::API_STATUS_INVALID_ARG));
    }
}

TEST_F(port_service, EveryFieldOfTheRecordHasItsPlace) {
    auto rec = test::record_of_every_setting("port of all bits");
    rec.put<uint8_t>(41, 0x80).put(
        21,
        2U);  // any flag but zero counts as set; the administrative state is not reported
    rec.put(k_status, 0x11aa2233U).put(k_status + 4, 2U).put(k_status + 8, 2U).put(k_status + 12, 1U);
    rec.put<uint8_t>(k_status + 16, 2).put(k_status + 17, 0xfedcba98U).put(k_status + 21, 1U);
    for (uint32_t i = 0; i < 7; i++) {
        rec.put(k_status + 25 + 4 * i, 3 + (i << 24));
    }
    std::string memory(256, 'm');
    for (size_t i = 0; i < memory.size(); i++) {
        memory[i] = static_cast<char>(i);
    }
    rec.put_text(k_status + k_xcvr_id, memory);
    rec.put(k_status + 309, 24U).put(k_status + 313, 31U).put(k_status + 317, UINT32_MAX);
    rec.put(1424, 0xabcdef01U).put_text(1428, "up in time");
    rec.put<uint64_t>(1458, 0x1122334455667788).put<uint64_t>(1466, 0xfeffffffffffffff);
    const auto port = read(rec);
    EXPECT_THAT(port.spec(), IsMessage(test::every_setting("port of all bits").DebugString()));
    auto status = port.status();
    EXPECT_EQ(status.xcvr_status().id_data(), memory);
    EXPECT_EQ(status.xcvr_status().vendor_oui(), "25:26:27");
    status.mutable_xcvr_status()->clear_id_data();
    EXPECT_THAT(status, IsMessage(R"(
        if_index: 0x11aa2233 link_sm_state: PORT_LINK_SM_STATE_24 status_word_1: 31 status_word_2: 0xffffffff
        link_status { link_state: PORT_LINK_STATE_2 link_setting_b: PORT_SETTING_B_3 link_flag: true
                      link_number: 0xfedcba98 link_setting_c: PORT_SETTING_1 }
        xcvr_status { port: 3 xcvr_value_1: 0x01000003 xcvr_value_2: 0x02000003 xcvr_value_3: 0x03000003
                      xcvr_value_4: 0x04000003 xcvr_value_5: 0x05000003 xcvr_value_6: 0x06000003
                      vendor_name: "____________ !\"#" vendor_oui: "25:26:27" vendor_serial: "DEFGHIJKLMNOPQRS"
                      vendor_part_number: "()*+,-./01234567" vendor_revision: "89:;" })"));
    auto stats = port.stats();
    stats.clear_mac_stats();
    EXPECT_THAT(stats, IsMessage("stats_word: 0xabcdef01 link_timing { text: 'up in time' duration { "
                                 "narrow_part: 0x55667788 wide_part: 0xfeffffffffffffff } }"));
}

TEST_F(port_service, ValuesWithoutANameAreReadAsNone) {
    struct {
        uint32_t raw;
        int three_valued, setting_b, sm_state;
    } const cases[] = {{0, 0, 0, 0},          {1, 1, 3, 1},          {2, 2, 4, 2},
                       {3, 0, 5, 3},          {7, 0, 9, 7},          {8, 0, 0, 8},
                       {24, 0, 0, 24},        {25, 0, 0, 0},         {0x101, 0, 0, 0},
                       {0x80000001, 0, 0, 0}, {UINT32_MAX, 0, 0, 0}, {UINT32_MAX - 1, 0, 0, 0}};
    for (const auto &[raw, three_valued, setting_b, sm_state] : cases) {
        SCOPED_TRACE(raw);
        port_record rec("translated", raw);
        for (const size_t offset :
             {25UL, 33UL, 37UL, 50UL, 56UL, k_status + 8, k_status + 12, k_status + 21, k_status + 309}) {
            rec.put(offset, raw);
        }
        const auto port = read(rec);
        const auto &spec = port.spec();
        const auto &link = port.status().link_status();
        const int found[] = {spec.setting_a(), spec.port_type(),  spec.setting_c(),     spec.setting_d(),
                             spec.setting_e(), link.link_state(), link.link_setting_c()};
        EXPECT_THAT(found, testing::Each(three_valued));
        EXPECT_EQ(spec.setting_b(), setting_b);
        EXPECT_EQ(link.link_setting_b(), setting_b);
        EXPECT_EQ(port.status().link_sm_state(), sm_state);
    }
}

TEST_F(port_service, TypeOfThePortDecidesOnCountersAndTransceiver) {
    for (const auto &[type, mac, mgmt] : {std::tuple{0U, 0, 0}, {1U, 89, 0}, {2U, 0, 32}, {3U, 0, 0}}) {
        SCOPED_TRACE(type);
        port_record rec("counting", type);
        rec.put(1424, 7U).put_text(k_status + k_xcvr_id, "module");
        for (uint64_t i = 0; i < 89; i++) {
            rec.put(712 + 8 * i, (i << 56) + i + 1);
        }
        const auto port = read(rec);
        ASSERT_EQ(port.stats().mac_stats_size(), mac);
        ASSERT_EQ(port.stats().mgmt_mac_stats_size(), mgmt);
        for (uint32_t i = 0; i < 89; i++) {
            const auto expected = "type: " + std::to_string(i) +
                                  " count: " + std::to_string((static_cast<uint64_t>(i) << 56) + i + 1);
            if (type == 1) {
                EXPECT_THAT(port.stats().mac_stats(static_cast<int>(i)), IsMessage(expected));
            } else if (type == 2 && i < 32) {
                EXPECT_THAT(port.stats().mgmt_mac_stats(static_cast<int>(i)), IsMessage(expected));
            }
        }
        EXPECT_EQ(port.status().has_xcvr_status(), type != 2);
        EXPECT_TRUE(port.status().has_link_status());
        EXPECT_EQ(port.stats().stats_word(), 7U);
    }
}

TEST_F(port_service, TimingTextEndsWithItsField_AndIsValidInAMessage) {
    port_record rec("timed");
    rec.put_text(1428, std::string(30, 'x')).put<uint64_t>(1458, 0x7878787878787878);
    EXPECT_EQ(read(rec).stats().link_timing().text(), std::string(30, 'x'));
    rec.put_text(1428, std::string("up\0", 3));
    EXPECT_EQ(read(rec).stats().link_timing().text(), "up");
    for (const std::string text : {"up \xff\xfe", "up \xc3", "up \xed\xa0\x80", "up \xf8\x88\x80\x80\x80"}) {
        rec.put_text(1428, text + std::string(30 - text.size(), 0));
        EXPECT_THAT(read(rec).stats().link_timing().text(), StartsWith("up "));
    }
    rec.put_text(1428, std::string(29, 'x') + "\xc3");  // the field ends within a character
    EXPECT_THAT(read(rec).stats().link_timing().text(), StartsWith(std::string(29, 'x')));
}

// The transceiver of a data port, from the identification memory and the table.
nyx::PortXcvrStatus xcvr_status(uint32_t number, const std::string &memory) {
    const auto info =
        port_record("", 1).put(k_status + 25, number).put_text(k_status + k_xcvr_id, memory).info();
    const nyx_if_status_s status = info.status;
    nyx::PortStatus proto;
    nyx_port_api_status_to_proto(&proto, &status, sdk::types::PORT_TYPE_DATA);
    return proto.xcvr_status();
}

std::string memory_with(std::initializer_list<std::pair<size_t, std::string>> texts) {
    std::string memory(256, 'N');
    for (const auto &[offset, text] : texts) {
        memory.replace(offset, text.size(), text);
    }
    return memory;
}

TEST(port_xcvr, TextsLoseBlanksAtTheirEnd_AndShowOtherBytesAsUnderscores) {
    const std::pair<std::string, std::string> cases[] = {
        {std::string(16, ' '), ""},
        {"ACME            ", "ACME"},
        {"  A B           ", "  A B"},
        {"0123456789abcdef", "0123456789abcdef"},
        {"               !", "               !"},
        {"~\x1f\x7f\x80\xff\xc3\xa9         ", "~______"},
        {"A              \n", "A              _"},
        {std::string("A") + std::string(15, 0), "A" + std::string(15, '_')},
        {std::string("A\0B             ", 16), "A_B"}};
    for (const auto &[text, shown] : cases) {
        const auto xcvr = xcvr_status(0, memory_with({{20, text}, {40, text}, {68, text}}));
        EXPECT_EQ(xcvr.vendor_name(), shown);
        EXPECT_EQ(xcvr.vendor_part_number(), shown);
        EXPECT_EQ(xcvr.vendor_serial(), shown);
    }
    EXPECT_EQ(xcvr_status(0, memory_with({{37, {0, '\x0a', '\xff'}}})).vendor_oui(), "00:0a:ff");
}

TEST(port_xcvr, TypeInTheTableDecidesOnTheWidthOfTheRevision) {
    sdk::platform::xcvr_s descriptors[] = {{0}, {1}, {2}, {3}, {4}, {0x102}, {UINT32_MAX}};
    constexpr uint32_t k_places = 24;  // of the stand-in's table
    sdk::platform::xcvr_s *table[k_places];
    std::copy_n(sdk::platform::g_xcvr, k_places, table);
    std::fill_n(sdk::platform::g_xcvr, k_places, nullptr);
    for (size_t i = 0; i < std::size(descriptors); i++) {
        sdk::platform::g_xcvr[i] = &descriptors[i];
    }
    sdk::platform::g_xcvr[k_places - 1] = &descriptors[2];
    const auto revision = [](uint32_t number, const std::string &text) {
        return xcvr_status(number, memory_with({{56, text}})).vendor_revision();
    };
    for (const uint32_t number : {3U, 4U, k_places}) {
        EXPECT_EQ(revision(number, "1AbX"), "1A") << number;
        EXPECT_EQ(revision(number, "1 bX"), "1") << number;
        EXPECT_EQ(revision(number, "  bX"), "") << number;
    }
    for (const uint32_t number :
         {0U, 1U, 2U, 5U, 6U, 7U, 8U, k_places - 1, k_places + 1, 1000U, 0x80000000U, UINT32_MAX}) {
        EXPECT_EQ(revision(number, "1AbX"), "1AbX") << number;
        EXPECT_EQ(revision(number, "1 b "), "1 b") << number;
    }
    std::copy_n(table, k_places, sdk::platform::g_xcvr);
}

}  // namespace
