// Records of interfaces as messages, invalid ones included.

#include "svc/interface_info.h"

#include "sim/api/interfaces.h"
#include "sim/api/lldp.h"
#include "svc/interface.h"
#include "svc/interface_spec.h"
#include "tests/card_fixture.h"
#include "tests/record_bytes.h"

namespace {

using std::string_literals::operator""s;
using test::IsMessage;
using test::le;
using test::make_record;
using test::record_bytes;
using testing::SizeIs;

const std::string k_id = "ABCDEFGHIJKLMNOP";
const std::string k_bad = "\xef\xbf\xbd";
constexpr size_t k_status = 383;

std::string times(const std::string &text, int count) {
    std::string all;
    for (int i = 0; i < count; i++) {
        all += text;
    }
    return all;
}

class interface_info : public test::card_service<nyx::IfSvc, IfSvcImpl> {
 protected:
    nyx::Interface get(const nyx_if_info_s &info) {
        sim::put_interface(info);
        const auto rsp = read<nyx::InterfaceGetRequest, nyx::InterfaceGetResponse>(
            "InterfaceGet", {test::id_of(info.spec.key)});
        EXPECT_EQ(rsp.api_status(), types::API_STATUS_OK);
        EXPECT_EQ(rsp.response_size(), 1);
        return rsp.response_size() ? rsp.response(0) : nyx::Interface();
    }

    // The interface of this type, with these bytes in its record.
    nyx::Interface get(uint32_t type, record_bytes parts) {
        parts.insert(parts.begin(), {{0, k_id}, {17, le(type, 4)}});
        return get(make_record<nyx_if_info_s>(parts));
    }
};

const std::string k_v4 = "prefix { addr { af: IP_AF_INET v4_addr: 0xfffefdfc } len: 32 } ";
const std::string k_v6 = "prefix { addr { af: IP_AF_INET6 v6_addr: '\\001bcdefghijklmno\\000' } len: 128 } ";

TEST_F(interface_info, SpecificationsAreReadAsTheyWereGiven) {
    const std::string specs[] = {
        "uplink_spec { port_id: 'portportportport' }",
        "l3_if_spec { vpc_id: 'vpcvpcvpcvpcvpcv' port_id: 'portportportport' mac_address: 0xfedcba987654 "
        "encap { type: ENCAP_TYPE_QINQ value { val_qinq { tag_1: 0xfffe tag_2: 0xfdfc } } } " +
            k_v4 + k_v6 + "}",
        "loopback_if_spec { " + k_v6 + "bgp_community { part_1: 0xfffe part_2: 0xfdfc } }",
        "loopback_if_spec { bgp_community {} }",
        "control_if_spec { " + k_v4 + "mac_address: 0xfedcba987654 }",
        "host_if_spec { ref_id: 'refrefrefrefrefr' mac_address: 0xfedcba987654 host_flag_1: true "
        "host_flag_3: true "
        "flow_log_action: FLOW_LOG_ACTION_SPEC flow_log_spec { log_flag_1: true log_flag_3: true } "
        "learn_spec { learn_mode: LEARN_MODE_2 aging_timeout: 0xfffefdfc learn_source { source_1: true } } } "
        "tx_mirror_session: 'tx1tx1tx1tx1tx1t' tx_mirror_session: 'tx2tx2tx2tx2tx2t' "
        "rx_mirror_session: 'rx1rx1rx1rx1rx1r'",
        "host_if_spec { host_flag_2: true flow_log_action: FLOW_LOG_ACTION_SPEC flow_log_spec { log_flag_2: "
        "true } "
        "learn_spec { learn_mode: LEARN_MODE_1 aging_timeout: 1 learn_source { source_2: true source_3: true "
        "} } }",
        "host_if_spec { flow_log_action: FLOW_LOG_ACTION_1 } " +
            times("rx_mirror_session: 'rxrxrxrxrxrxrxrx' ", 8),
    };
    for (const auto &spec : specs) {
        for (const std::string state : {"NONE", "UP", "DOWN"}) {
            const auto text = "id: '" + k_id + "' admin_status: STATE_" + state + " " + spec;
            nyx::InterfaceSpec proto;
            ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &proto));
            auto info = nyx_if_info_s();
            EXPECT_EQ(nyx_if_proto_to_api_spec(&info.spec, proto), sdk::SDK_RET_OK);
            EXPECT_THAT(get(info).spec(), IsMessage(text));
        }
    }
}

TEST_F(interface_info, UnknownTypesHaveNoMoreThanAllHave) {
    for (const uint32_t type : {1U, 2U, 3U, 5U, 7U, 11U, 0x104U, UINT32_MAX}) {
        const record_bytes parts = {
            {21, le(1, 4)},       {25, std::string(358, '\xff')}, {k_status, std::string(329, '\xff')},
            {k_status, le(7, 4)}, {k_status + 4, le(2, 4)},       {k_status + 329, std::string(762, '\xff')}};
        EXPECT_THAT(get(type, parts), IsMessage("spec { id: '" + k_id +
                                                "' admin_status: STATE_DOWN } "
                                                "status { if_index: 7 oper_status: STATE_UP } stats {}"));
    }
}

