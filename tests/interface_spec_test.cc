// Interface specifications as records, byte by byte.

#include "svc/interface_spec.h"

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/record_bytes.h"
#include "tests/trace_capture.h"

namespace {

using std::string_literals::operator""s;
using test::le;
using test::make_record;
using test::nonzero_bytes;
using test::record_bytes;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string k_id = "id: 'ABCDEFGHIJKLMNOP' ";
const std::string k_key_text = "41424344-4546-4748-494a-4b4c4d4e4f50";

// The record that a specification becomes; it must be accepted or refused with these messages.
nyx_if_spec_s convert(const nyx::InterfaceSpec &proto, sdk::sdk_ret_t ret = sdk::SDK_RET_OK,
                      const std::vector<std::string> &messages = {}) {
    test::trace_capture trace(1);
    auto spec = nyx_if_spec_s();
    EXPECT_EQ(nyx_if_proto_to_api_spec(&spec, proto), ret);
    EXPECT_EQ(trace.messages(), messages);
    return spec;
}

nyx::InterfaceSpec parse(const std::string &text) {
    nyx::InterfaceSpec proto;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &proto));
    return proto;
}

// The specification with the 16-byte id becomes this record, and nothing else is written.
void expect_record(const std::string &text, const record_bytes &parts) {
    SCOPED_TRACE(text);
    record_bytes expected = {{0, "ABCDEFGHIJKLMNOP"}};
    expected.insert(expected.end(), parts.begin(), parts.end());
    EXPECT_EQ(nonzero_bytes(convert(parse(k_id + text))),
              nonzero_bytes(make_record<nyx_if_spec_s>(expected)));
}

void expect_refused(const std::string &text, const std::vector<std::string> &messages) {
    SCOPED_TRACE(text);
    convert(parse(k_id + text), sdk::SDK_RET_INVALID_ARG, messages);
}

std::string repeated(const std::string &text, int times) {
    std::string all;
    for (int i = 0; i < times; i++) {
        all += text + " ";
    }
    return all;
}

// Unknown enumerators, which a peer may send.
constexpr int32_t k_unknown[] = {-1, 3, 6, 7, 256, 257, 258, INT32_MAX, INT32_MIN};

TEST(interface_spec, IdsAboveSixteenBytesAreTheZeroKey) {
    nyx::InterfaceSpec proto;
    proto.mutable_uplink_spec();
    for (const size_t size : {0, 5, 15, 16, 17, 1000}) {
        proto.set_id(std::string(size, '\x81'));
        proto.mutable_uplink_spec()->set_port_id(proto.id());
        const std::string key = size > 16 ? "" : proto.id();
        const auto expected = make_record<nyx_if_spec_s>({{0, key}, {17, "\x04"}, {25, key}});
        EXPECT_EQ(nonzero_bytes(convert(proto)), nonzero_bytes(expected)) << size;
    }
}

TEST(interface_spec, AdminStatesAreSwapped) {
    expect_record("uplink_spec {} admin_status: 1", {{17, le(4, 4)}, {21, le(2, 4)}});
    expect_record("uplink_spec {} admin_status: 2", {{17, le(4, 4)}, {21, le(1, 4)}});
    for (const auto state : k_unknown) {
        expect_record("uplink_spec {} admin_status: " + std::to_string(state), {{17, le(4, 4)}});
    }
}

TEST(interface_spec, InterfacesOfNoKindAreRefusedWithoutALine) {
    expect_refused("admin_status: STATE_UP", {});
    expect_refused(repeated("tx_mirror_session: 'm'", 9), {});
}

TEST(interface_spec, UplinkHasItsPort_MirrorSessionsAreDropped) {
    expect_record(
        "uplink_spec { port_id: 'port' }" + repeated("tx_mirror_session: 'm' rx_mirror_session: 'm'", 9),
        {{17, le(4, 4)}, {25, "port"}});
}

const std::string k_v4 = "prefix { addr { af: IP_AF_INET v4_addr: 0x0a0b0c0d } len: 24 }";
const std::string k_v6 = "prefix { addr { af: IP_AF_INET6 v6_addr: 'abcdefghijklmnop' } len: 64 }";
const std::string k_v4_bytes = "\x01\x0d\x0c\x0b\x0a\0\0\0\0\0\0\0\0\0\0\0\0\x18"s;
const std::string k_v6_bytes =
    "\x02"
    "abcdefghijklmnop\x40";

TEST(interface_spec, L3HasItsMembers) {
    expect_record(
        "l3_if_spec { vpc_id: 'vpc' port_id: 'portportportport' mac_address: 0x1234aabbccddeeff "
        "encap { type: ENCAP_TYPE_DOT1Q value { val_vlan: 0x12345 } }" +
            k_v6 + k_v4 + "}",
        {{17, le(6, 4)},
         {25, "vpc"},
         {42, k_v6_bytes},
         {60, k_v4_bytes},
         {78, "portportportport"},
         {95, le(1, 4)},
         {99, le(0x2345, 2)},
         {103, "\xaa\xbb\xcc\xdd\xee\xff"}});
    expect_record("l3_if_spec { vpc_id: 'vpcvpcvpcvpcvpcvp' port_id: 'portportportportp' }",
                  {{17, le(6, 4)}});
}

