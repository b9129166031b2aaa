// The table service through real gRPC calls, against the in-memory table library.

#include "svc/table_service.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <thread>

#include "nyx/types/object.pb.h"
#include "sim/api/tables.h"
#include "sim/faults/faults.h"
#include "tests/grpc_fixture.h"
#include "tests/table_layouts.h"

static int g_flow_info_conversions = 0;

// Called in place of the library's own, which it calls.
void nyx_flow_info_proto_to_api_spec(nyx_tbl_flow_info_spec_s *spec, const nyx::flow_infoSpec *proto) {
    constexpr const char *k_symbol =
        "_Z31nyx_flow_info_proto_to_api_specP24nyx_tbl_flow_info_spec_sPKN3nyx13flow_infoSpecE";
    static const auto real =
        reinterpret_cast<decltype(&nyx_flow_info_proto_to_api_spec)>(dlsym(RTLD_NEXT, k_symbol));
    g_flow_info_conversions++;
    real(spec, proto);
}

namespace {

using google::protobuf::util::MessageDifferencer;
using test::entry_s;
using test::fit_e;
using test::make_entry;
using test::Message;
using test::table_layout_s;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using types::API_STATUS_ERROR;
using types::API_STATUS_OK;

using entry_list = std::vector<entry_s>;

MATCHER_P(EqualsMessage, expected, "equals " + expected->ShortDebugString()) {
    return MessageDifferencer::Equals(arg, *expected);
}

// Makes each of the table's operations fail with what `fault` says.
void arm_all(const table_layout_s &layout, const std::string &fault) {
    for (const char *operation : {"create", "update", "read", "delete"}) {
        sim::add_fault(sim::parse_fault(sim::table_operation(layout.name, operation) + ":" + fault));
    }
}

class table_service : public testing::Test {
 protected:
    table_service() {
        sim::clear_tables();
        sim::clear_faults();
    }
    ~table_service() override { sim::clear_faults(); }

    // Each makes one call and expects gRPC status OK and a response with this status, from get() also with
    // what the entries' records read as.
    void create(const table_layout_s &layout, const entry_list &entries, int status = API_STATUS_OK) {
        call(layout.name + "Create", test::write_request(layout, entries),
             test::response(layout, "", status));
    }

    void update(const table_layout_s &layout, const entry_list &entries, int status = API_STATUS_OK) {
        call(layout.name + "Update", test::write_request(layout, entries),
             test::response(layout, "", status));
    }

    void get(const table_layout_s &layout, const entry_list &entries, int status = API_STATUS_OK) {
        call(layout.name + "Get", test::keys_request(layout, "Get", entries),
             test::get_response(layout, entries, status));
    }

    void remove(const table_layout_s &layout, const entry_list &entries, int status = API_STATUS_OK) {
        call(layout.name + "Delete", test::keys_request(layout, "Delete", entries),
             test::response(layout, "Delete", status));
    }

    static std::vector<test::record> stored(const table_layout_s &layout) {
        return sim::table_entries(layout.number);
    }

    const std::unique_ptr<grpc::Service> service_ = make_table_service();
    test::grpc_server server_{{service_.get()}};

 private:
    void call(const std::string &method, const std::shared_ptr<Message> &req,
              const std::shared_ptr<Message> &expected) {
        const std::unique_ptr<Message> rsp(expected->New());
        const auto status = server_.call("/nyx.NyxTblSvc/" + method, *req, rsp.get());
        EXPECT_TRUE(status.ok()) << method << ": " << status.error_message();
        EXPECT_THAT(*rsp, EqualsMessage(expected)) << method;
    }
};

// Suites over tables, by name: gtest shows names better than layouts.
class every_table : public table_service, public testing::WithParamInterface<std::string> {
 protected:
    const table_layout_s &layout() const { return test::table_layout(GetParam()); }

