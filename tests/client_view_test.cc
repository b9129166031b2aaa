// What the client works out of what it reads: rows, rates, differences.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "client/core/symbols.h"
#include "client/view/json_diff.h"
#include "client/view/list_rows.h"
#include "client/view/metrics.h"
#include "client/view/one_object.h"
#include "client/view/rates.h"
#include "client/view/select.h"
#include "nyx/debug.pb.h"
#include "nyx/interface.pb.h"
#include "nyx/lif.pb.h"
#include "nyx/port.pb.h"
#include "nyx/system.pb.h"

namespace {

using namespace nyxctl;
using growth_t = std::optional<uint64_t>;

json_t json(const std::string &text) {
    json_t dom;
    std::string error;
    EXPECT_TRUE(parse_json(text, &dom, &error)) << error;
    return dom;
}

std::string text_of(const shown_s &shown, const std::string &field) {
    for (const row_t &row : shown.rows.rows) {
        if (row[0] == field) return cell_text(row[1]);
    }
    return "no such field";
}

TEST(Rates, CounterThatWentDown_WrappedOrWasReset) {
    EXPECT_EQ(counter_growth(5, 5, 64), growth_t(0));
    EXPECT_EQ(counter_growth(0, ~uint64_t{0}, 64), growth_t(~uint64_t{0}));  // went up, however much
    EXPECT_EQ(counter_growth(~uint64_t{0} - 1, 3, 64), growth_t(5));
    EXPECT_EQ(counter_growth(0xffffffff, 0, 32), growth_t(1));
    EXPECT_EQ(counter_growth(0xffffffff, 0, 64), std::nullopt);
    EXPECT_EQ(counter_growth(0xc0000000, 0, 32), std::nullopt);  // a quarter of the range
    EXPECT_EQ(counter_growth(0xc0000001, 0, 32), growth_t(0x3fffffff));
    EXPECT_EQ(counter_growth(1000, 10, 32), std::nullopt);
}

shown_s counted(const std::vector<std::tuple<const char *, uint64_t, int>> &things) {
    shown_s shown{.rows = {"things", {"name", "count", "size"}, {}}, .keys = 1};
    for (const auto &[name, count, size] : things) {
        shown.rows.rows.push_back({name, counter_s{count, 32}, size});
    }
    return shown;
}

TEST(Rates, Rows_AreComparedByTheirKey) {
    const shown_s before = counted({{"a", 100, 1}, {"b", 7, 1}, {"b", 8, 1}});
    const shown_s now = counted({{"b", 17, 2}, {"a", 50, 2}, {"new", 1, 2}, {"b", 28, 2}});
    const rows_s rows = with_rates(before, now, 2).rows;
    EXPECT_EQ(rows.columns, (std::vector<column_s>{"name", "count", "count_per_s", "size"}));
    const std::vector<row_t> expected = {{"b", counter_s{17, 32}, 5.0, 2},
                                         {"a", counter_s{50, 32}, "reset", 2},
                                         {"new", counter_s{1, 32}, nullptr, 2},
                                         {"b", counter_s{28, 32}, 10.0, 2}};
    EXPECT_EQ(rows.rows, expected);
}

TEST(Rates, InFieldsAndValues_OnlyCountersHaveThem) {
    nyx::PortStats stats;
    stats.set_stats_word(10);
    stats.add_mac_stats()->set_type(17);
    shown_s shown[2] = {object_head("port"), object_head("port")};
    append_object(stats, "", {}, &shown[0]);
    stats.set_stats_word(20);
    stats.mutable_mac_stats(0)->set_count(30);
    append_object(stats, "", {}, &shown[1]);
    for (const auto &row : with_rates(shown[0], shown[1], 10).rows.rows) {
        EXPECT_EQ(row[2], row[0] == "mac_stats[17]" ? value_s(3.0) : value_s()) << cell_text(row[0]);
    }
}

TEST(OneObject, EveryField_IsARow) {
    nyx::Interface interface;
    interface.mutable_spec()->set_admin_status(types::STATE_DOWN);
    auto *l3 = interface.mutable_spec()->mutable_l3_if_spec();
    auto *prefix = l3->add_prefix();
    prefix->mutable_addr()->set_af(types::IP_AF_INET);
    prefix->mutable_addr()->set_v4_addr(0x0a000001);
    prefix->set_len(24);
    l3->set_mac_address(0x001a2b3c4d5e);
    interface.mutable_status()->mutable_uplink_if_status()->mutable_lldp_status()->mutable_local_if_status();
    interface.mutable_status()
        ->mutable_uplink_if_status()
        ->mutable_lldp_status()
        ->mutable_local_if_status()
        ->add_unknown_tlv()
        ->set_tlv_number_2(5);
    shown_s shown = object_head("interface");
    append_object(interface, "", {}, &shown);
    EXPECT_EQ(text_of(shown, "spec.admin_status"), "down");
    EXPECT_EQ(text_of(shown, "spec.l3_if_spec.prefix"), "10.0.0.1/24");
    EXPECT_EQ(text_of(shown, "spec.l3_if_spec.mac_address"), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(text_of(shown, "spec.uplink_spec"), "no such field");  // of the oneof, another one is set
    EXPECT_EQ(text_of(shown, "spec.l3_if_spec.encap"), "-");
    EXPECT_EQ(text_of(shown, "status.if_index"), "0");
    const std::string local = "status.uplink_if_status.lldp_status.local_if_status.";
    EXPECT_EQ(text_of(shown, local + "unknown_tlv[0].tlv_number_2"), "5");
}

TEST(ListRows, Addresses_AreOneValueAndUnknownEnumeratorsNumbers) {
    nyx::LoopbackIfSpec spec;
    spec.mutable_prefix();
    EXPECT_EQ(column_value(spec, {"prefix"}), nullptr);
    spec.mutable_prefix()->mutable_addr()->set_af(types::IP_AF_INET6);
    spec.mutable_prefix()->mutable_addr()->set_v6_addr("\x20\x01" + std::string(13, '\0') + "\x01");
    spec.mutable_prefix()->set_len(64);
    EXPECT_EQ(column_value(spec, {"prefix"}), "2001::1/64");
    nyx::PortSpec port;
    port.set_port_type(static_cast<nyx::PortType>(77));
    EXPECT_EQ(column_value(port, {"port_type"}), 77);
}

TEST(ListRows, Enumerators_HaveTheirNameForScriptsAndAShortTextForPeople) {
    nyx::InterfaceSpec spec;
    spec.set_admin_status(types::STATE_UP);
    const rows_s rows = {"things", {"state"}, {{column_value(spec, {"admin_status"})}}};
    EXPECT_EQ(rows_to_json(rows), R"({"things":[{"state":"STATE_UP"}]})");
    EXPECT_EQ(rows_to_text(rows), "STATE\nup\n");
}

TEST(ListRows, Columns_FindKindsCountsFlagsAndAlternatives) {
    nyx::LifClassic lif;
    EXPECT_EQ(column_value(lif, {"status.flags!"}), nullptr);
    EXPECT_EQ(column_value(lif, {"status.vlan_filter.vlan_id#"}), 0);
    lif.mutable_status()->mutable_flags()->set_trunk(true);
    lif.mutable_status()->mutable_vlan_filter()->add_vlan_id(4094);
    EXPECT_EQ(column_value(lif, {"status.flags!"}), value_s(value_s::list_t{"trunk"}));
    EXPECT_EQ(column_value(lif, {"status.vlan_filter.vlan_id#"}), 1);
    nyx::InterfaceSpec spec;
    EXPECT_EQ(column_value(spec, {"ifinfo"}), nullptr);
    spec.mutable_l3_if_spec()->set_mac_address(1);
    EXPECT_EQ(column_value(spec, {"ifinfo"}), "l3");
    EXPECT_EQ(column_value(spec, {"host_if_spec.name|l3_if_spec.mac_address"}), "00:00:00:00:00:01");
}

TEST(ListRows, InnerLists_RepeatTheirOuterElement) {
    nyx::QueueCreditsGetResponse response;
    response.add_port_queue_credit()->set_port(4);
    response.mutable_port_queue_credit(0)->add_queue_credit()->set_credit(8);
    response.mutable_port_queue_credit(0)->add_queue_credit()->set_queue(1);
    for (const list_view_s &view : list_views()) {
        if (std::string(view.name) != "credits") continue;
        const rows_s rows = list_rows(view, response).rows;
        EXPECT_EQ(rows_to_json(rows),
                  R"({"credits":[{"port":4,"queue":0,"credit":8},{"port":4,"queue":1,"credit":0}]})");
    }
}

// A path that no message has would throw at run time alone.
TEST(ListRows, AllViews_FitTheirMessages) {
    std::vector<list_view_s> views(list_views().begin(), list_views().end());
    views.insert(views.end(), {lifs_classic_view(), sessions_view()});
    for (const list_view_s &view : views) {
        const google::protobuf::MethodDescriptor *method = nullptr;
        ASSERT_TRUE(find_method(view.method, &method).ok()) << view.method;
        const auto *type =
            google::protobuf::MessageFactory::generated_factory()->GetPrototype(method->output_type());
        EXPECT_EQ(list_rows(view, *type).rows.rows.size(), 0u) << view.name;
    }
}

TEST(Rows, Text_IsAlignedWithoutControlCharacters) {
    const rows_s rows{"things", {"a_b", "n"}, {{"x\x1b[2J\n", 5}, {"\xc3\xa9", 12345}, {"", nullptr}}};
    EXPECT_EQ(rows_to_text(rows),
              "A B         N\n"
              "x?[2J?      5\n"
              "\xc3\xa9       12345\n"
              "-           -\n");
    EXPECT_EQ(rows_to_text({"things", {"a"}, {}}), "no things\n");
}

TEST(Rows, LongHex_IsCutForPeople) {
    const std::string hex(66, 'a');
    const shown_s shown{.rows = {"things", {"a", "b"}, {{hex, "g" + hex}}}};
    const auto last_line = [](const std::string &text) { return text.substr(text.find('\n') + 1); };
    EXPECT_EQ(last_line(text_for_people(shown, 0)), std::string(32, 'a') + "...  g" + hex + "\n");
    EXPECT_EQ(last_line(text_for_people(shown, 0, true)), hex + "  g" + hex + "\n");
}

TEST(Rows, InLessSpace_TheUsefulColumnsStay) {
    rows_s rows{
        "things", {"a", {"b", "", false}, "c", {"d", "", true}}, {{"aaaa", "bbbb", std::string(30, 'c'), 4}}};
    EXPECT_EQ(rows_to_text(rows, {.width = 32}),
              "A     C                        D\naaaa  cccccccccccccccccccc...  4\n");
    EXPECT_EQ(rows_to_text(rows, {.width = 20}), "A     B     D\naaaa  bbbb  4\n");
    EXPECT_EQ(rows_to_text(rows, {.width = 9}), "A     D\naaaa  4\n");
    rows = {"fields", {"field", "value"}, {{"status.link_status.link_state", "\xc2\xb0\xc2\xb0"}}};
    EXPECT_EQ(rows_to_text(rows, {.width = 20, .always = 2}),
              "FIELD          VALUE\n...link_state  \xc2\xb0\xc2\xb0\n");
}

shown_s selectable() {
    return {
        .rows = {"things",
                 {"name", {"temperature_1", "core temperature"}},
                 {{"b", value_s(58).shown_as("58 °C")}, {"a", value_s(9).shown_as("9 °C")}, {"c", nullptr}}}};
}

// The names that are left.
std::string selected(const selection_s &selection) {
    shown_s shown = selectable();
    const outcome_s outcome = select_rows(selection, &shown);
    std::string names = outcome.text;
    for (const row_t &row : shown.rows.rows) {
        names += outcome.ok() ? cell_text(row[0]) : "";
    }
    return names;
}

TEST(Select, Rows_AreComparedAsPeopleOrScriptsReadThem) {
    for (const auto &[where, names] :
         std::vector<std::pair<std::string, std::string>>{{"name=B", "b"},
                                                          {"name!=b", "ac"},
                                                          {"core_temperature>9", "b"},
                                                          {"TEMPERATURE_1<58", "a"},
                                                          {"temperature_1=58", "b"},
                                                          {"temperature_1=58 °c", "b"},
                                                          {"temperature_1=-", "c"},
                                                          {"temperature_1~°", "ba"}}) {
        EXPECT_EQ(selected({.where = {where}}), names) << where;
    }
    EXPECT_EQ(selected({.where = {"name!=b", "temperature_1>0"}}), "a");
    EXPECT_EQ(selected({.sort = "core_temperature"}), "abc");
    EXPECT_EQ(selected({.sort = "name", .reverse = true}), "cba");
    EXPECT_EQ(selected({.where = {"nam=1"}}),
              "unknown column \"nam\"; nearest: name; give one of name, core_temperature");
    EXPECT_EQ(selected({.where = {"temperature_1>hot"}}),
              "invalid condition \"temperature_1>hot\"; give a number after >");
    EXPECT_NE(selected({.where = {"name"}}).find("give COLUMN=VALUE"), std::string::npos);
}

TEST(Select, Columns_AreTheOnesAskedForInTheirOrder) {
    shown_s shown = selectable();
    ASSERT_TRUE(select_rows({.columns = {"core_temperature", "name"}, .sort = "name"}, &shown).ok());
    EXPECT_EQ(rows_to_text(shown.rows),
              "CORE TEMPERATURE  NAME\n            9 °C  a\n           58 °C  b\n"
              "               -  c\n");
    EXPECT_EQ(
        rows_to_json(shown.rows, {}, true),
        R"({"things":[{"temperature_1":9,"temperature_1_text":"9 °C","name":"a"},)"
        R"({"temperature_1":58,"temperature_1_text":"58 °C","name":"b"},{"temperature_1":null,"name":"c"}]})");
}

TEST(Select, MinorRows_AreCountedUnlessTheyAreAskedFor) {
    nyx::PortStats stats;
    stats.add_mac_stats()->set_type(0);
    stats.add_mac_stats()->set_type(1);
    stats.mutable_mac_stats(1)->set_count(5);
    shown_s shown = object_head("port");
    append_object(stats, "", {}, &shown);
    const size_t all = shown.rows.rows.size();
    shown_s some = shown;
    ASSERT_TRUE(select_rows({.all = false}, &some).ok());
    EXPECT_EQ(some.rows.rows.size(), all - 1);
    EXPECT_EQ(text_of(some, "mac_stats[0]"), "no such field");
    EXPECT_NE(text_for_people(some, 80).find("\n1 more rows"), std::string::npos);
    ASSERT_TRUE(select_rows({.where = {"field~[0]"}, .all = false}, &shown).ok());
    EXPECT_EQ(text_of(shown, "mac_stats[0]"), "0");
}

TEST(Rates, RowsThatChanged_AreKeptOnASmallScreen) {
    const shown_s before = counted({{"a", 1, 1}, {"b", 1, 1}, {"c", 1, 1}, {"d", 1, 1}});
    shown_s now = counted({{"a", 1, 1}, {"b", 1, 1}, {"c", 2, 1}, {"d", 3, 1}});
    keep_changed(before, 3, &now);
    EXPECT_EQ(now.rows.rows, counted({{"a", 1, 1}, {"c", 2, 1}, {"d", 3, 1}}).rows.rows);
    EXPECT_EQ(now.left_out, 1u);
}

struct diff_case_s {
    std::string before;
    std::string after;
    std::string text;
};

TEST(JsonDiff, Differences_AreNamedByPathAndId) {
    const std::vector<diff_case_s> cases = {
        {R"({"a": 1, "b": [1, 2]})", R"({"b": [1, 2], "a": 1})", "no differences\n"},
        {R"({"a": {"b": 5}})", R"({"a": {"b": 3}})", "a.b: 5 -> 3 (-2)\n"},
        // 64-bit numbers are texts in protobuf's JSON.
        {R"({"a": "0"})", R"({"a": "18446744073709551615"})",
         "a: 0 -> 18446744073709551615 (+18446744073709551615)\n"},
        {R"({"a": "up"})", R"({"a": "down"})", "a: up -> down\n"},
        {R"([{"spec": {"id": "x"}, "n": 1}, {"spec": {"id": "y"}, "n": 2}])",
         R"([{"spec": {"id": "y"}, "n": 2}, {"spec": {"id": "x"}, "n": 4}])", "[x].n: 1 -> 4 (+3)\n"},
        {R"({"l": [{"id": 10}, {"id": 9}]})", R"({"l": [{"id": 9}]})", "l[10]: {\"id\":10} -> (absent)\n"},
        // An id that occurs twice identifies nothing.
        {R"([{"id": 1, "n": 1}, {"id": 1, "n": 2}])", R"([{"id": 1, "n": 1}, {"id": 1, "n": 3}])",
         "[1].n: 2 -> 3 (+1)\n"},
        {R"({"a": 1})", R"({"b": null})", "a: 1 -> (absent)\nb: (absent) -> -\n"},
        {"1", "[]", "(document): 1 -> []\n"},
    };
    for (const diff_case_s &c : cases) {
        EXPECT_EQ(differences_text(json_differences(json(c.before), json(c.after))), c.text) << c.before;
    }
}

TEST(JsonDiff, CountersAndVolatileFields_AreLeftOutWhereTheTypeIsKnown) {
    const json_t before =
        json(R"({"ports": {"stats": {"mac_stats": [{"type": 0, "count": "1"}], "stats_word": 1}},
                                   "heap": {"stats": {"arena": 1}, "api_status": "API_STATUS_OK"}})");
    const json_t after =
        json(R"({"ports": {"stats": {"mac_stats": [{"type": 0, "count": "4"}], "stats_word": 2}},
                                  "heap": {"api_status": "API_STATUS_OK"}})");
    const differences_s different = json_differences(
        before, after, {{"ports", nyx::Port::descriptor()}, {"heap", nyx::HeapGetResponse::descriptor()}});
    EXPECT_EQ(differences_text(different), "ports.stats.stats_word: 1 -> 2 (+1)\n");
    EXPECT_EQ(different.left_out, 2U);
    EXPECT_EQ(json_differences(before, after).rows.size(), 3U);
}

