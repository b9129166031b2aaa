// Keys, addresses and texts between messages and records.

#include "svc/common/converters.h"

#include <gmock/gmock.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "nyx/interface.pb.h"
#include "nyx/types/object.pb.h"
#include "svc/common/text.h"
#include "tests/record_bytes.h"

namespace {

using std::string_literals::operator""s;
using test::make_record;
using testing::ElementsAre;

std::string bytes_of(const auto &record) {
    return std::string(reinterpret_cast<const char *>(&record), sizeof(record));
}

nyx_obj_key_s key_of(char fill) { return make_record<nyx_obj_key_s>({{0, std::string(16, fill)}}); }

TEST(object_keys, UpToSixteenBytesReplaceTheKey_MoreLeaveIt) {
    for (const size_t size : {0, 1, 3, 15, 16, 17, 1000}) {
        SCOPED_TRACE(size);
        const std::string id(size, '\xee');
        std::string before(17, '\x55'), zeros(17, '\0');
        nyx_obj_key_s key;
        memcpy(&key, before.data(), sizeof(key));
        EXPECT_EQ(nyx_obj_key_proto_to_api_spec(&key, id), sdk::SDK_RET_OK);
        EXPECT_EQ(bytes_of(key), size > 16 ? before : zeros.replace(0, size, id));
    }
}

TEST(object_keys, OnlySixteenZeroBytesAreInvalid) {
    EXPECT_FALSE(k_nyx_obj_key_invalid.valid());
    EXPECT_FALSE(make_record<nyx_obj_key_s>({{16, "t"}}).valid());
    EXPECT_TRUE(make_record<nyx_obj_key_s>({{0, "\x01"}}).valid());
    EXPECT_TRUE(make_record<nyx_obj_key_s>({{15, "\x80"}}).valid());
}

TEST(object_keys, TextIsLowerCaseInGroups) {
    const auto key = make_record<nyx_obj_key_s>(
        {{0, "\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff\x01"s}});
    EXPECT_STREQ(key.str(), "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_STREQ(k_nyx_obj_key_invalid.str(), "00000000-0000-0000-0000-000000000000");
}

TEST(mac_addresses, TextStartsWithTheFirstByte) {
    const uint8_t mac[] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    EXPECT_STREQ(macaddr2str(mac, false), "00:1a:2b:3c:4d:5e");
}

// Texts, each of another value, of the kind that the thread's next call makes.
using next_text = const char *(*)(uint8_t value);
const char *next_key_text(uint8_t value) { return key_of(static_cast<char>(value)).str(); }
const char *next_mac_text(uint8_t value) {
    const uint8_t mac[6] = {value, value, value, value, value, value};
    return macaddr2str(mac, false);
}

TEST(texts, FourOfAThreadCanBeUsedTogether) {
    for (const next_text next : {next_key_text, next_mac_text}) {
        const char *texts[4];
        std::string copies[4];
        for (uint8_t i = 0; i < 4; i++) {
            texts[i] = next(0xa0 + i);
            copies[i] = texts[i];
        }
        std::thread([&] {
            for (int i = 0; i < 301; i++) {  // if the threads shared a counter, it would be at another slot
                next(0xff);
            }
        }).join();
        for (int i = 0; i < 4; i++) {
            EXPECT_EQ(texts[i], copies[i]);
            EXPECT_EQ(copies[i].substr(0, 2), "a"s + std::to_string(i));
        }
        EXPECT_EQ(next(0xb0), texts[0]);
        EXPECT_STREQ(texts[0], next(0xb0));
    }
}

TEST(prefixes, StoreTheLengthAlways_AndTheAddressOfAKnownFamily) {
    const std::string v6 = "addr { af: IP_AF_INET6 v6_addr: 'abcdefghijklmnop' }";
    const std::string v4 = "addr { af: IP_AF_INET v4_addr: 0x0a000001 }";
    const std::string untouched(17, '\x55'), zeros(16, '\0'), ten(12, '\0');
    const std::string no_family = "\0"s + std::string(16, '\x55');
    const auto k_ok = sdk::SDK_RET_OK, k_invalid = sdk::SDK_RET_INVALID_ARG;
    const struct {
        std::string proto;
        sdk::sdk_ret_t ret;
        std::string addr;
        uint8_t len;
    } cases[] = {
        {v4 + "len: 0", k_ok, "\x01\x01\0\0\x0a"s + ten, 0},
        {v4 + "len: 32", k_ok, "\x01\x01\0\0\x0a"s + ten, 32},
        {v4 + "len: 33", k_invalid, untouched, 33},
        {v4 + "len: 255", k_invalid, untouched, 255},
        {"addr { af: IP_AF_INET v6_addr: 'abcdefghijklmnop' } len: 8", k_ok, "\x01" + zeros, 8},
        {"addr { af: IP_AF_INET } len: 8", k_ok, "\x01" + zeros, 8},
        {v6 + "len: 33", k_ok,
         "\x02"
         "abcdefghijklmnop",
         33},
        {v6 + "len: 128", k_ok,
         "\x02"
         "abcdefghijklmnop",
         128},
        {v6 + "len: 129", k_invalid, untouched, 129},
        {"addr { af: IP_AF_INET6 v4_addr: 7 } len: 8", k_ok, "\x02" + zeros, 8},
        {"addr { af: IP_AF_INET6 v6_addr: 'abcdefghijklmnopqrs' }", k_ok,
         "\x02"
         "abcdefghijklmnop",
         0},
        {"addr { af: IP_AF_INET6 v6_addr: 'abc' }", k_ok,
         "\x02"
         "abc"s +
             std::string(13, '\0'),
         0},
        {"len: 24", k_invalid, no_family, 24},
        {"addr { v4_addr: 7 } len: 24", k_invalid, no_family, 24},
        {"addr { af: 3 v4_addr: 7 } len: 24", k_invalid, no_family, 24},
        {"addr { af: 257 v4_addr: 7 } len: 24", k_invalid, no_family, 24},
        {"addr { af: -1 v4_addr: 7 } len: 24", k_invalid, no_family, 24},
    };
    for (const auto &[text, ret, addr, len] : cases) {
        SCOPED_TRACE(text);
        types::IPPrefix proto;
        ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &proto));
        auto prefix = make_record<ip_prefix_s>({{0, std::string(18, '\x55')}});
        EXPECT_EQ(ippfx_proto_spec_to_api_spec(&prefix, proto), ret);
        EXPECT_EQ(bytes_of(prefix), addr + static_cast<char>(len));
    }
}

