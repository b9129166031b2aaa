// The client's view of P4 tables: what it reads from descriptors against layouts that do not come from them.

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "client/core/bytes_text.h"
#include "client/core/record_width.h"
#include "client/table/entry_args.h"
#include "client/table/entry_source.h"
#include "client/table/record_codec.h"
#include "client/table/record_layout.h"
#include "client/table/record_rows.h"
#include "tests/table_layouts.h"
#include "tests/temporary_folder.h"

namespace {

using nyxctl::NYXCTL_EXIT_USAGE;
using nyxctl::outcome_s;
using nyxctl::table_layout_s;
using words_t = std::vector<std::string>;

table_layout_s layout_of(const std::string &name) {
    table_layout_s layout{};
    EXPECT_TRUE(nyxctl::find_table(name, &layout).ok()) << name;
    return layout;
}

std::string to_string(const test::record &record) { return {record.begin(), record.end()}; }

using places_t = std::vector<std::tuple<std::string, size_t, size_t>>;

places_t expected_places(const std::vector<test::field_layout_s> &fields) {
    places_t places;
    for (const auto &field : fields) places.emplace_back(field.name, field.offset, field.width);
    return places;
}

places_t places_of(const table_layout_s &layout, nyxctl::record_part_e part, uint32_t action_id = 0) {
    places_t places;
    for (const auto &field : layout.fields) {
        if (field.part == part && field.action_id == action_id) {
            places.emplace_back(field.field->name(), field.offset, field.width);
        }
    }
    return places;
}

class EveryTable : public testing::TestWithParam<test::table_layout_s> {};

TEST_P(EveryTable, Layout_IsThatOfTheListing) {
    const auto layout = layout_of(GetParam().name);
    EXPECT_EQ(nyxctl::table_names().at(GetParam().number), GetParam().name);
    EXPECT_EQ(layout.ternary(), GetParam().ternary);
    EXPECT_EQ(layout.record_size, GetParam().record_size);
    EXPECT_EQ(layout.key_size, GetParam().key_size);
    EXPECT_EQ(places_of(layout, nyxctl::RECORD_ACTION), (places_t{{"action_id", 0, 1}}));
    EXPECT_EQ(places_of(layout, nyxctl::RECORD_KEY), expected_places(GetParam().key));
    EXPECT_EQ(places_of(layout, nyxctl::RECORD_MASK), expected_places(GetParam().mask));
    EXPECT_EQ(layout.data.size(), GetParam().actions.size());
    for (const auto &action : GetParam().actions) {
        ASSERT_TRUE(layout.data_of(action.id)) << action.id;
        EXPECT_EQ(layout.data_of(action.id)->name(), action.member);
        EXPECT_EQ(places_of(layout, nyxctl::RECORD_DATA, action.id), expected_places(action.fields));
    }
}

// Actions with and without data, and values of all widths.
TEST_P(EveryTable, Entry_IsEncodedAndDecodedAsTheServiceDoes) {
    const auto layout = layout_of(GetParam().name);
    for (const uint32_t action : {0, 1, 2, 77}) {
        for (const auto fit :
             {test::fit_e::FIT_EXACT, test::fit_e::FIT_TOO_WIDE, test::fit_e::FIT_TOO_SHORT}) {
            const auto entry = test::make_entry(GetParam(), action, 0x11, 0x91, fit);
            const std::string record = to_string(entry.record);
            EXPECT_EQ(nyxctl::encode_record(layout, *entry.spec), record);

            const auto spec = test::new_message(GetParam().name + "Spec");
            ASSERT_TRUE(nyxctl::decode_record(layout, record, spec.get()).ok());
            EXPECT_EQ(spec->SerializeAsString(),
                      test::read_record(GetParam(), entry.record)->SerializeAsString());

            auto *key = test::mutable_member(spec.get(), "key");
            const std::string key_record = record.substr(1, GetParam().key_size);
            EXPECT_EQ(nyxctl::encode_key(layout, *key), key_record);
            const auto decoded = test::new_message(GetParam().name + "_key_t");
            ASSERT_TRUE(nyxctl::decode_key(layout, key_record, decoded.get()).ok());
            EXPECT_EQ(decoded->SerializeAsString(), key->SerializeAsString());
            EXPECT_EQ(nyxctl::check_widths(*entry.spec).ok(), fit != test::fit_e::FIT_TOO_WIDE);
        }
    }
}

// The fields that are shown are words for the same entry.
TEST_P(EveryTable, ShownFields_AreWordsForTheSameEntry) {
    const auto layout = layout_of(GetParam().name);
    const auto entry = test::make_entry(GetParam(), 0, 0x11, 0x91);
    words_t words;
    for (const auto &row : nyxctl::spec_rows(layout, *test::read_record(GetParam(), entry.record)).rows) {
        words.push_back(nyxctl::cell_text(row[0]) + "=" + nyxctl::cell_text(row[1]));
    }
    const auto spec = test::new_message(GetParam().name + "Spec");
    const outcome_s outcome = nyxctl::fill_spec(layout, words, false, spec.get());
    ASSERT_TRUE(outcome.ok()) << outcome.text;
    EXPECT_EQ(nyxctl::encode_record(layout, *spec), to_string(entry.record));
}

INSTANTIATE_TEST_SUITE_P(Client, EveryTable, testing::ValuesIn(test::table_layouts()),
                         [](const auto &param) { return param.param.name; });

TEST(RecordCodec, RecordOfAnotherLength_IsRefusedWithWhatItMayBe) {
    const auto layout = layout_of("flow_info");
    const auto spec = test::new_message("flow_infoSpec");
    for (const size_t size : {0, 4, 68, 70}) {
        EXPECT_EQ(nyxctl::decode_record(layout, std::string(size, 'a'), spec.get()).exit_code,
                  NYXCTL_EXIT_USAGE)
            << size;
    }
    const std::string text = nyxctl::decode_record(layout, "abcd", spec.get()).text;
    EXPECT_NE(text.find("size of a key record"), text.npos) << text;
}

TEST(EntryArgs, Words_SetTheFieldsThatTheyName) {
    const std::vector<std::tuple<std::string, words_t, std::string>> cases = {
        {"vlan_mapping", {"k1=1", "key.k2=0x102", "d1=3"}, "000100020103000000"},
        {"vlan_mapping", {"vlan_mapping_data.d2=3", "action_id=0"}, "000000000000000300"},
        {"flow_key_native", {"k1=1", "mask.k2=255"}, "000100000100ff000000"},
        {"flow_key_native", {"k1=1", "key_mask.k2=255", "key_mask_valid=0"}, "00010000000000000000"},
        {"flow_key_native", {"d2=7", "action=2"}, "02000000000000000007"},
        {"flow_key_native", {"native_ipv6_packet_data.d2=7"}, "02000000000000000007"},
        {"registered_mac",
         {"k1=00:1a:2b:3c:4d:5e", "d4=1"},
         "00001a2b3c4d5e00000000000000000000"
         "01"},
        {"p4plus_app", {"action=9", "k1=1", "client_tag=5"}, "090100"},
    };
    for (const auto &[table, words, hex] : cases) {
        const auto layout = layout_of(table);
        const auto spec = test::new_message(table + "Spec");
        const outcome_s outcome = nyxctl::fill_spec(layout, words, false, spec.get());
        EXPECT_TRUE(outcome.ok()) << outcome.text;
        EXPECT_EQ(nyxctl::bytes_to_text(nyxctl::encode_record(layout, *spec), types::BYTES_TEXT_HEX), hex);
    }
}

TEST(EntryArgs, WrongWords_AreRefusedWithWhatIsAllowed) {
    const std::vector<std::tuple<std::string, words_t, std::string>> cases = {
        {"vlan_mapping", {"k3=1"}, "k3: no such field in the entries of vlan_mapping; nearest: k1, k2"},
        {"vlan_mapping", {"mask.k1=1"}, "mask.k1: no such field"},
        {"vlan_mapping", {"k1"}, "is not FIELD=VALUE"},
        {"vlan_mapping", {"k1=abc"}, "k1: \"abc\" is not accepted; give a number from 0 to 65535"},
        {"vlan_mapping", {"k1=-1"}, "\"-1\" is not accepted"},
        {"vlan_mapping", {"k1=1", "key.k1=1"}, "k1 is given twice"},
        {"vlan_mapping",
         {"action=1", "d1=1"},
         "d1: action 1 has no such data; give action=0 (vlan_mapping_data)"},
        {"vlan_mapping", {"vlan_mapping_data.d1=1", "action=1"}, "goes with action 0, not with 1"},
        {"flow_key_native",
         {"d1=1"},
         "give action=1 (native_ipv4_packet_data) or 2 (native_ipv6_packet_data)"},
        {"registered_mac", {"k1=00:1a:2b:3c:4d:5e:6f"}, "k1: 7 bytes do not fit in 6 bytes; --cut"},
        {"registered_mac", {"k1=zz"}, "k1: \"zz\""},
    };
    for (const auto &[table, words, text] : cases) {
        const auto spec = test::new_message(table + "Spec");
        const outcome_s outcome = nyxctl::fill_spec(layout_of(table), words, false, spec.get());
        EXPECT_EQ(outcome.exit_code, NYXCTL_EXIT_USAGE) << text;
        EXPECT_NE(outcome.text.find(text), outcome.text.npos) << outcome.text;
    }
    const auto key = test::new_message("vlan_mapping_key_t");
    EXPECT_FALSE(nyxctl::fill_key(layout_of("vlan_mapping"), {"d1=1"}, false, key.get()).ok());
}

TEST(EntryArgs, NumberAboveTheWidth_NeedsCut) {
    const auto layout = layout_of("vlan_mapping");
    for (const auto &[number, fits] :
         {std::pair("65535", true), {"65536", false}, {"18446744073709551615", false}}) {
        const auto key = test::new_message("vlan_mapping_key_t");
        const words_t words = {std::string("k1=") + number};
        const outcome_s outcome = nyxctl::fill_key(layout, words, false, key.get());
        const std::string text = std::string("k1: ") + number +
                                 " does not fit in 2 bytes, largest is 65535; --cut sends it anyway";
        EXPECT_EQ(outcome.text, fits ? "" : text);
        EXPECT_TRUE(nyxctl::fill_key(layout, words, true, key.get()).ok());
        EXPECT_EQ(nyxctl::encode_key(layout, *key).substr(0, 2),
                  fits || number[1] == '8' ? "\xff\xff" : std::string(2, '\0'));
    }
}

TEST(FindTable, MisspelledName_IsAnsweredWithTheNearest) {
    table_layout_s layout{};
    const outcome_s outcome = nyxctl::find_table("flow_inf", &layout);
    EXPECT_EQ(outcome.exit_code, NYXCTL_EXIT_USAGE);
    EXPECT_NE(outcome.text.find("nearest: flow_info"), outcome.text.npos) << outcome.text;
}

// What a source reads of a file with this text: the records of the entries, or what is wrong.
std::vector<std::string> read_entries(const std::string &text, const std::string &table = "vlan_mapping") {
    const test::temporary_folder folder;
    const std::string path = folder / "entries";
    std::ofstream(path) << text;
    const auto layout = layout_of(table);
    nyxctl::entry_source source(layout, false, false);
    nyxctl::outcome_s outcome = source.open({"@" + path}, 0);
    std::vector<std::string> found;
    nyxctl::entry_text_s entry;
    while (outcome.ok() && source.next(&entry)) {
        const auto spec = test::new_message(table + "Spec");
        outcome = source.at(entry.line, source.read(entry, spec.get()));
        found.push_back(nyxctl::bytes_to_text(nyxctl::encode_record(layout, *spec), types::BYTES_TEXT_HEX));
    }
    const std::string error = outcome.ok() ? source.failure().text : outcome.text;
    return error.empty() ? found : std::vector{error.substr(error.find("entries\"") + 8)};
}

TEST(EntrySource, EveryFormat_GivesTheSameEntries) {
    const std::vector<std::string> wanted = {"00ffff00000000000000", "00010000000500000000"};
    for (std::string text :
         {"{\"key\": {\"k1\": 65535}}\n\n {\"key\": {\"k1\": 1}, \"vlan_mapping_data\": {\"d1\": 5}}",
          " [{\"key\": {\"k1\": 65535}},\n{\"key\":\n{\"k1\": 1}, \"vlan_mapping_data\": {\"d1\": \"5\"}} "
          "]\n",
          "\xef\xbb\xbfkey.k1,\"d1\"\r\n0xffff,\r\n\r\n\"1\",5", "k1,d1\n65535,0\n1,5\n"}) {
        auto found = read_entries(text);
        for (std::string &record : found) record.resize(wanted[0].size(), '0');
        EXPECT_EQ(found, wanted) << text;
    }
    EXPECT_EQ(read_entries("k1,mask.k1,d2,action\n1,,7,2\n1,3,7,1", "flow_key_native"),
              (std::vector<std::string>{"02010000000000000007", "01010000010300000007"}));
}

TEST(EntrySource, WrongEntry_IsRefusedWithItsLineAndField) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{}\n\n{\"key\": {\"k1\": 65536}}",
         " line 3: JSON of nyx.vlan_mappingSpec: key.k1: 65536 does not fit"},
        {"[{},\n {\"key\": {\"k3\": 1}}]", " line 2: JSON of nyx.vlan_mappingSpec: key.k3: no such field"},
        {"{}\n{\"key\"", " line 2: "},
        {"{\n\"key\": {}}", "give one JSON object in each line"},
        {"[{}", " line 1: the JSON array has no end"},
        {"[{}] {}", "text after the end"},
        {"[{} {}]", " line 1: JSON of"},
        {"k1,k9\n1,2", " line 1: k9: no such field in the entries of vlan_mapping"},
        {"k1,d1\n1,2\n3", " line 3: found 1 values under 2 columns"},
        {"k1\n65536", " line 2: k1: 65536 does not fit in 2 bytes"},
        {"k1\n\"1", " line 2: CSV: "},
        {"k1,k1\n1,1", " line 2: k1: k1 is given twice"},
        {" \n ", " holds no entries"},
        {"{\"a\": \"" + std::string(1 << 20, 'x') + "\"}", " line 1: longer than 1 MiB"},
    };
    for (const auto &[text, error] : cases) {
        const auto found = read_entries(text);
        ASSERT_EQ(found.size(), 1u) << error;
        EXPECT_NE(found[0].find(error), std::string::npos) << found[0] << "; wanted: " << error;
    }
}

}  // namespace
