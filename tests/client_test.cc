// The client's own conversions: bytes and their texts, messages and their JSON, names and their descriptors.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/core/bytes_text.h"
#include "client/core/json.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "nyx/interface.pb.h"
#include "nyx/lif.pb.h"
#include "nyx/tables/flow.pb.h"
#include "nyx/tables/tunnel.pb.h"

namespace {

using namespace std::string_literals;

const std::string k_sixteen = "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x01"s;

struct bytes_case_s {
    std::string text;
    types::BytesText form;
    std::string bytes;
};

TEST(BytesText, AcceptedTexts_GiveTheirBytes) {
    const std::vector<bytes_case_s> cases = {
        {"", types::BYTES_TEXT_HEX, ""},
        {"abcd", types::BYTES_TEXT_HEX, "\xab\xcd"},  // also base64, of other bytes
        {"0x00A1ff", types::BYTES_TEXT_HEX, "\0\xa1\xff"s},
        {"00:1a:2b:3c:4d:5e", types::BYTES_TEXT_MAC, "\0\x1a\x2b\x3c\x4d\x5e"s},
        {"001a.2b3c.4d5e", types::BYTES_TEXT_MAC, "\0\x1a\x2b\x3c\x4d\x5e"s},
        {"00-1A-2B-3C-4D-5E", types::BYTES_TEXT_MAC, "\0\x1a\x2b\x3c\x4d\x5e"s},
        {"2001:db8::1", types::BYTES_TEXT_IPV6, k_sixteen},
        {"20010db8000000000000000000000001", types::BYTES_TEXT_IPV6, k_sixteen},
        {"20:01:0d:b8:00:00:00:00:00:00:00:00:00:00:00:01", types::BYTES_TEXT_IPV6, k_sixteen},
        {"::", types::BYTES_TEXT_IPV6, std::string(16, '\0')},
        {"10.20.30.40", types::BYTES_TEXT_IPV6, "\x0a\x14\x1e\x28"},
        {"20010db8-0000-0000-0000-000000000001", types::BYTES_TEXT_UUID, k_sixteen},
        {"base64:q80=", types::BYTES_TEXT_HEX, "\xab\xcd"},
    };
    for (const bytes_case_s &c : cases) {
        std::string bytes;
        std::string error;
        EXPECT_TRUE(nyxctl::bytes_from_text(c.text, c.form, &bytes, &error)) << c.text << ": " << error;
        EXPECT_EQ(bytes, c.bytes) << c.text;
    }
}

TEST(BytesText, DoubtfulTexts_AreRefusedWithTheirValueAndWhatIsAllowed) {
    const std::vector<bytes_case_s> cases = {
        {"abc", types::BYTES_TEXT_HEX, "pairs of hex digits"},
        {"AAEC/w==", types::BYTES_TEXT_HEX, "base64:"},
        {"base64:#", types::BYTES_TEXT_HEX, "invalid base64"},
        {"00:1a::2b", types::BYTES_TEXT_MAC, "00:1a:2b:3c:4d:5e"},
        {"00:1a:2b3c", types::BYTES_TEXT_MAC, "differ in size"},
        {"10.20.30.40", types::BYTES_TEXT_HEX, "IPv4"},  // not 0x10, 0x20, ...
        {"2001:0db8:0001:0002", types::BYTES_TEXT_IPV6, "invalid IPv6 address"},
        {"2001:db8::1", types::BYTES_TEXT_UUID, "00112233-4455-6677-8899-aabbccddeeff"},
        {"::1\0"s, types::BYTES_TEXT_IPV6, "NUL"},
        {"0x", types::BYTES_TEXT_HEX, "no digits"},
    };
    for (const bytes_case_s &c : cases) {
        std::string bytes;
        std::string error;
        EXPECT_FALSE(nyxctl::bytes_from_text(c.text, c.form, &bytes, &error)) << c.text;
        EXPECT_NE(error.find('"' + c.text + '"'), error.npos) << error;
        EXPECT_NE(error.find(c.bytes), error.npos) << error;
    }
}

TEST(Json, AddressesInIntegers_AreWrittenAndShownAsTexts) {
    nyx::LoopbackIfSpec loopback;
    nyx::FilterMac filter;
    std::string json;
    ASSERT_TRUE(nyxctl::json_to_message(R"({"prefix": {"addr": {"v4_addr": "10.0.0.1"}}})", &loopback).ok());
    EXPECT_EQ(loopback.prefix().addr().v4_addr(), 0x0a000001U);
    ASSERT_TRUE(nyxctl::message_to_json(loopback, &json).ok());
    EXPECT_NE(json.find(R"("v4_addr": "10.0.0.1")"), json.npos) << json;

    const char *macs =
        R"({"mac_address": ["00:1a:2b:3c:4d:5e", "001a.2b3c.4d5f", "7", 8, "18446744073709551615"]})";
    ASSERT_TRUE(nyxctl::json_to_message(macs, &filter).ok());
    EXPECT_EQ(std::vector<uint64_t>(filter.mac_address().begin(), filter.mac_address().end()),
              (std::vector<uint64_t>{0x1a2b3c4d5e, 0x1a2b3c4d5f, 7, 8, UINT64_MAX}));
    ASSERT_TRUE(nyxctl::message_to_json(filter, &json).ok());
    EXPECT_NE(json.find("\"00:00:00:00:00:08\",\n    \"18446744073709551615\""), json.npos) << json;

    for (const char *wrong : {"10.0.0", "::1", "10.0.0.1/24"}) {
        const auto outcome = nyxctl::json_to_message(
            std::string(R"({"prefix": {"addr": {"v4_addr": ")") + wrong + "\"}}}", &loopback);
        EXPECT_EQ(outcome.exit_code, nyxctl::NYXCTL_EXIT_USAGE) << wrong;
        EXPECT_NE(outcome.text.find("prefix.addr.v4_addr: \"" + std::string(wrong)), std::string::npos)
            << outcome.text;
    }
    EXPECT_FALSE(nyxctl::json_to_message(R"({"mac_address": ["00:1a:2b:3c:4d"]})", &filter).ok());
}

TEST(Json, Enumerators_AreTakenAsPeopleSayThemAndMistypedOnesAnsweredWithTheNearest) {
    nyx::InterfaceSpec spec;
    ASSERT_TRUE(nyxctl::json_to_message(R"({"admin_status": "up"})", &spec).ok());
    EXPECT_EQ(spec.admin_status(), types::STATE_UP);
    const auto outcome = nyxctl::json_to_message(R"({"admin_status": "STATE_UPP"})", &spec);
    EXPECT_EQ(outcome.exit_code, nyxctl::NYXCTL_EXIT_USAGE);
    EXPECT_NE(
        outcome.text.find("admin_status: \"STATE_UPP\" is not accepted; give one of none, up, down; nearest: "
                          "STATE_UP"),
        std::string::npos)
        << outcome.text;
}

TEST(BytesText, ShownTexts_UseTheNotationOfTheFormAndReadBack) {
    const std::vector<bytes_case_s> cases = {
        {"00:1a:2b:3c:4d:5e", types::BYTES_TEXT_MAC, "\0\x1a\x2b\x3c\x4d\x5e"s},
        {"001a2b", types::BYTES_TEXT_MAC, "\0\x1a\x2b"s},
        {"2001:db8::1", types::BYTES_TEXT_IPV6, k_sixteen},
        {"::ffff:10.0.0.1", types::BYTES_TEXT_IPV6, std::string(10, '\0') + "\xff\xff\x0a\0\0\x01"s},
        {"0a000001", types::BYTES_TEXT_IPV6, "\x0a\0\0\x01"s},
        {"20010db8-0000-0000-0000-000000000001", types::BYTES_TEXT_UUID, k_sixteen},
        {"20010db8000000000000000000000001", types::BYTES_TEXT_HEX, k_sixteen},
        {"", types::BYTES_TEXT_MAC, ""},
    };
    for (const bytes_case_s &c : cases) {
        EXPECT_EQ(nyxctl::bytes_to_text(c.bytes, c.form), c.text);
        std::string bytes;
        std::string error;
        EXPECT_TRUE(nyxctl::bytes_from_text(c.text, c.form, &bytes, &error)) << error;
        EXPECT_EQ(bytes, c.bytes) << c.text;
    }
}

TEST(Json, BytesAndLargestInteger_SurviveBothWays) {
    nyx::flowRequest request;
    ASSERT_TRUE(nyxctl::json_to_message(R"({"request": [{"key": {"k1": "2001:db8::1", "k13": "abcd"},
                                                         "clientTag": 18446744073709551615}]})",
                                        &request)
                    .ok());
    ASSERT_EQ(request.request_size(), 1);
    EXPECT_EQ(request.request(0).key().k1(), k_sixteen);
    EXPECT_EQ(request.request(0).key().k13(), "\xab\xcd");
    EXPECT_EQ(request.request(0).client_tag(), 18446744073709551615u);

    std::string json;
    ASSERT_TRUE(nyxctl::message_to_json(request, &json).ok());
    EXPECT_NE(json.find(R"("k1": "2001:db8::1")"), json.npos) << json;
    nyx::flowRequest again;
    ASSERT_TRUE(nyxctl::json_to_message(json, &again).ok());
    EXPECT_EQ(again.SerializeAsString(), request.SerializeAsString());
}