TEST(interface_spec, L3TakesTwoPrefixesOfTwoFamilies) {
    const std::string v4_len33 = "prefix { addr { af: IP_AF_INET v4_addr: 9 } len: 33 }",
                      none = "prefix { len: 7 }";
    const std::string v6_len129 = "prefix { addr { af: IP_AF_INET6 } len: 129 }";
    const std::tuple<std::string, std::string, std::string> accepted[] = {
        {"", "", ""},
        {k_v4, k_v4_bytes, ""},
        {k_v4 + k_v6, k_v4_bytes, k_v6_bytes},
        {v4_len33, std::string(17, '\0') + "\x21", ""},
        {v4_len33 + k_v4, std::string(17, '\0') + "\x21", k_v4_bytes},
        {k_v6 + v6_len129, k_v6_bytes, std::string(17, '\0') + "\x81"},
        {none + k_v6, std::string(17, '\0') + "\x07", k_v6_bytes},
    };
    for (const auto &[text, first, second] : accepted) {
        expect_record("l3_if_spec {" + text + "}", {{17, le(6, 4)}, {42, first}, {60, second}});
    }
    const std::string same =
        "L3 interface " + k_key_text + " has multiple IP prefixes of same address family ";
    const std::pair<std::string, std::string> refused[] = {
        {k_v4 + k_v4, same + "1"},
        {k_v6 + k_v6, same + "2"},
        {v4_len33 + v6_len129, same + "0"},
        {none + v4_len33, same + "0"},
        {k_v4 + k_v6 + k_v4, "L3 interface " + k_key_text + " more than 2 IP prefixes configured"},
    };
    for (const auto &[text, message] : refused) {
        expect_refused("l3_if_spec {" + text + "}", {message});
    }
}

TEST(interface_spec, EncapTakesTheValueOfItsType) {
    const std::pair<std::string, std::string> members[] = {
        {"val_vlan: 0x89abcdef", "\xef\xcd"},
        {"val_qinq { tag_1: 0x10002 tag_2: 0x30004 }", "\x02\0\x04"s},
        {"val_word_2: 0x89abcdef", "\xef\xcd\xab\x89"},
        {"val_word_3: 0x01020304", "\x04\x03\x02\x01"},
        {"val_word_5: 0xfffffffe", "\xfe\xff\xff\xff"}};
    for (uint32_t type = 0; type <= 5; type++) {
        const std::string encap = "l3_if_spec { encap { type: " + std::to_string(type);
        for (size_t member = 0; member < std::size(members); member++) {
            const auto &[text, value] = members[member];
            expect_record(encap + " value { " + text + " } } }",
                          {{17, le(6, 4)}, {95, le(type, 4)}, {99, member + 1 == type ? value : ""}});
        }
        expect_record(encap + " } }", {{17, le(6, 4)}, {95, le(type, 4)}});
    }
    for (const auto type : {-1, 6, 7, 257, INT32_MAX, INT32_MIN}) {
        expect_record("l3_if_spec { encap { type: " + std::to_string(type) + " value { val_vlan: 7 } } }",
                      {{17, le(6, 4)}});
    }
}

TEST(interface_spec, LoopbackTakesOneCommunity) {
    expect_record("loopback_if_spec {" + k_v6 + "}", {{17, le(8, 4)}, {25, k_v6_bytes}});
    expect_record("loopback_if_spec { bgp_community { part_1: 0x12345 part_2: 0xfffe } }",
                  {{17, le(8, 4)}, {43, "\x01"}, {44, le(0x2345, 2)}, {46, le(0xfffe, 2)}});
    expect_refused("loopback_if_spec { bgp_community {} bgp_community {} }",
                   {"Loopback interface " + k_key_text + " BGP communities exceeds max allowed 1"});
}

TEST(interface_spec, ControlHasPrefixAndMac) {
    expect_record("control_if_spec { mac_address: 0x0a0b0c0d0e0f " + k_v4 + "}",
                  {{17, le(9, 4)}, {25, k_v4_bytes}, {43, "\x0a\x0b\x0c\x0d\x0e\x0f"}});
    expect_record("control_if_spec { prefix { addr { af: 9 } len: 5 } }", {{17, le(9, 4)}, {42, "\x05"}});
}

TEST(interface_spec, MirrorSessionsAreForHostsOnly) {
    const std::string tx = "tx_mirror_session: 't' ", rx = "rx_mirror_session: 'r' ";
    for (const std::string kind : {"L3", "loopback", "control"}) {
        const std::string member = (kind == "L3" ? "l3" : kind) + "_if_spec {}";
        const std::string message = " Mirroring not supported on " + kind + " interface " + k_key_text;
        expect_refused(tx + member, {"Tx" + message});
        expect_refused(rx + member, {"Rx" + message});
        expect_refused(rx + tx + member, {"Tx" + message});
    }
}

