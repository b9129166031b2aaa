// The operations on interfaces through real gRPC calls: batches, outcomes, log lines.

#include <limits.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <boost/algorithm/string/erase.hpp>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include "agent_api/agent_state.h"
#include "sim/api/batches.h"
#include "svc/host_if_mac.h"
#include "svc/interface.h"
#include "tests/card_fixture.h"

namespace {

using test::IsMessage;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using statuses = std::vector<int>;

// Ids of three loopback interfaces that the card doesn't have, and their key texts.
const std::vector<std::string> k_ids = {"A---------------", "B---------------", "C---------------"};
std::string key_text(char letter) {
    return std::string(letter == 'A'   ? "41"
                       : letter == 'B' ? "42"
                                       : "43") +
           "2d2d2d-2d2d-2d2d-2d2d-2d2d2d2d2d2d";
}

template <class Request>
Request with_batch(uint64_t batch) {
    Request req;
    if (batch) {
        req.mutable_batch_ctxt()->set_batch_cookie(batch);
    }
    return req;
}

class interface_service : public test::card_service<nyx::IfSvc, IfSvcImpl> {
 protected:
    interface_service() {
        g_host_if_mac_file = folder_ / "mac.json";
        trace_.log().trace_level = 1;
    }

    // Each makes one call and returns the response's statuses.
    statuses create(const std::vector<std::string> &ids, uint64_t batch = 0) {
        return write("Create", ids, 0, batch);
    }
    statuses update(const std::vector<std::string> &ids, uint64_t batch = 0) {
        return write("Update", ids, types::STATE_DOWN, batch);
    }
    statuses remove(const std::vector<std::string> &ids, uint64_t batch = 0) {
        auto req = with_batch<nyx::InterfaceDeleteRequest>(batch);
        req.mutable_id()->Add(ids.begin(), ids.end());
        const auto rsp = call<nyx::InterfaceDeleteResponse>("InterfaceDelete", req);
        return {rsp.api_status().begin(), rsp.api_status().end()};
    }
    nyx::InterfaceGetResponse get(const std::vector<std::string> &ids = {}) {
        return read<nyx::InterfaceGetRequest, nyx::InterfaceGetResponse>("InterfaceGet", ids);
    }
    int write_one(const std::string &method, const std::string &spec) {
        nyx::InterfaceRequest req;
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(spec, req.add_request())) << spec;
        return call<nyx::InterfaceResponse>("Interface" + method, req).api_status();
    }

    // The ids of loopbacks, each with "!" when it was updated.
    std::vector<std::string> loopbacks() {
        std::vector<std::string> found;
        const auto rsp = get();
        for (const auto &entry : rsp.response()) {
            if (entry.spec().has_loopback_if_spec()) {
                found.push_back(entry.spec().id() +
                                (entry.spec().admin_status() == types::STATE_DOWN ? "!" : ""));
            }
        }
        return found;
    }

    static uint64_t open_batch() {
        nyx_batch_params_s params = {};
        return nyx_batch_start(&params);
    }

    // The MAC file without its white space; empty when there is none.
    std::string mac_file() {
        std::ifstream file(g_host_if_mac_file);
        std::string text(std::istreambuf_iterator<char>(file), {});
        std::erase_if(text, isspace);
        return text;
    }

    test::temporary_folder folder_;

 private:
    statuses write(const std::string &operation, const std::vector<std::string> &ids, int state,
                   uint64_t batch) {
        auto req = with_batch<nyx::InterfaceRequest>(batch);
        for (const auto &id : ids) {
            auto *spec = req.add_request();
            spec->set_id(id);
            spec->set_admin_status(static_cast<types::State>(state));
            spec->mutable_loopback_if_spec();
        }
        return {call<nyx::InterfaceResponse>("Interface" + operation, req).api_status()};
    }
};