TEST(JsonDiff, SortedDocuments_HaveOneOrder) {
    EXPECT_EQ(dump_json(sorted_json(json(R"({"b": [{"id": 10}, {"id": 9, "a": [2, 1]}], "a": 1})"))),
              R"({"a":1,"b":[{"a":[2,1],"id":9},{"id":10}]})");
}

std::string port_metrics(const std::string &vendor) {
    nyx::PortGetResponse response;
    for (int i = 0; i < 2; i++) {  // the same port twice
        nyx::Port *port = response.add_response();
        port->mutable_spec()->set_port_number(7);
        port->mutable_status()->mutable_xcvr_status()->set_vendor_name(vendor);
        port->mutable_status()->set_status_word_1(i);
    }
    metrics_s metrics;
    metrics.add({.prefix = "port",
                 .method = "PortSvc.PortGet",
                 .list = "response",
                 .labels = {{"spec.port_number", "port"}},
                 .facts = {{"status.xcvr_status.vendor_name", "vendor"}}},
                response);
    return metrics.text();
}

TEST(Metrics, ForeignTexts_StayInTheirQuotes) {
    EXPECT_THAT(port_metrics("a\\b\"c\nnyx_up 1\x1b\xff"),
                testing::HasSubstr(R"(nyx_port_info{port="7",vendor="a\\b\"c?nyx_up 1?)"
                                   "\xef\xbf\xbd\"} 1\n"));
    const std::string umlauts = port_metrics(std::string(127, 'x') + "\xc3\xbc...");
    EXPECT_THAT(umlauts, testing::HasSubstr("vendor=\"" + std::string(127, 'x') + "\"} 1\n"));
}

TEST(Metrics, OneSeriesOfObjectsWithTheSameLabels_AndOnlyOfNumbers) {
    const std::string text = port_metrics("v");
    EXPECT_THAT(text, testing::HasSubstr("\nnyx_port_status_word_1{port=\"7\"} 0\n#"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("id_data")));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("nyx_port_number{")));
}

}  // namespace