TEST(interface_spec, HostTakesEightMirrorSessionsEachWay) {
    nyx::InterfaceSpec proto = parse(k_id + "host_if_spec {}");
    record_bytes expected = {{0, "ABCDEFGHIJKLMNOP"}, {17, le(10, 4)}};
    for (size_t i = 0; i < 8; i++) {
        const std::string tx(2 * i + 2, static_cast<char>('a' + i));  // 2 to 16 bytes
        const std::string rx(2 * i + 3, static_cast<char>('A' + i));  // 3 to 17 bytes
        proto.add_tx_mirror_session(tx);
        proto.add_rx_mirror_session(rx);
        expected.push_back({110 + 17 * i, tx});
        expected.push_back({247 + 17 * i, rx.size() > 16 ? "" : rx});
        expected.push_back({109, le(i + 1, 1)});
        expected.push_back({246, le(i + 1, 1)});
        EXPECT_EQ(nonzero_bytes(convert(proto)), nonzero_bytes(make_record<nyx_if_spec_s>(expected)));
    }
    auto more = proto;
    more.add_rx_mirror_session("9");
    const auto invalid = sdk::SDK_RET_INVALID_ARG;
    convert(more, invalid, {"No. of Rx mirror sessions on interface can't exceed 8"});
    more.add_tx_mirror_session("9");
    convert(more, invalid, {"No. of Tx mirror sessions on interface can't exceed 8"});
    more.clear_rx_mirror_session();
    more.clear_tx_mirror_session();
    for (int i = 0; i < 256; i++) {
        more.add_tx_mirror_session("m");
    }
    convert(more, invalid, {"No. of Tx mirror sessions on interface can't exceed 8"});
}

void expect_host(const std::string &members, record_bytes parts) {
    parts.insert(parts.begin(), {17, le(10, 4)});
    expect_record("host_if_spec {" + members + "}", parts);
}

TEST(interface_spec, HostFlagsAndKeysHaveTheirOwnPlaces) {
    expect_host("host_flag_1: true", {{25, "\x01"}});
    expect_host("host_flag_2: true", {{26, "\x01"}});
    expect_host("host_flag_3: true", {{70, "\x01"}});
    expect_host("ref_id: 'refrefrefrefrefr' mac_address: 0xffff000000000001",
                {{27, "refrefrefrefrefr"}, {49, "\x01"}});
    expect_host("ref_id: 'refrefrefrefrefre'", {});
}

TEST(interface_spec, HostNamesAreCutToFifteenBytes) {
    const std::string name = "abcdefghijklmnopqrst";
    for (const size_t size : {0, 1, 15, 16, 20}) {
        expect_host("name: '" + name.substr(0, size) + "'",
                    {{71, name.substr(0, std::min<size_t>(size, 15))}});
    }
}

TEST(interface_spec, FlowLogSpecNeedsItsAction) {
    expect_host("flow_log_action: 1", {{50, "\x01"}});
    expect_host("flow_log_action: 2", {{50, "\x02"}});
    expect_host("flow_log_action: 2 flow_log_spec {}", {{50, "\x02"}, {54, "\x01"}});
    for (size_t flag = 1; flag <= 3; flag++) {
        expect_host("flow_log_action: 2 flow_log_spec { log_flag_" + std::to_string(flag) + ": true }",
                    {{50, "\x02"}, {54, "\x01"}, {54 + flag, "\x01"}});
    }
    std::vector<int32_t> others(std::begin(k_unknown), std::end(k_unknown));
    others.insert(others.end(), {0, 1});
    for (const auto other : others) {
        const std::string action = std::to_string(other);
        expect_refused(
            "host_if_spec { flow_log_spec {} flow_log_action: " + action + " }",
            {"Flow log spec on interface " + k_key_text + " not expected with flow log action " + action});
    }
    for (const auto action : k_unknown) {
        expect_host("flow_log_action: " + std::to_string(action), {});
    }
}

TEST(interface_spec, LearnSpecHasDefaults_AndCountsInItsModesOnly) {
    expect_host("learn_spec { learn_mode: 1 }", {{58, "\x01"}, {62, le(300, 4)}, {66, "\x01\x01\x01"}});
    expect_host("learn_spec { learn_mode: 2 aging_timeout: 0xfedcba98 learn_source {} }",
                {{58, "\x02"}, {62, le(0xfedcba98, 4)}});
    for (size_t source = 1; source <= 3; source++) {
        expect_host("learn_spec { learn_mode: 1 aging_timeout: 1 learn_source { source_" +
                        std::to_string(source) + ": true } }",
                    {{58, "\x01"}, {62, "\x01"}, {65 + source, "\x01"}});
    }
    const std::string rest = " aging_timeout: 9 learn_source { source_1: true } } ";
    expect_host("learn_spec {" + rest, {});
    for (const auto mode : k_unknown) {
        expect_host("learn_spec { learn_mode: " + std::to_string(mode) + rest, {});
    }
}

}  // namespace