TEST_F(interface_service, OwnBatchTakesEffectAtOnce) {
    EXPECT_THAT(create(k_ids), ElementsAre(0));
    EXPECT_THAT(loopbacks(), ElementsAre(k_ids[0], k_ids[1], k_ids[2]));
    EXPECT_THAT(update({k_ids[0], k_ids[2]}), ElementsAre(0));
    EXPECT_THAT(loopbacks(), ElementsAre(k_ids[0] + "!", k_ids[1], k_ids[2] + "!"));
    EXPECT_THAT(remove({k_ids[2], k_ids[1]}), ElementsAre(0, 0));
    EXPECT_THAT(loopbacks(), ElementsAre(k_ids[0] + "!"));
    EXPECT_EQ(sim::open_batches(), 0U);
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(interface_service, CallersBatchIsNeitherOpenedNorClosed) {
    create({k_ids[0], k_ids[1]});
    uint64_t batch = open_batch();
    for (const char *operation : {"start", "commit", "destroy"}) {
        add_fault("nyx_batch_" + std::string(operation) + ":code=1");
    }
    for (const bool commits : {false, true}) {
        EXPECT_THAT(create({k_ids[2]}, batch), ElementsAre(0));
        EXPECT_THAT(update({k_ids[0]}, batch), ElementsAre(0));
        EXPECT_THAT(remove({k_ids[1]}, batch), IsEmpty());
        EXPECT_THAT(loopbacks(), ElementsAre(k_ids[0], k_ids[1]));
        EXPECT_EQ(sim::open_batches(), 1U);
        sim::clear_faults();
        EXPECT_EQ(commits ? nyx_batch_commit(batch) : nyx_batch_destroy(batch), sdk::SDK_RET_OK);
        EXPECT_THAT(loopbacks(),
                    commits ? ElementsAre(k_ids[0] + "!", k_ids[2]) : ElementsAre(k_ids[0], k_ids[1]));
        batch = open_batch();
    }
    EXPECT_EQ(core::agent_state::state()->epoch, 1U);  // of the create at the start
}

struct failure_s {
    const char *operation;  // of the service
    const char *fault;      // what fails with SDK_RET_RETRY at the second of three entries
    bool once;              // called once in a request, not once for each entry
    int status;
    const char *message;
};

void PrintTo(const failure_s &failure, std::ostream *os) { *os << failure.operation << " " << failure.fault; }

// B stands for the key text of the second entry.
const failure_s k_failures[] = {
    {"Create", "nyx_batch_start", true, 1, "Failed to create a new batch, interface creation failed"},
    {"Create", "nyx_ms::interface_create", false, 7,
     "Failed to create interface B, err \"retry the operation\""},
    {"Create", "nyx_if_read", false, 3, "Failed to create interface B, interface exists already"},
    {"Create", "nyx_if_create", false, 7, "Failed to create interface B, err \"retry the operation\""},
    {"Create", "nyx_batch_commit", true, 7, ""},
    {"Update", "nyx_batch_start", true, 1, "Failed to create a new batch, interface update failed"},
    {"Update", "nyx_ms::interface_update", false, 7,
     "Failed to update interface B, err \"retry the operation\""},
    {"Update", "nyx_if_read", false, 7, "Failed to read interface B, err \"retry the operation\""},
    {"Update", "nyx_if_update", false, 7, "Failed to update interface B, err \"retry the operation\""},
    {"Update", "nyx_batch_commit", true, 7, ""},
    {"Delete", "nyx_batch_start", true, 1, "Failed to create a new batch, interface delete failed"},
    {"Delete", "nyx_ms::interface_delete", false, 7, "Failed to delete interface B, interface not found"},
    {"Delete", "nyx_if_read", false, 5, "Failed to delete interface B, interface not found"},
    {"Delete", "nyx_if_delete", false, 7, "Failed to delete interface B, err \"retry the operation\""},
    {"Delete", "nyx_batch_commit", true, 7, ""},
};

class failing_platform : public interface_service, public testing::WithParamInterface<failure_s> {
 protected:
    failing_platform() {
        if (operation_ != "Create") {
            create(k_ids);
        }
    }

    statuses make_call(uint64_t batch = 0) {
        return operation_ == "Create"   ? create(k_ids, batch)
               : operation_ == "Update" ? update(k_ids, batch)
                                        : remove(k_ids, batch);
    }

    void arm() { add_fault(GetParam().fault + std::string(GetParam().once ? ":code=10" : ":code=10,nth=2")); }

    std::vector<std::string> expected_messages() const {
        std::string text = GetParam().message;
        if (const auto at = text.find(" B,"); at != text.npos) {
            text.replace(at + 1, 1, key_text('B'));
        }
        return text.empty() ? std::vector<std::string>() : std::vector{text};
    }

    // The loopbacks after the first `count` entries of the call.
    std::vector<std::string> after(size_t count) const {
        std::vector<std::string> ids;
        for (size_t i = 0; i < k_ids.size(); i++) {
            if (operation_ == "Update" || (i < count) == (operation_ == "Create")) {
                ids.push_back(k_ids[i] + (operation_ == "Update" && i < count ? "!" : ""));
            }
        }
        return ids;
    }

    const std::string operation_ = GetParam().operation;
};

INSTANTIATE_TEST_SUITE_P(calls, failing_platform, testing::ValuesIn(k_failures), [](const auto &call) {
    return call.param.operation + boost::erase_all_copy(std::string(call.param.fault), "::");
});

TEST_P(failing_platform, OwnBatchIsDroppedWhole_AndTheNextCallWorks) {
    arm();
    const bool many = operation_ == "Delete" && GetParam().fault != std::string("nyx_batch_start");
    EXPECT_EQ(make_call(), statuses(many ? 3 : 1, GetParam().status));
    EXPECT_EQ(trace_.messages(), expected_messages());
    EXPECT_EQ(sim::open_batches(), 0U);
    sim::clear_faults();
    EXPECT_EQ(loopbacks(), after(0));
    EXPECT_THAT(make_call(), Each(0));
    EXPECT_EQ(loopbacks(), after(3));
}

TEST_P(failing_platform, CallersBatchKeepsTheEntriesBefore) {
    const uint64_t batch = open_batch();
    arm();
    const bool fails = !GetParam().once;
    EXPECT_EQ(make_call(batch),
              operation_ == "Delete" ? statuses() : statuses{fails ? GetParam().status : 0});
    EXPECT_EQ(trace_.messages(), fails ? expected_messages() : std::vector<std::string>());
    sim::clear_faults();
    EXPECT_EQ(nyx_batch_commit(batch), sdk::SDK_RET_OK);
    EXPECT_EQ(loopbacks(), after(fails ? 1 : 3));
}

TEST_F(interface_service, DeleteAnswersOneStatusPerId_WhenOneIsUnknown) {
    create({k_ids[0], k_ids[2]});
    trace_.log().trace_level = 4;
    trace_.log().logger()->set_level(spdlog::level::debug);
    EXPECT_THAT(remove(k_ids), ElementsAre(5, 5, 5));
    EXPECT_THAT(loopbacks(), ElementsAre(k_ids[0], k_ids[2]));
    EXPECT_THAT(trace_.messages(),
                ElementsAre("Deleting interface " + key_text('A'), "Deleting interface " + key_text('B'),
                            "Failed to delete interface " + key_text('B') + ", interface not found"));
}

TEST_F(interface_service, RefusedSpecificationEndsTheRequest) {
    nyx::InterfaceRequest req;
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(
        "request { id: 'A' loopback_if_spec {} } request { id: 'B' } request { id: 'C' loopback_if_spec {} }",
        &req));
    EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceCreate", req).api_status(), 2);
    EXPECT_THAT(loopbacks(), IsEmpty());
    create({"A"});
    req.mutable_request(0)->set_admin_status(types::STATE_DOWN);
    EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceUpdate", req).api_status(), 2);
    EXPECT_THAT(loopbacks(), ElementsAre("A" + std::string(15, '\0')));
    EXPECT_EQ(sim::open_batches(), 0U);
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(interface_service, RequestsWithoutEntriesAreRefused_BeforeABatchIsOpened) {
    add_fault("nyx_batch_start:code=1");
    EXPECT_THAT(create({}), ElementsAre(2));
    EXPECT_THAT(update({}), ElementsAre(2));
    EXPECT_THAT(remove({}), ElementsAre(2));
    EXPECT_THAT(remove({}, 77), ElementsAre(2));
    EXPECT_THAT(trace_.messages(), IsEmpty());
    EXPECT_EQ(core::agent_state::state()->epoch, 0U);
}

TEST_F(interface_service, FunctionsReturnTheCode) {
    nyx::InterfaceResponse write;
    nyx::InterfaceDeleteResponse deleted;
    nyx::InterfaceGetResponse read;
    EXPECT_EQ(nyx_svc_interface_create(nullptr, &write), sdk::SDK_RET_INVALID_ARG);
    EXPECT_EQ(nyx_svc_interface_update(nullptr, &write), sdk::SDK_RET_INVALID_ARG);
    EXPECT_EQ(nyx_svc_interface_delete(nullptr, &deleted), sdk::SDK_RET_INVALID_ARG);
    nyx_svc_interface_get(nullptr, &read);
    EXPECT_EQ(write.api_status(), 2);
    EXPECT_THAT(deleted.api_status(), ElementsAre(2));
    EXPECT_EQ(read.api_status(), 2);

    auto req = with_batch<nyx::InterfaceDeleteRequest>(open_batch());
    req.add_id(k_ids[0]);
    EXPECT_EQ(nyx_svc_interface_delete(&req, &deleted), sdk::SDK_RET_LOOKUP_FAILURE);
    nyx::InterfaceRequest one;
    one.add_request()->mutable_loopback_if_spec();
    EXPECT_EQ(nyx_svc_interface_update(&one, &write), sdk::SDK_RET_LOOKUP_FAILURE);
    add_fault("nyx_batch_start:code=1");
    EXPECT_EQ(nyx_svc_interface_create(&one, &write), sdk::SDK_RET_GENERIC_ERROR);
}

TEST_F(interface_service, IdsAboveSixteenBytesActOnTheZeroKey) {
    const std::string long_id(17, 'z');
    EXPECT_THAT(create({long_id}), ElementsAre(0));
    EXPECT_THAT(create({""}), ElementsAre(3));
    EXPECT_EQ(get({long_id, ""}).response_size(), 2);
    EXPECT_THAT(remove({long_id}), ElementsAre(0));
    EXPECT_THAT(loopbacks(), IsEmpty());
}

TEST_F(interface_service, ReadsKeepWhatCameBeforeAFailure) {
    create({k_ids[0], k_ids[2]});
    const auto unknown = get({k_ids[2], k_ids[0], k_ids[1], k_ids[0]});
    EXPECT_EQ(unknown.api_status(), 5);
    ASSERT_EQ(unknown.response_size(), 2);
    EXPECT_EQ(unknown.response(0).spec().id(), k_ids[2]);
    EXPECT_EQ(unknown.response(1).spec().id(), k_ids[0]);
    EXPECT_EQ(get().response_size(), 6);
    add_fault("nyx_if_read_all:code=6,nth=3");
    const auto walk = get();
    EXPECT_EQ(walk.api_status(), 6);
    EXPECT_EQ(walk.response_size(), 2);
    add_fault("nyx_if_read:code=300");
    EXPECT_THAT(get({k_ids[0]}), IsMessage("api_status: API_STATUS_ERROR"));
}

TEST_F(interface_service, BypassLeavesTheInterfaceApiOut) {
    core::agent_state::state()->if_api_bypass = true;
    for (const char *operation : {"read", "create", "update", "delete"}) {
        add_fault("nyx_if_" + std::string(operation) + ":code=1");
    }
    uint64_t epoch = 0;
    for (const int status : {0, 9}) {
        EXPECT_THAT(create(k_ids), ElementsAre(status));
        EXPECT_EQ(sim::last_batch_params().epoch, ++epoch);
        EXPECT_THAT(update(k_ids), ElementsAre(status));
        EXPECT_EQ(sim::last_batch_params().epoch, ++epoch);
        EXPECT_THAT(remove(k_ids), ElementsAre(status, status, status));
        EXPECT_EQ(sim::last_batch_params().epoch, ++epoch);
        EXPECT_EQ(write_one("Create", "id: 'h' host_if_spec { name: 'h' mac_address: 1 }"), status);
        epoch++;
        for (const char *hook : {"create", "update", "delete"}) {
            add_fault("nyx_ms::interface_" + std::string(hook) + ":code=39");
        }
    }
    EXPECT_EQ(sim::open_batches(), 0U);
    EXPECT_EQ(mac_file(), "");
    std::string zeros;
    for (int i = 0; i < 16; i++) {
        zeros += "\\000";
    }
    const std::string zero_entry = "response { spec { id: '" + zeros + "' } status {} stats {} }";
    EXPECT_THAT(get({k_ids[0], k_ids[1]}), IsMessage(zero_entry + zero_entry));
}

TEST_F(interface_service, EveryOwnBatchHasAnEpochOfItsOwn) {
    core::agent_state::state()->epoch = 41;
    create({k_ids[0]});
    EXPECT_EQ(sim::last_batch_params().epoch, 42U);
    EXPECT_EQ(sim::last_batch_params().async, 0);
    constexpr int k_threads = 4, k_calls = 50;
    std::vector<std::thread> threads;
    for (int i = 0; i < k_threads; i++) {
        threads.emplace_back([&] {
            for (int call = 0; call < k_calls; call++) {
                EXPECT_THAT(update({k_ids[0]}), ElementsAre(0));
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(core::agent_state::state()->epoch, 42U + k_threads * k_calls);
    EXPECT_EQ(sim::open_batches(), 0U);
}

class host_interface_service : public interface_service {
 protected:
    int create_host(const std::string &members, const std::string &id = "h") {
        return write_one("Create", "id: '" + id + "' host_if_spec { " + members + " }");
    }
    int update_by_name(const std::string &members, const std::string &id = "") {
        return write_one("Update", "id: '" + id + "' host_if_spec { " + members + " }");
    }

    const std::string h1_ = R"({"name":"h1","mac":"00:ae:cd:01:02:03"})",
                      h2_ = R"({"name":"h2","mac":"00:00:00:00:00:02"})";
    static constexpr const char *k_three_entries =
        "request { id: 'h' host_if_spec { name: 'h1' mac_address: 0xaecd010203 } }"
        "request { id: '1' loopback_if_spec {} }"
        "request { id: 'i' host_if_spec { name: 'h2' mac_address: 2 } }";
    static nyx::InterfaceRequest request(const std::string &text) {
        nyx::InterfaceRequest req;
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &req)) << text;
        return req;
    }
    static std::string list(const std::string &elements) { return "{\"host-interface\":[" + elements + "]}"; }
};

TEST_F(host_interface_service, CreatedOnesGoToTheMacFileOnly) {
    add_fault("nyx_if_create:code=1");
    EXPECT_EQ(create_host("name: 'h1' mac_address: 0xaecd010203"), 0);
    EXPECT_EQ(mac_file(), list(h1_));
    EXPECT_EQ(create_host("name: 'h2' mac_address: 2"), 0);
    EXPECT_EQ(mac_file(), list(h1_ + "," + h2_));
    EXPECT_EQ(get({"h"}).api_status(), 5);
    EXPECT_EQ(sim::open_batches(), 0U);
    nyx::InterfaceRequest req;
    req.add_request()->set_id(test::id_of(sim::host_interface_key(0)));
    req.mutable_request(0)->mutable_host_if_spec()->set_name("host0");
    req.mutable_request(0)->mutable_host_if_spec()->set_mac_address(3);
    EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceCreate", req).api_status(), 3);
    EXPECT_EQ(mac_file(), list(h1_ + "," + h2_));
}

TEST_F(host_interface_service, WithoutNameOrMac_NoneIsCreated) {
    const std::string must_be_set = "Failed to create host interface, name and MAC address must be set";
    EXPECT_EQ(create_host("mac_address: 0x0102030a0b0c"), 2);
    EXPECT_EQ(create_host("name: 'h1'"), 2);
    EXPECT_EQ(create_host("name: 'h1' mac_address: 0xffff000000000000"), 2);
    const std::string no_mac = "Failed to update host interface h1 config with MAC 00:00:00:00:00:00";
    EXPECT_THAT(trace_.messages(),
                ElementsAre(must_be_set, "Failed to update host interface  config with MAC 01:02:03:0a:0b:0c",
                            must_be_set, no_mac, must_be_set, no_mac));
    EXPECT_EQ(mac_file(), "");
}

// The first host interface finds out, and the entries after it are not handled.
TEST_F(host_interface_service, UnwritableMacFileIsAnError) {
    g_host_if_mac_file = folder_ / "missing" + "/mac.json";
    EXPECT_EQ(create_host("name: 'h1' mac_address: 1"), 1);
    EXPECT_EQ(trace_.messages().back(),
              "Failed to update host interface h1 config with MAC 00:00:00:00:00:01");
    EXPECT_EQ(update_by_name("name: 'h1' mac_address: 1"), 1);
    EXPECT_EQ(trace_.messages().back(), "Failed to update interface h1 to mac 00:00:00:00:00:01 association");
    auto req = request(k_three_entries);
    const uint64_t batch = open_batch();
    req.mutable_batch_ctxt()->set_batch_cookie(batch);
    EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceCreate", req).api_status(), 1);
    EXPECT_EQ(nyx_batch_commit(batch), sdk::SDK_RET_OK);
    EXPECT_THAT(loopbacks(), IsEmpty());
    EXPECT_EQ(sim::open_batches(), 0U);
}

// What can't be known before the write is the outcome of the first host interface, too.
TEST_F(host_interface_service, MacFileThatIsTooLargeIsAnErrorOfTheWholeRequest) {
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {1, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const int status = call<nyx::InterfaceResponse>("InterfaceCreate", request(k_three_entries)).api_status();
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(trace_.messages().back(),
              "Failed to update host interface h1 config with MAC 00:ae:cd:01:02:03");
    EXPECT_THAT(loopbacks(), IsEmpty());
    EXPECT_EQ(mac_file(), "");
}

TEST_F(host_interface_service, ManyInOneRequestReplaceTheMacFileOnce) {
    const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(events, (folder_ / "").c_str(), IN_MOVED_TO), 0);
    nyx::InterfaceRequest req;
    std::string all;
    for (int i = 0; i < 3000; i++) {
        auto *host = req.add_request()->mutable_host_if_spec();
        host->set_name("many" + std::to_string(i));
        host->set_mac_address(1);
        all += std::string(i ? "," : "") + R"({"name":"many)" + std::to_string(i) +
               R"(","mac":"00:00:00:00:00:01"})";
    }
    EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceUpdate", req).api_status(), 0);
    EXPECT_EQ(mac_file(), list(all));
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    EXPECT_GT(::read(events, event, sizeof(event)), 0);
    EXPECT_EQ(::read(events, event, sizeof(event)), -1);
    close(events);
}