TEST_F(interface_info, StatesAreSwapped) {
    for (const auto &[api, reported] :
         {std::pair{0U, 0}, {1U, 2}, {2U, 1}, {3U, 0}, {0x101U, 0}, {UINT32_MAX, 0}}) {
        const auto entry =
            get(9, {{21, le(api, 4)}, {k_status + 4, le(api, 4)}, {k_status, le(UINT32_MAX, 4)}});
        EXPECT_EQ(entry.spec().admin_status(), reported);
        EXPECT_EQ(entry.status().oper_status(), reported);
        EXPECT_EQ(entry.status().if_index(), UINT32_MAX);
    }
}

TEST_F(interface_info, PrefixesWithoutAKnownFamilyAreAbsent) {
    const std::string v4 = "\x01\x02\0\0\x0a"s + std::string(12, '\xee') + "\x18", none(17, '\0'),
                      other(17, '\x03');
    const std::string v4_text = "prefix { addr { af: IP_AF_INET v4_addr: 0x0a000002 } len: 24 } ";
    for (const auto &[first, second, text] :
         {std::tuple{v4, none, v4_text}, {other, v4, v4_text}, {none, other, ""s}}) {
        EXPECT_THAT(
            get(6, {{42, first}, {60, second}, {95, le(1, 4)}, {99, le(0xabcd1234, 4)}}).spec().l3_if_spec(),
            IsMessage(text + "vpc_id: '" + times("\\000", 16) + "' port_id: '" + times("\\000", 16) +
                      "' encap { type: ENCAP_TYPE_DOT1Q value { val_vlan: 0x1234 } }"));
    }
    EXPECT_THAT(get(8, {{25, v4}}).spec().loopback_if_spec(), IsMessage(v4_text));
    EXPECT_THAT(get(8, {{25, other}}).spec().loopback_if_spec(), IsMessage(""));
    EXPECT_THAT(get(9, {{25, other}}).spec().control_if_spec(), IsMessage(""));
}

TEST_F(interface_info, EncapHasTheMemberOfItsType) {
    const std::string members[] = {"val_vlan: 0xfdfc", "val_qinq { tag_1: 0xfdfc tag_2: 0xfffe }",
                                   "val_word_2: 0xfffefdfc", "val_word_3: 0xfffefdfc",
                                   "val_word_5: 0xfffefdfc"};
    for (uint32_t type = 1; type <= 5; type++) {
        EXPECT_THAT(get(6, {{95, le(type, 4)}, {99, le(0xfffefdfc, 4)}}).spec().l3_if_spec().encap(),
                    IsMessage("type: " + std::to_string(type) + " value { " + members[type - 1] + " }"));
    }
    for (const uint32_t type : {0U, 6U, 0x101U, UINT32_MAX}) {
        EXPECT_THAT(get(6, {{95, le(type, 4)}, {99, le(7, 4)}}).spec().l3_if_spec().encap(), IsMessage(""))
            << type;
    }
}

TEST_F(interface_info, CountsEndWithTheirArrays) {
    record_bytes communities, hosts = {{k_status + 145, "host name"}};
    for (size_t i = 0; i < 16; i++) {
        communities.push_back({44 + 4 * i, le(i + 1, 2) + le(i + 101, 2)});
    }
    for (size_t i = 0; i < 8; i++) {
        const std::string key(17, static_cast<char>('a' + i));
        hosts.insert(hosts.end(), {{110 + 17 * i, key}, {247 + 17 * i, key}, {k_status + 9 + 17 * i, key}});
    }
    for (const size_t count : {0, 1, 7, 8, 9, 16, 17, 255}) {
        auto loopback = communities, host = hosts;
        loopback.push_back({43, le(count, 1)});
        host.insert(host.end(), {{109, le(count, 1)}, {246, le(count, 1)}, {k_status + 8, le(count, 1)}});
        const auto community = get(8, loopback).spec().loopback_if_spec().bgp_community();
        EXPECT_THAT(community, SizeIs(std::min<size_t>(count, 16)));
        const auto entry = get(10, host);
        const auto &members = entry.status().host_if_status().member_id();
        for (const auto &keys :
             {entry.spec().tx_mirror_session(), entry.spec().rx_mirror_session(), members}) {
            ASSERT_THAT(keys, SizeIs(std::min<size_t>(count, 8)));
            EXPECT_TRUE(count == 0 || keys.rbegin()->compare(std::string(16, 'a' + keys.size() - 1)) == 0);
        }
        if (count) {
            EXPECT_EQ(community.rbegin()->part_1() + 100, community.rbegin()->part_2());
        }
        EXPECT_EQ(entry.status().host_if_status().name(), "host name");
    }
}

