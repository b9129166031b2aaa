#include "bench/grpc_server.h"

#include <grpcpp/grpcpp.h>

#include "bench/platform.h"
#include "bench/ratio_table.h"
#include "host/server_settings.h"
#include "svc/grpc_nyx_tbl.h"

namespace bench {

namespace {

class empty_service : public nyx::NyxTblSvc::Service {
    grpc::Status flowCreate(grpc::ServerContext *, const nyx::flowRequest *, nyx::flowResponse *) override {
        return grpc::Status::OK;
    }
    grpc::Status flowGet(grpc::ServerContext *, const nyx::flowGetRequest *,
                         nyx::flowGetResponse *) override {
        return grpc::Status::OK;
    }
};

std::unique_ptr<grpc::Service> make_service(const std::string &name) {
    if (name == "table") {
        return std::make_unique<NyxTblSvcImpl>();
    }
    return std::make_unique<empty_service>();
}

}  // namespace

grpc_server::grpc_server(const std::string &service, const std::string &address)
    : service_(make_service(service)) {
    check_replacements();
    grpc::ServerBuilder builder;
    host::apply_server_settings(builder);
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(service_.get());
    server_ = builder.BuildAndStart();
    if (!server_) {
        fail("no gRPC server at " + address);
    }
}

grpc_server::~grpc_server() { server_->Shutdown(std::chrono::system_clock::now()); }

}  // namespace bench