TEST(Json, Values_AreTakenAsPeopleWriteThemToo) {
    nyx::InterfaceSpec spec;
    const auto read = nyxctl::json_to_message(
        R"({"admin_status": "up", "id": null, "tx_mirror_session": ["0a"], "control_if_spec":
            {"prefix": "10.0.0.1/24", "mac_address": 5.0}})",
        &spec);
    ASSERT_TRUE(read.ok()) << read.text;
    EXPECT_EQ(nyxctl::message_json(spec),
              R"({"id":"","admin_status":"STATE_UP","control_if_spec":{"prefix":{"addr":{"af":"IP_AF_INET",)"
              R"("v4_addr":"10.0.0.1"},"len":24},"mac_address":"00:00:00:00:00:05"},)"
              R"("tx_mirror_session":["0a"],"rx_mirror_session":[]})");
    const auto both = nyxctl::json_to_message(R"({"uplink_spec": {}, "loopback_if_spec": {}})", &spec);
    EXPECT_NE(both.text.find("loopback_if_spec: uplink_spec is set already"), both.text.npos) << both.text;
}

TEST(Json, Text_IsEscapedAndIndented) {
    EXPECT_EQ(nyxctl::json_text("a\"\\\n\xff\xc3\xa9"), "\"a\\\"\\\\\\u000a\xef\xbf\xbd\xc3\xa9\"");
    EXPECT_EQ(nyxctl::indented(R"({"a":[1,{}],"b\":{[":[],"c":{"d":-1}})"), R"({
  "a": [
    1,
    {}
  ],
  "b\":{[": [],
  "c": {
    "d": -1
  }
})");
}

