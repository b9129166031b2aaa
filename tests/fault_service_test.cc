// The stand-in's own gRPC service.

#include "host/fault_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "sim/faults/faults.h"
#include "sim/framework/watchdog.h"
#include "tests/grpc_fixture.h"

namespace {

using grpc::StatusCode;
using testing::HasSubstr;

class FaultService : public testing::Test {
 protected:
    ~FaultService() override { sim::clear_faults(); }

    grpc::Status add(const std::string &text, uint32_t *id = nullptr) {
        grpc::ClientContext context;
        nyx::FaultAddRequest req;
        req.set_fault(text);
        nyx::FaultAddResponse rsp;
        const auto status = stub_->FaultAdd(&context, req, &rsp);
        if (id) {
            *id = rsp.id();
        }
        return status;
    }

    nyx::FaultListResponse list() {
        grpc::ClientContext context;
        nyx::FaultListResponse rsp;
        EXPECT_TRUE(stub_->FaultList(&context, types::Empty(), &rsp).ok());
        return rsp;
    }

    grpc::Status clear(const std::vector<uint32_t> &ids, nyx::FaultListResponse *removed) {
        grpc::ClientContext context;
        nyx::FaultClearRequest req;
        req.mutable_id()->Add(ids.begin(), ids.end());
        return stub_->FaultClear(&context, req, removed);
    }

    nyx::Heartbeat heartbeat(const std::string &thread, bool restart = false) {
        grpc::ClientContext context;
        nyx::HeartbeatGetRequest req;
        req.set_restart(restart);
        nyx::HeartbeatGetResponse rsp;
        EXPECT_TRUE(stub_->HeartbeatGet(&context, req, &rsp).ok());
        for (const auto &found : rsp.response()) {
            if (found.thread() == thread) {
                return found;
            }
        }
        ADD_FAILURE() << "no thread " << thread;
        return {};
    }

 private:
    host::FaultSvcImpl service_;
    test::grpc_server server_{{&service_}};
    const std::unique_ptr<nyx::FaultSvc::Stub> stub_ = nyx::FaultSvc::NewStub(server_.channel());
};

TEST_F(FaultService, FaultStrikesFromAddToClear) {
    uint32_t first = 0, second = 0;
    ASSERT_TRUE(add("nyx_if_read:code=6", &first).ok());
    ASSERT_TRUE(add("nyx_if_create:code=6,every=2", &second).ok());
    for (const auto expected : {sdk::SDK_RET_OK, sdk::SDK_RET_RESOURCE_EXHAUSTION}) {
        EXPECT_EQ(sim::fault("nyx_if_create"), expected);
    }
    nyx::FaultListResponse removed;
    const auto unknown = clear({first, second + 1}, &removed);
    EXPECT_EQ(unknown.error_code(), StatusCode::NOT_FOUND);
    EXPECT_THAT(unknown.error_message(), HasSubstr(std::to_string(second + 1)));
    ASSERT_EQ(list().response_size(), 2);
    EXPECT_EQ(list().response(1).fault(), "nyx_if_create:code=6,every=2");
    ASSERT_TRUE(clear({second}, &removed).ok());
    ASSERT_EQ(removed.response_size(), 1);
    EXPECT_EQ(removed.response(0).calls(), 2u);
    EXPECT_EQ(removed.response(0).strikes(), 1u);
    ASSERT_TRUE(clear({}, &removed).ok());
    EXPECT_EQ(list().response_size(), 0);
    EXPECT_EQ(sim::fault("nyx_if_read"), sdk::SDK_RET_OK);
}

TEST_F(FaultService, InvalidFaultIsRefusedWithTheReason) {
    const auto status = add("nyx_if_raed:code=6");
    EXPECT_EQ(status.error_code(), StatusCode::INVALID_ARGUMENT);
    EXPECT_THAT(status.error_message(), HasSubstr("nearest: nyx_if_read"));
}

// This thread is the one that is stuck: it waits for the service, and does not punch its heartbeat.
TEST_F(FaultService, HeartbeatsOfAStuckThreadAreReported) {
    sim::watched_thread watched("stuck");
    EXPECT_EQ(heartbeat("stuck").longest_gap_ms(), 0u);
    sdk::lib::thread::t_curr_thread_->punch_heartbeat();
    constexpr uint32_t k_stuck_ms = 30;
    while (heartbeat("stuck").since_last_ms() < k_stuck_ms) {
    }
    EXPECT_GE(heartbeat("stuck").longest_gap_ms(), k_stuck_ms);
    sdk::lib::thread::t_curr_thread_->punch_heartbeat();
    const auto after = heartbeat("stuck", true);
    EXPECT_EQ(after.punched(), 2u);
    EXPECT_GE(after.longest_gap_ms(), k_stuck_ms);
    const auto restarted = heartbeat("stuck");
    EXPECT_EQ(restarted.longest_gap_ms(), restarted.since_last_ms());
}

}  // namespace