    // Ids of all actions with data, and some of actions without.
    std::vector<uint32_t> action_ids() const {
        std::vector<uint32_t> ids;
        for (const auto &action : layout().actions) {
            ids.push_back(action.id);
        }
        if (!layout().action(0)) {
            ids.push_back(0);
        }
        ids.push_back(200);
        return ids;
    }
};

class ternary_table : public every_table {};

std::vector<std::string> table_names(bool ternary_only) {
    std::vector<std::string> names;
    for (const auto &layout : test::table_layouts()) {
        if (layout.ternary || !ternary_only) {
            names.push_back(layout.name);
        }
    }
    return names;
}

std::string param_name(const testing::TestParamInfo<std::string> &info) { return info.param; }

INSTANTIATE_TEST_SUITE_P(tables, every_table, testing::ValuesIn(table_names(false)), param_name);
INSTANTIATE_TEST_SUITE_P(tables, ternary_table, testing::ValuesIn(table_names(true)), param_name);

void expect_places(const std::string &message, const std::vector<test::field_layout_s> &fields) {
    const auto *type = test::new_message(message)->GetDescriptor();
    for (const auto &field : fields) {
        const auto *member = type->FindFieldByName(field.name);
        ASSERT_TRUE(member) << message << "." << field.name;
        EXPECT_EQ(member->options().GetExtension(types::record_width), field.width) << member->full_name();
        EXPECT_EQ(member->options().GetExtension(types::record_offset), field.offset) << member->full_name();
    }
}

TEST_P(every_table, RecordsAndFieldOptionsFollowTheLayout) {
    const auto &library = sim::table_infos()[layout().number];
    EXPECT_EQ(library.name, GetParam());
    EXPECT_EQ(library.record_size, layout().record_size);
    EXPECT_EQ(library.key_size, layout().key_size);
    expect_places(GetParam() + "_key_t", layout().key);
    if (layout().ternary) {
        expect_places(GetParam() + "_key_mask_t", layout().mask);
    }
    for (const auto &action : layout().actions) {
        expect_places(action.message, action.fields);
    }
}

TEST_P(every_table, StoredEntriesAreReadChangedAndRemovedByTheirKeys) {
    const auto ids = action_ids();
    for (size_t i = 0; i < ids.size(); i++) {
        SCOPED_TRACE("action " + std::to_string(ids[i]));
        sim::clear_tables();
        const auto entry = make_entry(layout(), ids[i], 0x01, 0x60);
        const auto other = make_entry(layout(), ids[i], 0x91, 0xc0);
        create(layout(), {entry, other});
        EXPECT_THAT(stored(layout()), UnorderedElementsAre(entry.record, other.record));
        get(layout(), {other, entry});

        const auto changed = make_entry(layout(), ids[(i + 1) % ids.size()], 0x01, 0x30);
        update(layout(), {changed});
        EXPECT_THAT(stored(layout()), UnorderedElementsAre(changed.record, other.record));
        get(layout(), {changed});

        remove(layout(), {changed});
        EXPECT_THAT(stored(layout()), ElementsAre(other.record));
    }
}

TEST_P(every_table, ValuesAreCutAndFilledToTheWidthOfTheRecord) {
    for (const auto fit : {fit_e::FIT_TOO_WIDE, fit_e::FIT_TOO_SHORT}) {
        for (const uint32_t id : action_ids()) {
            SCOPED_TRACE("action " + std::to_string(id));
            const auto entry = make_entry(layout(), id, 0x01, 0x60, fit);
            create(layout(), {entry});
            EXPECT_THAT(stored(layout()), ElementsAre(entry.record));
            get(layout(), {entry});
            remove(layout(), {entry});
            EXPECT_THAT(stored(layout()), IsEmpty());
        }
    }
}

void clear_mask(const table_layout_s &layout, test::record *rec) {
    std::fill_n(rec->begin() + static_cast<ptrdiff_t>(layout.mask_flag_offset), 1 + layout.key_size, 0);
}

TEST_P(ternary_table, MaskIsStoredOnlyWithItsFlag) {
    const auto masked = make_entry(layout(), 1, 0x01, 0x60);
    auto no_flag = make_entry(layout(), 1, 0x31, 0x60);
    test::set_number(no_flag.spec.get(), "key_mask_valid", 0);
    clear_mask(layout(), &no_flag.record);
    auto no_mask = make_entry(layout(), 1, 0x51, 0x60);
    const auto *mask = no_mask.spec->GetDescriptor()->FindFieldByName("key_mask");
    no_mask.spec->GetReflection()->ClearField(no_mask.spec.get(), mask);
    clear_mask(layout(), &no_mask.record);
    no_mask.record[layout().mask_flag_offset] = 1;

    create(layout(), {masked, no_flag, no_mask});
    EXPECT_THAT(stored(layout()), UnorderedElementsAre(masked.record, no_flag.record, no_mask.record));
    get(layout(), {masked, no_flag, no_mask});
}

TEST_P(ternary_table, AnyMaskFlagButZeroCountsAsOne) {
    for (const uint32_t flag : {7U, 0x100U, 0x80000000U}) {
        auto entry = make_entry(layout(), 1, 0x01, 0x60);
        test::set_number(entry.spec.get(), "key_mask_valid", flag);
        create(layout(), {entry});
        EXPECT_THAT(stored(layout()), ElementsAre(entry.record));
        remove(layout(), {entry});
    }
}

TEST_F(table_service, DataOfAnotherActionOrNone_ReadsAsZeros) {
    const auto &layout = test::table_layout("conntrack_ingress");
    auto other = make_entry(layout, 0, 0x01, 0x60);
    test::set_number(other.spec.get(), "action_id", 1);
    auto none = make_entry(layout, 1, 0x31, 0x60);
    none.spec->GetReflection()->ClearOneof(none.spec.get(),
                                           none.spec->GetDescriptor()->FindOneofByName("Data"));
    for (auto *entry : {&other, &none}) {
        entry->record[0] = 1;
        std::fill(entry->record.begin() + 5, entry->record.end(), 0);
    }
    create(layout, {other, none});
    EXPECT_THAT(stored(layout), UnorderedElementsAre(other.record, none.record));
    get(layout, {other, none});
}

TEST_F(table_service, RequestsWithoutEntriesCallNothing) {
    const auto &layout = test::table_layout("nat_rewrite");
    arm_all(layout, "code=6");
    create(layout, {});
    update(layout, {});
    get(layout, {});
    remove(layout, {});
}

class failing_entries : public table_service {
 protected:
    // What a Get answers for the entry when reading it failed.
    entry_s unread(entry_s entry) const {
        entry.record.assign(layout_.record_size, 0);
        return entry;
    }