TEST(Json, ZeroStatus_IsShown) {
    std::string json;
    ASSERT_TRUE(nyxctl::message_to_json(nyx::flowGetResponse(), &json).ok());
    EXPECT_NE(json.find(R"("api_status": "API_STATUS_OK")"), json.npos) << json;
}

TEST(Json, WrongInput_IsRefusedAsUsageWithThePathOfTheField) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"key": [{}, {"k1": "abc"}]})", "key[1].k1: \"abc\""},
        {R"({"key": [{"k1": 7}]})", "key[0].k1: found number, but give a JSON string"},
        {R"({"keys": []})", "keys: no such field in nyx.flowGetRequest; nearest: key"},
        {R"({"key": {"k1": "00"}})", "key: found object"},
        {R"({"key": [{}], "key": []})", "key: given twice"},
        {R"({"key": [null, {"k2": 1}]})", "key[0]: found null"},
        {R"({"key": [{"k2": 4294967296}]})", "k2"},
        {R"({"key": [)", "parse error at line 1"},
        {"[]", "found array"},
        {"null", "found null"},
        {R"({"key": [[]]})", "key[0]: found array"},
        {R"({"key": [{"k2": {}}]})", "key[0].k2: found object"},
        {R"({"key": [{"k2": [1]}]})", "key[0].k2: found array"},
        {R"({"key": [{"k2": true}]})", "key[0].k2: \"true\""},
        {R"({"key": [{"k2": 1.5}]})", "key[0].k2: \"1.5\""},
        {R"({"key": [7]})", "key[0]: found number"},
        {R"({"key": []} x)", "parse error at line 1"},
        {std::string(1000000, '['), "nested deeper than 100 levels"},
    };
    for (const auto &[json, text] : cases) {
        nyx::flowGetRequest request;
        const nyxctl::outcome_s outcome = nyxctl::json_to_message(json, &request);
        EXPECT_EQ(outcome.exit_code, nyxctl::NYXCTL_EXIT_USAGE) << json;
        EXPECT_NE(outcome.text.find(text), outcome.text.npos) << outcome.text;
    }
    nyx::checksumRequest twice;
    const auto outcome =
        nyxctl::json_to_message(R"({"request": [{"key_mask_valid": 1, "keyMaskValid": 0}]})", &twice);
    EXPECT_NE(outcome.text.find("given twice"), outcome.text.npos) << outcome.text;
}