TEST_F(interface_info, HostHasNameAndMacInItsStatus) {
    const record_bytes host = {{71, "name"}, {k_status + 161, "\x02\x03\x04\x05\x06\x07"}};
    const std::pair<std::string, std::string> names[] = {{"h1", "h1"},
                                                         {"exactly 15 long", "exactly 15 long"},
                                                         {"this is 16 long.", "this is 16 long."},
                                                         {"\xc3\xa4\xff", "\xc3\xa4" + k_bad},
                                                         {"\0x"s, ""}};
    for (const auto &[bytes, name] : names) {
        auto parts = host;
        parts.push_back({k_status + 145, bytes});
        const auto entry = get(10, parts);
        EXPECT_THAT(entry.status(),
                    IsMessage("host_if_status { name: '" + name + "' mac_address: 0x020304050607 }"));
        EXPECT_THAT(entry.spec(), IsMessage("id: '" + k_id + "' host_if_spec {}"));
        EXPECT_THAT(entry.stats(), IsMessage(""));
    }
}

TEST_F(interface_info, HostNumbersOutOfRangeAreNone) {
    const record_bytes rest = {{55, "\x01\x01\x01"}, {62, le(77, 4)}, {66, "\x01\x01\x01"}};
    const std::string learned =
        "aging_timeout: 77 learn_source { source_1: true source_2: true source_3: true }";
    const std::tuple<uint32_t, std::string, std::string> cases[] = {
        {0, "", ""},
        {1, "flow_log_action: FLOW_LOG_ACTION_1", "learn_mode: LEARN_MODE_1 "},
        {2, "flow_log_action: FLOW_LOG_ACTION_SPEC", "learn_mode: LEARN_MODE_2 "},
        {3, "", " "},
        {0x102, "", " "},
        {UINT32_MAX, "", " "}};
    for (const auto &[number, action, mode] : cases) {
        auto parts = rest;
        parts.insert(parts.end(), {{50, le(number, 4)}, {58, le(number, 4)}});
        EXPECT_THAT(get(10, parts).spec().host_if_spec(),
                    IsMessage(action + (mode.empty() ? "" : " learn_spec { " + mode + learned + " }")));
    }
}

const std::string k_empty_lldp_side =
    "{ chassis_info { mgmt_address { af: IP_AF_INET v4_addr: 0 } chassis_id {} } port_status { port_id_info "
    "{} } } ";

TEST_F(interface_info, UplinkHasLldpStatusAndCounters) {
    const auto entry = get(4, {{k_status + 8, le(1, 2)}});
    EXPECT_THAT(entry.stats(),
                IsMessage("uplink_if_stats { lldp_stats { lldp_counter_1: 1200 lldp_counter_2: 1180 "
                          "lldp_counter_3: 3 lldp_counter_4: 1 } }"));
    EXPECT_THAT(
        entry.status(),
        IsMessage(
            "uplink_if_status { lldp_if_index: 1 lldp_status { "
            "local_if_status { if_name: 'uplink1' value_1: 1 kind: LLDP_KIND_1 text: '0 day, 00:05:12' "
            "chassis_info { system_name: 'nyx-card' system_description: 'card with two data ports' "
            "mgmt_address { af: IP_AF_INET v4_addr: 0x0a000002 } "
            "chassis_id { type: LLDP_ID_TYPE_4 value: '02:ac:3e:00:00:01' } "
            "capability { cap_type: LLDP_CAP_TYPE_3 enabled: true } } "
            "port_status { port_id_info { type: LLDP_ID_TYPE_5 value: 'uplink1' } "
            "port_description: 'data port 1' port_value: 120 } } "
            "neighbor_if_status { if_name: 'uplink1' value_1: 2 kind: LLDP_KIND_1 text: '0 day, 00:05:10' "
            "chassis_info { system_name: 'tor-r07-a' system_description: 'top-of-rack switch, rack 7' "
            "mgmt_address { af: IP_AF_INET v4_addr: 0x0a00070a } "
            "chassis_id { type: LLDP_ID_TYPE_4 value: '02:ac:3e:07:00:0a' } "
            "capability { cap_type: LLDP_CAP_TYPE_3 enabled: true } "
            "capability { cap_type: LLDP_CAP_TYPE_5 } } "
            "port_status { port_id_info { type: LLDP_ID_TYPE_5 value: 'Ethernet12' } "
            "port_description: 'to server 12' port_value: 120 } "
            "unknown_tlv { tlv_text_1: '02,AC,3E' tlv_number_1: 7 tlv_number_2: 4 tlv_text_2: '00,00,01,2C' "
            "} "
            "} } }"));
}

