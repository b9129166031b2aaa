#include "host/fault_service.h"

#include <chrono>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/faults/faults.h"
#include "sim/framework/watchdog.h"

namespace host {

namespace {

void fill(const std::vector<sim::armed_fault_s> &faults, nyx::FaultListResponse *rsp) {
    for (const auto &fault : faults) {
        nyx::Fault *entry = rsp->add_response();
        entry->set_id(fault.id);
        entry->set_fault(fault.text);
        entry->set_calls(fault.calls);
        entry->set_strikes(fault.strikes);
    }
}

uint32_t to_ms(std::chrono::steady_clock::duration duration) {
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

}  // namespace

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&FaultSvcImpl::FaultAdd>("FaultAdd"),
    svc::method_of<&FaultSvcImpl::FaultList>("FaultList"),
    svc::method_of<&FaultSvcImpl::FaultClear>("FaultClear"),
    svc::method_of<&FaultSvcImpl::FaultOperationsGet>("FaultOperationsGet"),
    svc::method_of<&FaultSvcImpl::HeartbeatGet>("HeartbeatGet"),
};

FaultSvcImpl::FaultSvcImpl() : served(k_methods) {}

grpc::Status FaultSvcImpl::FaultAdd(grpc::ServerContext *, const nyx::FaultAddRequest *req,
                                    nyx::FaultAddResponse *rsp) {
    try {
        rsp->set_id(sim::add_fault(sim::parse_fault(req->fault())));
        return grpc::Status::OK;
    } catch (const std::invalid_argument &error) {
        return {grpc::StatusCode::INVALID_ARGUMENT, error.what()};
    }
}

grpc::Status FaultSvcImpl::FaultList(grpc::ServerContext *, const types::Empty *,
                                     nyx::FaultListResponse *rsp) {
    fill(sim::armed_faults(), rsp);
    return grpc::Status::OK;
}

grpc::Status FaultSvcImpl::FaultClear(grpc::ServerContext *, const nyx::FaultClearRequest *req,
                                      nyx::FaultListResponse *rsp) {
    const std::span<const uint32_t> ids(req->id().data(), static_cast<size_t>(req->id_size()));
    std::vector<sim::armed_fault_s> removed;
    if (const auto unknown = sim::remove_faults(ids, &removed)) {
        return {grpc::StatusCode::NOT_FOUND,
                "unknown fault " + std::to_string(*unknown) + "; none was removed"};
    }
    fill(removed, rsp);
    return grpc::Status::OK;
}

grpc::Status FaultSvcImpl::FaultOperationsGet(grpc::ServerContext *, const types::Empty *,
                                              nyx::FaultOperationsGetResponse *rsp) {
    for (const auto &operation : sim::fault_operations()) {
        rsp->add_operation(operation);
    }
    return grpc::Status::OK;
}

grpc::Status FaultSvcImpl::HeartbeatGet(grpc::ServerContext *, const nyx::HeartbeatGetRequest *req,
                                        nyx::HeartbeatGetResponse *rsp) {
    for (const auto &heartbeats : sim::thread_heartbeats(req->restart())) {
        nyx::Heartbeat *entry = rsp->add_response();
        entry->set_thread(heartbeats.thread);
        entry->set_punched(heartbeats.punched);
        entry->set_since_last_ms(to_ms(heartbeats.since_last));
        entry->set_longest_gap_ms(to_ms(heartbeats.longest_gap));
    }
    return grpc::Status::OK;
}

}  // namespace host