TEST(Symbols, Method_IsFoundByWholePartsOfItsNameAlone) {
    const google::protobuf::MethodDescriptor *method = nullptr;
    for (const char *name :
         {"flowCreate", "NyxTblSvc/flowCreate", "nyx.NyxTblSvc.flowCreate", "/nyx.NyxTblSvc/flowCreate"}) {
        ASSERT_TRUE(nyxctl::find_method(name, &method).ok()) << name;
        EXPECT_EQ(nyxctl::method_path(method), "nyx.NyxTblSvc/flowCreate");
    }
    for (const char *name : {"owCreate", "flowCreat", "FlowCreate", "nyx.flowCreate", ""}) {
        EXPECT_EQ(nyxctl::find_method(name, &method).exit_code, nyxctl::NYXCTL_EXIT_USAGE) << name;
    }
    const std::string text = nyxctl::find_method("flowcreat", &method).text;
    EXPECT_NE(text.find("nearest: nyx.NyxTblSvc.flowCreate"), text.npos) << text;
}

TEST(Symbols, EveryTableMethod_IsFoundByItsOwnName) {
    const google::protobuf::ServiceDescriptor *service = nullptr;
    ASSERT_TRUE(nyxctl::find_service("NyxTblSvc", &service).ok());
    ASSERT_EQ(service->method_count(), 148);
    for (int i = 0; i < service->method_count(); ++i) {
        const google::protobuf::MethodDescriptor *method = nullptr;
        EXPECT_TRUE(nyxctl::find_method(service->method(i)->name(), &method).ok());
        EXPECT_EQ(method, service->method(i));
    }
}

TEST(StatusFields, FirstStatusThatIsNotOk_IsFound) {
    nyx::flowResponse response;
    EXPECT_FALSE(nyxctl::failed_api_status(response));
    response.set_api_status(types::API_STATUS_ERROR);
    EXPECT_EQ(nyxctl::failed_api_status(response), "API_STATUS_ERROR");
    response.set_api_status(static_cast<types::ApiStatus>(17));
    EXPECT_EQ(nyxctl::failed_api_status(response), "api_status 17");
}

}  // namespace