TEST_F(interface_info, FailingLldpLibraryLeavesTheRestOfTheUplink) {
    const std::string empty = "lldp_status { local_if_status " + k_empty_lldp_side + "neighbor_if_status " +
                              k_empty_lldp_side + "} ";
    for (const auto &index : {0x1234, 1}) {  // an unknown one, and one whose reading fails
        const auto entry = get(4, {{k_status + 8, le(static_cast<uint64_t>(index), 2)}});
        EXPECT_THAT(entry.status(), IsMessage("uplink_if_status { lldp_if_index: " + std::to_string(index) +
                                              " " + empty + "}"));
        EXPECT_THAT(entry.stats(), IsMessage("uplink_if_stats { lldp_stats {} }"));
        add_fault("core::interface_lldp_status_get:code=1");
        add_fault("core::interface_lldp_stats_get:code=1");
    }
}

template <size_t N>
void fill(char (&array)[N], char with) {
    memset(array, with, N);
}

TEST_F(interface_info, HostileLldpNeighbourStaysWithinArraysAndUtf8) {
    auto hostile = nyx_if_lldp_status_s();
    auto &side = hostile.neighbor;
    for (auto *text : {&side.if_name, &side.system_name, &side.chassis_id, &side.port_id}) {
        fill(*text, '\xff');
    }
    fill(side.system_description, '\xc3');
    fill(side.port_description, 'd');
    side.text = "long " + std::string(1000, '\xed') + "\xa0\x80";
    for (size_t i = 0; i < 8; i++) {
        side.capability[i] = {.type = static_cast<uint32_t>(i + 1), .enabled = 2};
        fill(side.unknown_tlv[i].text_1, '\x80');
        fill(side.unknown_tlv[i].text_2, 't');
        side.unknown_tlv[i].number_2 = UINT32_MAX - static_cast<uint32_t>(i);
    }
    for (const uint32_t count : {9U, 0x80000000U, UINT32_MAX}) {
        side.num_capability = side.num_unknown_tlv = count;
        sim::put_lldp_status(3, hostile);
        const auto status = get(4, {{k_status + 8, le(3, 2)}}).status().uplink_if_status().lldp_status();
        EXPECT_THAT(status.local_if_status(),
                    IsMessage(k_empty_lldp_side.substr(2, k_empty_lldp_side.size() - 4)));
        const auto &got = status.neighbor_if_status();
        ASSERT_EQ(got.unknown_tlv_size(), 8);
        ASSERT_EQ(got.chassis_info().capability_size(), 8);
        for (const auto &text :
             {got.if_name(), got.chassis_info().system_name(), got.chassis_info().chassis_id().value(),
              got.port_status().port_id_info().value(), got.unknown_tlv(7).tlv_text_1()}) {
            EXPECT_EQ(text, times(k_bad, 64));
        }
        EXPECT_EQ(got.chassis_info().system_description(), times(k_bad, 512));
        EXPECT_EQ(got.port_status().port_description(), std::string(512, 'd'));
        EXPECT_EQ(got.text(), "long " + times(k_bad, 1002));
        EXPECT_EQ(got.unknown_tlv(7).tlv_text_2(), std::string(64, 't'));
        EXPECT_EQ(got.unknown_tlv(7).tlv_number_2(), UINT32_MAX - 7);
        EXPECT_THAT(got.chassis_info().capability(6), IsMessage("cap_type: LLDP_CAP_TYPE_7 enabled: true"));
        EXPECT_THAT(got.chassis_info().capability(7), IsMessage("enabled: true"));
    }
}

TEST_F(interface_info, LldpNumbersOutOfRangeAreNone) {
    for (const uint32_t number : {0U, 1U, 6U, 7U, 8U, 0x101U, 0x80000001U, UINT32_MAX}) {
        auto status = nyx_if_lldp_status_s();
        status.local.kind = status.local.chassis_id_type = status.local.port_id_type = number;
        status.local.number = status.local.mgmt_ipv4 = status.local.port_number = number;
        sim::put_lldp_status(3, status);
        const auto got =
            get(4, {{k_status + 8, le(3, 2)}}).status().uplink_if_status().lldp_status().local_if_status();
        const auto id_type = static_cast<int>(number <= 7 ? number : 0);
        EXPECT_EQ(got.kind(), static_cast<int>(number <= 6 ? number : 0));
        EXPECT_EQ(got.chassis_info().chassis_id().type(), id_type);
        EXPECT_EQ(got.port_status().port_id_info().type(), id_type);
        EXPECT_EQ(got.value_1(), number);
        EXPECT_EQ(got.chassis_info().mgmt_address().v4_addr(), number);
        EXPECT_EQ(got.port_status().port_value(), number);
    }
}

}  // namespace
