// Calls on the gRPC server's own threads, and on threads that a call server was lent. One operation of the table library is
// this file's own, so that it can wait.

#include "svc/call_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <numeric>
#include <optional>
#include <thread>

#include "nyx/debug.pb.h"
#include "nyx/interface.pb.h"
#include "nyx/port.pb.h"
#include "nyx/tables/flow.pb.h"
#include "nyx/tables/tunnel.pb.h"
#include "sim/api/reset_card.h"
#include "sim/api/tables.h"
#include "svc/debug.h"
#include "svc/interface.h"
#include "svc/port.h"
#include "svc/table_service.h"
#include "tests/allocation_points.h"
#include "tests/grpc_fixture.h"

namespace {

// What nyx_tbl_checksum_create() does in this program: it counts, and waits until as many calls are in it as are wanted.
class meeting {
 public:
    void expect(size_t guests) {
        const std::lock_guard lock(mutex_);
        came_ = 0;
        guests_ = guests;
    }

    void come() {
        std::unique_lock lock(mutex_);
        came_++;
        changed_.notify_all();
        changed_.wait_for(lock, std::chrono::seconds(20), [this] { return came_ >= guests_; });
    }

    void wait_for_first() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return came_ > 0; });
    }

    size_t came() {
        const std::lock_guard lock(mutex_);
        return came_;
    }

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t came_ = 0, guests_ = 0;
};

meeting g_meeting;
std::atomic<std::chrono::milliseconds> g_slowness{};  // of each entry, as of a slow card

}  // namespace

sdk::sdk_ret_t nyx_tbl_checksum_create(const nyx_tbl_checksum_spec_s *) {
    g_meeting.come();
    std::this_thread::sleep_for(g_slowness.load());
    return sdk::SDK_RET_OK;
}

namespace {

constexpr size_t k_budget = 64 * 1024 * 1024;

// The parameter: whether there is a call server.
class calls : public testing::TestWithParam<bool> {
 protected:
    calls() {
        sim::clear_tables();
        sim::reset_card();
        g_meeting.expect(0);
        g_slowness = std::chrono::milliseconds(0);
    }
    ~calls() override {
        sim::clear_tables();
        sim::reset_card();
    }

    grpc::Status call(const std::string &method, const google::protobuf::Message &req,
                      google::protobuf::Message *rsp) {
        return server_.call(method, req, rsp);
    }

    grpc::Status get_flows(int count) {
        nyx::flowGetRequest req;
        for (int i = 0; i < count; i++) {
            req.add_key();
        }
        return call("/nyx.NyxTblSvc/flowGet", req, &flows_);
    }