TEST_F(host_interface_service, OneRequestMakesWhatItsEntriesMakeOneByOne) {
    std::mt19937 random(1);
    for (int round = 0; round < 20; round++) {
        nyx::InterfaceRequest all;
        for (int i = 0; i < 5; i++) {
            auto *host = all.add_request()->mutable_host_if_spec();
            host->set_name(std::string(1, static_cast<char>('a' + random() % 3)));
            host->set_mac_address(random() % 3);
        }
        std::string contents[2];
        for (const bool at_once : {false, true}) {
            std::ofstream(g_host_if_mac_file)
                << R"({"host-interface":[{"name":"a","mac":"1"},{"name":"x","mac":"2"},{"name":"a","mac":"3"}]})";
            for (int i = 0; i < (at_once ? 1 : all.request_size()); i++) {
                auto req = all;
                if (!at_once) {
                    req.clear_request();
                    *req.add_request() = all.request(i);
                }
                EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceUpdate", req).api_status(), 0);
            }
            contents[at_once] = mac_file();
        }
        EXPECT_EQ(contents[0], contents[1]) << all.ShortDebugString();
    }
}

TEST_F(host_interface_service, NamesNeitherEndNorColourALineOfTheLog) {
    EXPECT_EQ(create_host("name: 'x\\n[y:1]\\033[31m'"), 2);
    EXPECT_EQ(trace_.messages().back(),
              "Failed to update host interface x?[y:1]?[31m config with MAC 00:00:00:00:00:00");
}

