// One service behind a real gRPC server, over a stand-in at its start and without faults.

#pragma once

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "nyx/types/object.pb.h"
#include "sim/api/debug_stats.h"
#include "sim/api/internal_switch.h"
#include "sim/api/pipeline.h"
#include "sim/api/system.h"
#include "sim/api/tables.h"
#include "sim/faults/faults.h"
#include "tests/grpc_fixture.h"
#include "tests/trace_capture.h"

namespace test {

// Compares a message with the one that `text` says in the text format, absent and empty submessages told apart.
MATCHER_P(IsMessage, text, std::string("is ") + text) {
    const std::unique_ptr<google::protobuf::Message> expected(arg.New());
    if (!google::protobuf::TextFormat::ParseFromString(text, expected.get())) {
        return false;
    }
    *result_listener << "\n  which is " << arg.ShortDebugString();
    return google::protobuf::util::MessageDifferencer::Equals(arg, *expected);
}

// `Svc` is the generated class of the service, `Impl` the one that implements it.
template <class Svc, class Impl>
class device_service : public testing::Test {
 protected:
    device_service() { reset(); }
    ~device_service() override { reset(); }

    static void add_fault(const std::string &fault) { sim::add_fault(sim::parse_fault(fault)); }

    grpc::Status status_of(const std::string &method, const google::protobuf::Message &req,
                           google::protobuf::Message *rsp) {
        return server_.call("/" + std::string(Svc::service_full_name()) + "/" + method, req, rsp);
    }

    // One call that must end with gRPC status OK; a response that is no valid message does not.
    template <class Response>
    Response call(const std::string &method, const google::protobuf::Message &req = types::Empty()) {
        Response rsp;
        const auto status = status_of(method, req, &rsp);
        EXPECT_TRUE(status.ok()) << method << ": " << status.error_message();
        return rsp;
    }

    trace_capture trace_;  // the agent has a logger before it has services

 private:
    static void reset() {
        sim::clear_faults();
        sim::clear_tables();
        sim::put_system_state({});
        sim::put_pipeline_state({});
        sim::put_debug_stats_state({});
        sim::put_switch_ports(sim::default_switch_ports());
    }

    Impl service_;
    grpc_server server_{{&service_}};
};

}  // namespace test