    std::unique_ptr<svc::call_server> calls_ =
        GetParam() ? std::make_unique<svc::call_server>(svc::call_limits_s{.memory = k_budget}) : nullptr;
    std::unique_ptr<grpc::Service> tables_ = make_table_service();
    PortSvcImpl ports_;
    IfSvcImpl interfaces_;
    DebugSvcImpl debug_;
    test::grpc_server server_{{tables_.get(), &ports_, &interfaces_, &debug_}, calls_.get()};
    nyx::flowGetResponse flows_;
};

INSTANTIATE_TEST_SUITE_P(, calls, testing::Bool(), [](const auto &test) {
    return test.param ? "OnLentThreads" : "OnTheServersThreads";
});

TEST_P(calls, EightOfOneMethodRunAtOnce_AndOthersBesideThem) {
    constexpr size_t k_calls = 8;
    g_meeting.expect(k_calls + 1);
    std::vector<std::jthread> clients;
    std::atomic<int> answered = 0;
    const auto create = [&] {
        nyx::checksumRequest req;
        req.add_request();
        nyx::checksumResponse rsp;
        answered += call("/nyx.NyxTblSvc/checksumCreate", req, &rsp).ok();
    };
    for (size_t i = 0; i < k_calls; i++) {
        clients.emplace_back(create);
    }
    while (g_meeting.came() < k_calls) {
        std::this_thread::yield();
    }
    nyx::PortGetResponse ports;
    EXPECT_TRUE(call("/nyx.PortSvc/PortGet", nyx::PortGetRequest(), &ports).ok());
    EXPECT_GT(ports.response_size(), 0);
    EXPECT_EQ(answered, 0);
    create();  // the ninth guest
    clients.clear();
    EXPECT_EQ(answered, k_calls + 1);
}

TEST_P(calls, TooManyEntriesAreRefusedBeforeAnyIsTouched) {
    nyx::checksumRequest entries;
    for (int i = 0; i < 131'073; i++) {
        entries.add_request();
    }
    nyx::InternalPortRequestMsg ports;
    nyx::InterfaceGetRequest interfaces;
    nyx::PortGetRequest ids;
    for (int i = 0; i < 10'001; i++) {
        ports.add_request()->set_port_number(1);
        interfaces.add_id("x");
        ids.add_id("x");
    }
    const std::pair<const char *, const google::protobuf::Message *> cases[] = {
        {"/nyx.NyxTblSvc/checksumCreate", &entries},
        {"/nyx.DebugSvc/InternalPortGet", &ports},
        {"/nyx.IfSvc/InterfaceGet", &interfaces},
        {"/nyx.PortSvc/PortGet", &ids}};
    for (const auto &[method, request] : cases) {
        nyx::PortGetResponse rsp;
        const auto status = call(method, *request, &rsp);
        EXPECT_EQ(status.error_code(), grpc::RESOURCE_EXHAUSTED) << method;
        EXPECT_THAT(status.error_message(), testing::HasSubstr("the maximum is")) << method;
    }
    EXPECT_EQ(g_meeting.came(), 0u);
}

TEST_P(calls, WhatAClientLeavesBehindIsNotDone) {
    constexpr int k_entries = 2000;
    g_meeting.expect(0);
    g_slowness = std::chrono::milliseconds(1);
    nyx::checksumRequest req;
    for (int i = 0; i < k_entries; i++) {
        req.add_request();
    }
    nyx::checksumResponse rsp;
    grpc::ClientContext context;
    std::jthread client([&] {
        g_meeting.wait_for_first();
        context.TryCancel();
    });
    grpc::TemplatedGenericStub<google::protobuf::Message, google::protobuf::Message> stub(server_.channel());
    grpc::CompletionQueue queue;
    const auto reader = stub.PrepareUnaryCall(&context, "/nyx.NyxTblSvc/checksumCreate", req, &queue);
    grpc::Status status;
    reader->StartCall();
    reader->Finish(&rsp, &status, nullptr);
    void *tag = nullptr;
    bool finished = false;
    queue.Next(&tag, &finished);
    EXPECT_EQ(status.error_code(), grpc::CANCELLED);
    // The request has ended when no further entry comes.
    size_t came = 0;
    do {
        came = g_meeting.came();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a slow card's fifty entries
    } while (g_meeting.came() != came);
    EXPECT_LT(came, static_cast<size_t>(k_entries));
}

TEST_P(calls, RequestThatCannotBeParsedIsRefused) {
    types::Id bytes;  // on the wire a flowRequest whose entry ends within a field
    bytes.set_id("\xff");
    nyx::flowResponse rsp;
    const auto status = call("/nyx.NyxTblSvc/flowCreate", bytes, &rsp);
    EXPECT_EQ(status.error_code(), grpc::INTERNAL);
    EXPECT_EQ(sim::table_entry_count(12), 0u);
}

TEST_P(calls, MethodThatIsNotProvidedIsUnimplemented) {
    types::Empty rsp;
    EXPECT_EQ(call("/nyx.DebugSvc/TraceLevelGet", types::Empty(), &rsp).error_code(), grpc::UNIMPLEMENTED);
    EXPECT_EQ(call("/nyx.DebugSvc/NoSuchMethod", types::Empty(), &rsp).error_code(), grpc::UNIMPLEMENTED);
}

TEST_P(calls, MemoryThatRunsOutForGoodEndsCallsOnly) {
    ASSERT_TRUE(get_flows(1).ok());  // the server has begun to wait for calls
    for (int64_t nth = 1;; nth++) {
        SCOPED_TRACE(nth);
        grpc::Status status;
        {
            const test::failing_allocation failing(nth, true);
            status = get_flows(50);
            if (!failing.struck()) {
                break;
            }
        }
        EXPECT_THAT(status.error_code(), testing::AnyOf(grpc::OK, grpc::RESOURCE_EXHAUSTED));
        ASSERT_TRUE(get_flows(1).ok());
    }
}

// Only with a call server, which has a budget.
using budget = calls;
INSTANTIATE_TEST_SUITE_P(, budget, testing::Values(true));

TEST_P(budget, WhatDoesNotFitIsRefused_AndSmallCallsAreServed) {
    for (int round = 0; round < 20; round++) {  // nothing of the budget is lost
        const auto status = get_flows(100'000);
        ASSERT_EQ(status.error_code(), grpc::RESOURCE_EXHAUSTED);
        ASSERT_THAT(status.error_message(), testing::HasSubstr("ask for less at a time"));
        ASSERT_TRUE(get_flows(100).ok());
    }
    EXPECT_TRUE(get_flows(20'000).ok());
    EXPECT_EQ(flows_.response_size(), 20'000);
}

TEST_P(budget, CallsAreCountedByOutcomeAndDuration) {
    const auto counts_of = [this](const std::string &name) {
        const auto all = calls_->counts();
        return *std::ranges::find(all, name, [](const auto &counts) { return counts.method->name(); });
    };
    ASSERT_TRUE(get_flows(1).ok());
    nyx::flowDeleteRequest missing;
    missing.add_key();
    nyx::flowDeleteResponse rsp;
    ASSERT_TRUE(call("/nyx.NyxTblSvc/flowDelete", missing, &rsp).ok());
    EXPECT_EQ(get_flows(100'000).error_code(), grpc::RESOURCE_EXHAUSTED);
    call("/nyx.DebugSvc/TraceLevelGet", types::Empty(), &rsp);

    const auto got = counts_of("flowGet"), deleted = counts_of("flowDelete");
    EXPECT_EQ(got.by_code[grpc::OK] + got.by_code[grpc::RESOURCE_EXHAUSTED], 2u);
    EXPECT_EQ(got.by_api_status[types::API_STATUS_ERROR], 1u);
    EXPECT_EQ(std::accumulate(got.by_duration.begin(), got.by_duration.end(), uint64_t{0}), 2u);
    EXPECT_GT(got.duration.count(), 0);
    EXPECT_EQ(deleted.by_api_status[rsp.api_status()], 1u);
    EXPECT_EQ(counts_of("TraceLevelGet").by_code[grpc::UNIMPLEMENTED], 1u);
    EXPECT_EQ(counts_of("flowCreate").by_code[grpc::OK], 0u);
    EXPECT_EQ(calls_->memory().limit, k_budget);
}

TEST_P(budget, ThereIsOneCallServerInAProcess) { EXPECT_THROW(svc::call_server(), std::logic_error); }

}  // namespace
