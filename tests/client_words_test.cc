// Requests without JSON: fields from words, and templates to fill in.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/core/field_words.h"
#include "client/core/json.h"
#include "client/core/symbols.h"
#include "client/core/template.h"
#include "nyx/interface.pb.h"
#include "nyx/lif.pb.h"
#include "nyx/port.pb.h"

namespace {

struct words_case_s {
    std::vector<std::string> words;
    std::string expected;  // the message in text format, or what the refusal says
};

nyxctl::outcome_s set_all(google::protobuf::Message *message, const std::vector<std::string> &words) {
    nyxctl::outcome_s outcome;
    for (size_t i = 0; i < words.size() && outcome.ok(); i++) {
        outcome = nyxctl::set_field(message, words[i]);
    }
    return outcome;
}

template <class Message>
void expect_messages(const std::vector<words_case_s> &cases) {
    for (const words_case_s &c : cases) {
        Message message;
        const nyxctl::outcome_s outcome = set_all(&message, c.words);
        EXPECT_TRUE(outcome.ok()) << outcome.text;
        EXPECT_EQ(message.ShortDebugString(), c.expected);
    }
}

template <class Message>
void expect_refusals(const std::vector<words_case_s> &cases) {
    for (const words_case_s &c : cases) {
        Message message;
        const nyxctl::outcome_s outcome = set_all(&message, c.words);
        EXPECT_EQ(outcome.exit_code, nyxctl::NYXCTL_EXIT_USAGE) << c.expected;
        EXPECT_NE(outcome.text.find(c.expected), std::string::npos) << outcome.text;
    }
}

TEST(FieldWords, EachKindOfValue_IsSetAsPeopleWriteIt) {
    expect_messages<nyx::InterfaceSpec>({
        {{"id=00112233-4455-6677-8899-aabbccddeeff"},
         R"(id: "\000\021\"3DUfw\210\231\252\273\314\335\356\377")"},
        {{"id=base64:AQI="}, R"(id: "\001\002")"},
        {{"admin_status=up"}, "admin_status: STATE_UP"},
        {{"admin_status=STATE_DOWN"}, "admin_status: STATE_DOWN"},
        {{"adminStatus=1"}, "admin_status: STATE_UP"},
        {{"host_if_spec.name=a=b"}, R"(host_if_spec { name: "a=b" })"},
        {{"host_if_spec.name="}, "host_if_spec { }"},
        {{"host_if_spec.host_flag_1=yes", "host_if_spec.host_flag_2=true", "host_if_spec.host_flag_1=no"},
         "host_if_spec { host_flag_2: true }"},
        {{"host_if_spec.mac_address=00:1a:2b:3c:4d:5e"}, "host_if_spec { mac_address: 112394521950 }"},
        {{"host_if_spec.learn_spec.aging_timeout=0x10"}, "host_if_spec { learn_spec { aging_timeout: 16 } }"},
        {{"control_if_spec.prefix=10.0.0.1/24"},
         "control_if_spec { prefix { addr { af: IP_AF_INET v4_addr: 167772161 } len: 24 } }"},
        {{"control_if_spec.prefix.addr=::1"},
         R"(control_if_spec { prefix { addr { af: IP_AF_INET6 v6_addr: )"
         R"("\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\001" } } })"},
        {{"control_if_spec.prefix.addr.v4_addr=10.0.0.1", "control_if_spec.prefix=10.0.0.2/8"},
         "control_if_spec { prefix { addr { af: IP_AF_INET v4_addr: 167772162 } len: 8 } }"},
    });
}

TEST(FieldWords, Lists_GrowAtTheirEnd) {
    expect_messages<nyx::InterfaceRequest>({
        {{"request[0].id=01", "request[1].id=02", "request[0].admin_status=up"},
         R"(request { id: "\001" admin_status: STATE_UP } request { id: "\002" })"},
        {{"request[0].tx_mirror_session=01", "request[0].tx_mirror_session=02",
          "request[0].tx_mirror_session[0]=03"},
         R"(request { tx_mirror_session: "\003" tx_mirror_session: "\002" })"},
        {{"request[0].l3_if_spec.prefix=10.0.0.1/8", "request[0].l3_if_spec.prefix[1].len=7"},
         "request { l3_if_spec { prefix { addr { af: IP_AF_INET v4_addr: 167772161 } len: 8 } prefix { len: "
         "7 } } }"},
    });
    expect_messages<nyx::FilterMac>(
        {{{"mac_address=7", "mac_address=00:00:00:00:00:08"}, "mac_address: 7 mac_address: 8"}});
}

TEST(FieldWords, WrongWords_AreRefusedWithPathValueAndWhatIsAllowed) {
    expect_refusals<nyx::InterfaceRequest>({
        {{"request[0].admin_status=upp"},
         "request[0].admin_status: \"upp\" is not accepted; give one of none, up, down; nearest: up"},
        {{"request[0].host_if_spec.nam=h"},
         "request[0].host_if_spec.nam: no such field in nyx.HostIfSpec; nearest: name"},
        {{"request[1].id=01"}, "request[1]: the list has 0 elements up to here; give request[0] first"},
        {{"request.id=01"}, "request: a list; say which element: request[0]"},
        {{"request[x].id=01"}, "request[x]: invalid index"},
        {{"request[-1].id=01"}, "names no field"},
        {{"request[0]x.id=01"}, "invalid index"},
        {{"request[=1"}, "invalid index"},
        {{"batch_ctxt[0].batch_cookie=1"}, "batch_ctxt[0]: not a list"},
        {{"batch_ctxt=1"}, "batch_ctxt: is a message; set its fields: batch_cookie"},
        {{"batch_ctxt.batch_cookie.x=1"}, "batch_ctxt.batch_cookie: has no fields"},
        {{"batch_ctxt.batch_cookie=18446744073709551616"}, "give a number from 0 to 18446744073709551615"},
        {{"batch_ctxt.batch_cookie=-1"}, "\"-1\" is not accepted"},
        {{"batch_ctxt.batch_cookie=7 "}, "\"7 \" is not accepted"},
        {{"batch_ctxt..x=1"}, "batch_ctxt.: no such field"},
        {{"request[0].uplink_spec.port_id=01", "request[0].host_if_spec.name=h"},
         "request[0].host_if_spec: uplink_spec is set already; give fields of only one of uplink_spec, "
         "l3_if_spec"},
        {{"request[0].host_if_spec.host_flag_1=maybe"}, "give yes or no, true or false, 1 or 0"},
        {{"request[0].control_if_spec.prefix=10.0.0.1/33"}, "give a prefix like 10.0.0.0/24"},
        {{"request[0].control_if_spec.prefix=10.0.0.1"}, "give a prefix like 10.0.0.0/24"},
        {{"request[0].control_if_spec.prefix.addr=10.0.0"}, "give an address like 10.0.0.1"},
        {{"request[0].control_if_spec.mac_address=00:1a"}, "MAC address"},
        {{"request[0].id=abc"}, "request[0].id: \"abc\" is not accepted"},
        {{"request[0].host_if_spec.name=\xff"}, "not UTF-8"},
        {{"{\"id\": 1}"}, "PATH=VALUE"},
    });
}

TEST(FieldWords, FirstName_DecidesWhichMessageIsMeant) {
    nyx::InterfaceSpec spec;
    google::protobuf::Message *const both[] = {&spec, spec.mutable_l3_if_spec()};
    EXPECT_TRUE(nyxctl::set_field(both, "id=01").ok());
    EXPECT_TRUE(nyxctl::set_field(both, "port_id=02").ok());
    EXPECT_EQ(spec.ShortDebugString(), R"(id: "\001" l3_if_spec { port_id: "\002" })");
    const std::string text = nyxctl::set_field(both, "prefx=1").text;
    EXPECT_NE(text.find("nyx.InterfaceSpec or nyx.L3IfSpec; nearest: prefix"), text.npos) << text;
}

TEST(FieldWords, Word_IsAPathAndAnEqualsSign) {
    for (const char *word : {"id=", "request[0].id=01", "a=b=c", "a={}"}) {
        EXPECT_TRUE(nyxctl::is_field_word(word)) << word;
    }
    for (const char *word : {"{\"a\": \"b=c\"}", "@a=b", "-", "=a", "id", "", "1a=b", " a=b"}) {
        EXPECT_FALSE(nyxctl::is_field_word(word)) << word;
    }
}

TEST(Template, OfEveryMessage_ReadsBack) {
    for (const std::string &name : nyxctl::all_message_names()) {
        const google::protobuf::Descriptor *type = nullptr;
        ASSERT_TRUE(nyxctl::find_message(name, &type).ok());
        const auto message = nyxctl::new_message(type);
        const nyxctl::outcome_s outcome =
            nyxctl::json_to_message(nyxctl::message_template(type).json, message.get());
        ASSERT_TRUE(outcome.ok()) << outcome.text;
    }
}

TEST(Template, Oneof_ShowsItsFirstMemberAndNamesTheOthers) {
    const auto filled = nyxctl::message_template(nyx::InterfaceRequest::descriptor());
    EXPECT_EQ(filled.json, R"({
  "batch_ctxt": {
    "batch_cookie": "0"
  },
  "request": [
    {
      "id": "",
      "admin_status": "STATE_NONE",
      "uplink_spec": {
        "port_id": ""
      },
      "tx_mirror_session": [],
      "rx_mirror_session": []
    }
  ]
})");
    ASSERT_EQ(filled.choices.size(), 1U);
    EXPECT_EQ(filled.choices[0].find("request[0].ifinfo: uplink_spec, or instead of it l3_if_spec, "), 0U);
}

TEST(Json, CanonicalStyle_IsProtobufsOwnBothWays) {
    nyx::MacVlan filter;
    nyx::PortUpdateRequest request;
    filter.set_mac_address(7);
    request.mutable_spec()->set_id("\xab\xcd");
    std::string shown;
    ASSERT_TRUE(nyxctl::message_to_json(filter, &shown, nyxctl::json_style_e::canonical).ok());
    EXPECT_NE(shown.find(R"("macAddress": "7")"), shown.npos) << shown;
    ASSERT_TRUE(nyxctl::message_to_json(request, &shown, nyxctl::json_style_e::canonical).ok());
    EXPECT_NE(shown.find(R"("id": "q80=")"), shown.npos) << shown;
    nyx::PortUpdateRequest again;
    ASSERT_TRUE(nyxctl::json_to_message(shown, &again, nyxctl::json_style_e::canonical).ok());
    EXPECT_EQ(again.spec().id(), request.spec().id());
    EXPECT_FALSE(nyxctl::json_to_message(shown, &again).ok());  // people mark base64
}

}  // namespace
