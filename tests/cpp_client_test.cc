// nyx/client.h, where the example programs don't reach it.

#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>

#include <memory>
#include <string>
#include <vector>

#include "nyx/client.h"
#include "nyx/interface.pb.h"
#include "nyx/tables/tbl_svc.grpc.pb.h"

namespace {

using nyx::client::same;
using nyx::client::too_wide;

TEST(CppClient, TooWideNamesTheFieldAndItsLargestValue) {
    nyx::flowSpec flow;
    flow.set_client_tag(~0ULL);
    flow.mutable_key()->set_k1(std::string(16, 'x'));
    flow.mutable_key()->set_k2(255);
    flow.mutable_key()->set_k4(~0U);
    flow.mutable_key()->set_k9(~0ULL);
    EXPECT_EQ(too_wide(flow), "");
    flow.mutable_key()->set_k3(65536);
    EXPECT_EQ(too_wide(flow), "key.k3=65536: the largest value is 65535");
    flow.mutable_key()->set_k1(std::string(17, 'x'));
    EXPECT_EQ(too_wide(flow), "key.k1=17 bytes: the largest value is 16");
    nyx::InterfaceRequest interfaces;
    interfaces.add_request()->mutable_host_if_spec()->set_mac_address(1ULL << 47);
    EXPECT_EQ(too_wide(interfaces), "");
    interfaces.add_request()->mutable_host_if_spec()->set_mac_address(1ULL << 48);
    EXPECT_THAT(too_wide(interfaces),
                testing::StartsWith("request.host_if_spec.mac_address=281474976710656: "));
}

TEST(CppClient, SameComparesWhatBecomesOfARecord) {
    nyx::flow_key_nativeSpec one;
    nyx::flow_key_nativeSpec other;
    one.mutable_native_ipv4_packet_data();
    one.set_client_tag(5);
    one.mutable_key_mask()->set_k1(9);
    EXPECT_TRUE(same(one, other));
    one.set_key_mask_valid(1);
    other.set_key_mask_valid(1);
    EXPECT_FALSE(same(one, other));
    other.mutable_key_mask()->set_k1(9);
    EXPECT_TRUE(same(one, other));
    nyx::flow_key_t short_key;
    nyx::flow_key_t key;
    short_key.set_k1("ab");
    key.set_k1(std::string("ab").append(14, '\0'));
    EXPECT_TRUE(same(short_key, key));
    key.set_k9(1);
    EXPECT_FALSE(same(short_key, key));
}

// Fails, and answers reads with fewer entries than keys.
class wrong_agent : public nyx::NyxTblSvc::Service {
 public:
    wrong_agent() {
        grpc::ServerBuilder builder;
        builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port_);
        builder.RegisterService(this);
        server_ = builder.BuildAndStart();
    }

    [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    void become(const std::string &instance) { instance_ = instance; }

    grpc::Status flowCreate(grpc::ServerContext *context, const nyx::flowRequest *,
                            nyx::flowResponse *) override {
        context->AddInitialMetadata("nyx-instance-id", instance_);
        return {grpc::INTERNAL, "lost"};
    }
    grpc::Status flowGet(grpc::ServerContext *, const nyx::flowGetRequest *,
                         nyx::flowGetResponse *response) override {
        response->add_response();
        response->set_api_status(types::API_STATUS_ERROR);
        return grpc::Status::OK;
    }

 private:
    std::string instance_ = "one";
    int port_ = 0;
    std::unique_ptr<grpc::Server> server_;
};

TEST(CppClient, WrongAnswersCountAsFailuresAndAnotherInstanceAsARestart) {
    using stub = nyx::NyxTblSvc::Stub;
    wrong_agent agent;
    nyx::client::service<nyx::NyxTblSvc> tables(nyx::client::connect(agent.address()));
    std::vector<nyx::flowSpec> entries(3);
    for (auto &entry : entries) {
        entry.mutable_key()->set_k2(7);
    }
    const auto written = tables.write(&stub::flowCreate, &stub::flowGet, entries);
    EXPECT_EQ(written.failed.size(), 3);
    EXPECT_TRUE(written.status.ok());
    EXPECT_EQ(tables.restarts(), 0);
    agent.become("two");
    (void)tables.write(&stub::flowCreate, &stub::flowGet, entries);
    (void)tables.write(&stub::flowCreate, &stub::flowGet, entries);
    EXPECT_EQ(tables.restarts(), 1);
}

}  // namespace
