#include "bench/grpc_server.h"

#include <grpcpp/grpcpp.h>

#include <ctime>
#include <fstream>

#include "bench/objects.h"
#include "bench/parts.h"
#include "bench/platform.h"
#include "bench/ratio_table.h"
#include "host/server_settings.h"
#include "svc/grpc_nyx_tbl.h"
#include "svc/interface.h"
#include "svc/port.h"

namespace bench {

namespace {

constexpr size_t k_workers = 64;  // as nyx-agent has

class empty_service : public nyx::NyxTblSvc::Service {
    grpc::Status flowCreate(grpc::ServerContext *, const nyx::flowRequest *, nyx::flowResponse *) override {
        return grpc::Status::OK;
    }
    grpc::Status flowGet(grpc::ServerContext *, const nyx::flowGetRequest *,
                         nyx::flowGetResponse *) override {
        return grpc::Status::OK;
    }
};

class heap_service : public nyx::NyxTblSvc::Service {
    grpc::Status flowCreate(grpc::ServerContext *, const nyx::flowRequest *request,
                            nyx::flowResponse *response) override {
        (void)nyx_svc_flow_create(request, response);
        return grpc::Status::OK;
    }
    grpc::Status flowGet(grpc::ServerContext *, const nyx::flowGetRequest *request,
                         nyx::flowGetResponse *response) override {
        (void)nyx_svc_flow_get(request, response);
        return grpc::Status::OK;
    }
};

class serialised_service : public nyx::IfSvc::WithRawCallbackMethod_InterfaceGet<nyx::IfSvc::Service> {
 public:
    serialised_service() {
        nyx::InterfaceGetResponse response;
        nyx_svc_interface_get(&nyx::InterfaceGetRequest::default_instance(), &response);
        const grpc::Slice slice(response.SerializeAsString());
        bytes_ = grpc::ByteBuffer(&slice, 1);
    }

 private:
    grpc::ServerUnaryReactor *InterfaceGet(grpc::CallbackServerContext *context, const grpc::ByteBuffer *,
                                           grpc::ByteBuffer *response) override {
        *response = bytes_;
        auto *reactor = context->DefaultReactor();
        reactor->Finish(grpc::Status::OK);
        return reactor;
    }

    grpc::ByteBuffer bytes_;
};

std::vector<std::unique_ptr<grpc::Service>> make_services(const std::string &kind) {
    std::vector<std::unique_ptr<grpc::Service>> services;
    if (kind.starts_with("agent")) {
        services.push_back(std::make_unique<NyxTblSvcImpl>());
        services.push_back(std::make_unique<IfSvcImpl>());
        services.push_back(std::make_unique<PortSvcImpl>());
    } else if (kind == "serialised") {
        services.push_back(std::make_unique<serialised_service>());
    } else if (kind == "heap") {
        services.push_back(std::make_unique<heap_service>());
    } else {
        services.push_back(std::make_unique<empty_service>());
    }
    return services;
}

double cpu_seconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double forget_peak() {
    std::ofstream("/proc/self/clear_refs") << "5";
    return 0;
}

}  // namespace

grpc_server::grpc_server(const std::string &kind, const std::string &address)
    : calls_(kind.starts_with("agent") ? std::make_unique<svc::call_server>() : nullptr),
      services_(make_services(kind)) {
    check_replacements();
    if (kind == "agent-15000") {
        set_walk_size(15'000);
    }
    grpc::ServerBuilder builder;
    if (kind == "defaults") {
        builder.SetMaxReceiveMessageSize(base::k_max_grpc_request_size);
    } else {
        host::apply_server_settings(builder);
    }
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    for (const auto &service : services_) {
        builder.RegisterService(service.get());
    }
    if (calls_) {
        calls_->attach(&builder);
    }
    server_ = builder.BuildAndStart();
    if (!server_) {
        fail("no gRPC server at " + address);
    }
    while (calls_ && workers_.size() < k_workers) {
        workers_.emplace_back([this] { calls_->run(); });
    }
}

grpc_server::~grpc_server() {
    server_->Shutdown(std::chrono::system_clock::now());
    if (calls_) {
        calls_->shutdown();
    }
}

double grpc_server::figure(const std::string &name) {
    if (name == "cpu_s") {
        return cpu_seconds();
    }
    if (name == "threads") {
        return static_cast<double>(g_started_threads.load());
    }
    if (name == "forget_peak") {
        return forget_peak();
    }
    return name == "resident_mib" ? status_mib("VmRSS") : name == "peak_mib" ? status_mib("VmHWM") : 0;
}

}  // namespace bench