    const table_layout_s &layout_ = test::table_layout("nat_rewrite");
    const entry_s first_ = make_entry(layout_, 0, 0x01, 0x60);
    const entry_s second_ = make_entry(layout_, 0, 0x11, 0x70);
    const entry_s third_ = make_entry(layout_, 0, 0x21, 0x80);
};

TEST_F(failing_entries, SecondOfThreeAlreadyPresent_WritesTheOthers) {
    create(layout_, {second_});
    auto again = second_;
    again.spec = make_entry(layout_, 0, 0x11, 0x90).spec;
    create(layout_, {first_, again, third_}, API_STATUS_ERROR);
    EXPECT_THAT(stored(layout_), UnorderedElementsAre(first_.record, second_.record, third_.record));
}

TEST_F(failing_entries, SecondOfThreeRefused_HandlesTheOthers) {
    arm_all(layout_, "code=10,nth=2");
    create(layout_, {first_, second_, third_}, API_STATUS_ERROR);
    EXPECT_THAT(stored(layout_), UnorderedElementsAre(first_.record, third_.record));
    create(layout_, {second_});
    get(layout_, {first_, unread(second_), third_}, API_STATUS_ERROR);

    const auto changed_first = make_entry(layout_, 0, 0x01, 0xa0);
    const auto changed_third = make_entry(layout_, 0, 0x21, 0xc0);
    update(layout_, {changed_first, make_entry(layout_, 0, 0x11, 0xb0), changed_third}, API_STATUS_ERROR);
    EXPECT_THAT(stored(layout_),
                UnorderedElementsAre(changed_first.record, second_.record, changed_third.record));
    remove(layout_, {first_, second_, third_}, API_STATUS_ERROR);
    EXPECT_THAT(stored(layout_), ElementsAre(second_.record));
}

TEST_F(failing_entries, MissingEntriesAreErrors) {
    create(layout_, {second_});
    get(layout_, {unread(first_), second_}, API_STATUS_ERROR);
    update(layout_, {first_}, API_STATUS_ERROR);
    remove(layout_, {first_}, API_STATUS_ERROR);
    EXPECT_THAT(stored(layout_), ElementsAre(second_.record));
}

TEST_F(failing_entries, ReasonsAreNotReported) {
    for (const char *code : {"1", "2", "4", "5", "6", "10", "39", "255", "256"}) {
        SCOPED_TRACE(code);
        sim::clear_faults();
        arm_all(layout_, std::string("code=") + code);
        create(layout_, {first_}, API_STATUS_ERROR);
        update(layout_, {first_}, API_STATUS_ERROR);
        get(layout_, {unread(first_)}, API_STATUS_ERROR);
        remove(layout_, {first_}, API_STATUS_ERROR);
    }
}

TEST(table_functions, ReturnTheCodeWhoseTranslationIsInTheResponse) {
    sim::clear_tables();
    nyx::flowRequest req;
    req.add_request()->mutable_key()->set_k2(1);
    nyx::flowResponse rsp;
    EXPECT_EQ(nyx_svc_flow_create(&req, &rsp), sdk::SDK_RET_OK);
    EXPECT_EQ(rsp.api_status(), API_STATUS_OK);
    req.add_request()->mutable_key()->set_k2(2);
    EXPECT_EQ(nyx_svc_flow_create(&req, &rsp), sdk::SDK_RET_MAX_RETURN_VALUE);
    EXPECT_EQ(rsp.api_status(), API_STATUS_ERROR);
}

TEST(table_functions, FlowInfoConverterFillsTheDataPartOnly) {
    const auto entry = make_entry(test::table_layout("flow_info"), 0, 0x01, 0x60);
    const auto nothing = test::new_message("flow_infoSpec");
    for (const auto &[spec, data] : {std::pair{entry.spec, entry.record}, {nothing, test::record(69)}}) {
        test::record expected(69, 0xaa);
        std::copy(data.begin() + 5, data.end(), expected.begin() + 5);
        nyx_tbl_flow_info_spec_s rec;
        memset(&rec, 0xaa, sizeof(rec));
        nyx_flow_info_proto_to_api_spec(&rec, dynamic_cast<const nyx::flow_infoSpec *>(spec.get()));
        std::array<uint8_t, sizeof(rec)> bytes;
        memcpy(bytes.data(), &rec, sizeof(rec));
        EXPECT_THAT(bytes, ElementsAreArray(expected));
    }
}

TEST(table_functions, FlowInfoIsConvertedByTheConverterThatIsOffered) {
    nyx::flow_infoRequest req;
    nyx::flow_infoResponse rsp;
    for (const uint32_t action : {0U, 1U, 256U}) {
        req.add_request()->set_action_id(action);
    }
    g_flow_info_conversions = 0;
    (void)nyx_svc_flow_info_create(&req, &rsp);
    EXPECT_EQ(g_flow_info_conversions, 2);  // not for action 1, which has no data
}

void create_terminations(const std::shared_ptr<grpc::Channel> &channel, uint32_t first, uint32_t count) {
    for (uint32_t key = first; key < first + count; key++) {
        nyx::tunnel_terminate_sa_v4Request req;
        req.add_request()->mutable_key()->set_k2(key);
        req.mutable_request(0)->mutable_tunnel_terminate_sa_a_data()->set_d1(key);
        nyx::tunnel_terminate_sa_v4Response rsp;
        EXPECT_TRUE(test::unary_call(channel, "/nyx.NyxTblSvc/tunnel_terminate_sa_v4Create", req, &rsp).ok());
        EXPECT_EQ(rsp.api_status(), API_STATUS_OK);
    }
}

TEST_F(table_service, CallsFromSeveralThreadsAtOnceAllArrive) {
    constexpr uint32_t k_threads = 4, k_entries = 100;
    // Makes calls meet: while one waits in the table library, others convert their entries.
    sim::add_fault(sim::parse_fault("nyx_tbl_tunnel_terminate_sa_v4_create:delay=1"));
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < k_threads; i++) {
        threads.emplace_back(create_terminations, server_.channel(), 1 + i * k_entries, k_entries);
    }
    for (auto &thread : threads) {
        thread.join();
    }
    std::set<test::record> expected;
    for (uint32_t key = 1; key <= k_threads * k_entries; key++) {
        const auto low = static_cast<uint8_t>(key), high = static_cast<uint8_t>(key >> 8);
        expected.insert({0, 0, low, high, 0, 0, low, high, 0});
    }
    const auto records = stored(test::table_layout("tunnel_terminate_sa_v4"));
    EXPECT_EQ(std::set(records.begin(), records.end()), expected);
}

}  // namespace