const std::string k_bad = "\xef\xbf\xbd";

TEST(text_out_of_records, EachByteThatIsNotUtf8IsReplaced) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"plain text\t~", "plain text\t~"},
        {"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"a\x80"
         "b",
         "a" + k_bad + "b"},
        {"\xc0\xaf", k_bad + k_bad},                          // overlong "/"
        {"\xe0\x9f\xbf", k_bad + k_bad + k_bad},              // overlong
        {"\xed\xa0\x80", k_bad + k_bad + k_bad},              // surrogate
        {"\xf4\x90\x80\x80", k_bad + k_bad + k_bad + k_bad},  // above U+10FFFF
        {"\xe2\x82", k_bad + k_bad},                          // cut
        {"\xe2\x82"
         "x\xc3\xa4",
         k_bad + k_bad + "x\xc3\xa4"},
        {"\xff\xfe", k_bad + k_bad},
    };
    for (const auto &[bytes, text] : cases) {
        EXPECT_EQ(base::to_utf8(bytes), text);
    }
}

// Whether a receiver accepts the text. Bytes and strings look the same on the wire, so that any bytes can be sent.
bool is_taken_as_text(const std::string &bytes) {
    types::Id as_bytes;
    as_bytes.set_id(bytes);
    nyx::LldpUnknownTlvStatus as_text;
    return as_text.ParseFromString(as_bytes.SerializeAsString());
}

void check_continuations(std::string *bytes, size_t size, size_t *refused) {
    // The first and last byte of every range that the encoding distinguishes.
    constexpr unsigned char k_bytes[] = {0x00, 0x7f, 0x80, 0x8f, 0x90, 0x9f, 0xa0, 0xbf,
                                         0xc0, 0xc1, 0xc2, 0xdf, 0xe0, 0xe1, 0xec, 0xed,
                                         0xee, 0xef, 0xf0, 0xf1, 0xf3, 0xf4, 0xf5, 0xff};
    const bool valid = is_taken_as_text(*bytes);
    const std::string text = base::to_utf8(*bytes);
    *refused += !valid;
    ASSERT_EQ(text == *bytes, valid) << testing::PrintToString(*bytes);
    ASSERT_TRUE(valid || is_taken_as_text(text)) << testing::PrintToString(*bytes);
    if (bytes->size() < size) {
        for (const unsigned char next : k_bytes) {
            bytes->push_back(static_cast<char>(next));
            ASSERT_NO_FATAL_FAILURE(check_continuations(bytes, size, refused));
            bytes->pop_back();
        }
    }
}

TEST(text_out_of_records, ReceiversTakeEveryText_AndTakeUnchangedWhatIsUtf8) {
    const google::protobuf::LogSilencer quiet;
    std::string bytes;
    size_t refused = 0;
    check_continuations(&bytes, 4, &refused);
    EXPECT_GT(refused, 300000U);
}

TEST(text_out_of_records, ArraysEndAtTheFirstZeroOrAtTheirEnd) {
    const char terminated[8] = {'a', 'b', 0, 'c'}, full[4] = {'a', 'b', 'c', 'd'}, empty[2] = {0, 'x'};
    EXPECT_THAT((std::vector{svc::text_of(terminated), svc::text_of(full), svc::text_of(empty)}),
                ElementsAre("ab", "abcd", ""));
}

}  // namespace