TEST_F(host_interface_service, ZeroKeyUpdatesTheMacFileByName) {
    EXPECT_EQ(update_by_name("name: 'h1' mac_address: 0xaecd010203"), 0);
    EXPECT_EQ(update_by_name("name: 'h2' mac_address: 1", "\\0\\0\\0"), 0);
    EXPECT_EQ(update_by_name("name: 'h2' mac_address: 2", std::string(17, 'i')), 0);
    EXPECT_EQ(mac_file(), list(h1_ + "," + h2_));
    EXPECT_EQ(update_by_name("name: 'h1'"), 0);
    EXPECT_EQ(mac_file(), list(h2_));
    EXPECT_THAT(trace_.messages(),
                Each(testing::StartsWith("Error updating ")));  // there was no file at first
}

TEST_F(host_interface_service, OtherUpdatesOfUnknownOnesAreReadFailures) {
    const std::string zero = "00000000-0000-0000-0000-000000000000";
    EXPECT_EQ(update_by_name("mac_address: 1"), 5);
    EXPECT_EQ(update_by_name("name: 'h1' mac_address: 1", "\\001"), 5);
    EXPECT_EQ(write_one("Update", "control_if_spec { mac_address: 1 }"), 5);
    const std::string err = ", err \"lookup failure\"";
    EXPECT_THAT(trace_.messages(), ElementsAre("Failed to read interface " + zero + err,
                                               "Failed to read interface 01" + zero.substr(2) + err,
                                               "Failed to read interface " + zero + err));
    EXPECT_EQ(mac_file(), "");
}

TEST_F(host_interface_service, MacFileKeepsWhatWasStoredBeforeAFailure) {
    const auto req = request(
        "request { id: 'h' host_if_spec { name: 'h2' mac_address: 2 } } request { id: 'i' }"
        "request { id: 'j' host_if_spec { name: 'h1' mac_address: 1 } }");
    EXPECT_EQ(call<nyx::InterfaceResponse>("InterfaceCreate", req).api_status(), 2);
    EXPECT_EQ(mac_file(), list(h2_));
}

}  // namespace
