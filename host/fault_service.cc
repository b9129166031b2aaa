#include "host/fault_service.h"

#include <chrono>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/text.h"
#include "sim/faults/faults.h"
#include "sim/framework/watchdog.h"
#include "sim/scenario/running.h"
#include "sim/scenario/scenario_files.h"

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

constexpr size_t k_max_name = 256;

void fill(nyx::ScenarioGetResponse *rsp) {
    const auto status = sim::scenario_status();
    rsp->set_is_running(status.is_running);
    rsp->set_name(status.settings.name);
    rsp->set_title(status.title);
    rsp->set_seed(status.settings.seed);
    rsp->set_speed(status.settings.speed);
    rsp->set_virtual_time_ms(status.history.now_ms);
    rsp->set_events(status.history.events);
    rsp->set_restarts(status.history.restarts);
    for (const auto &[at_ms, what] : status.history.last) {
        auto *event = rsp->add_last_event();
        event->set_virtual_time_ms(at_ms);
        event->set_text(what);
    }
    for (auto &name : sim::scenario_names()) {
        rsp->add_known_name(std::move(name));
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
    svc::method_of<&FaultSvcImpl::ScenarioSet>("ScenarioSet"),
    svc::method_of<&FaultSvcImpl::ScenarioGet>("ScenarioGet"),
    svc::method_of<&FaultSvcImpl::ScenarioAdvance>("ScenarioAdvance"),
    svc::method_of<&FaultSvcImpl::ScenarioStop>("ScenarioStop"),
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

grpc::Status FaultSvcImpl::ScenarioSet(grpc::ServerContext *, const nyx::ScenarioSetRequest *req,
                                       nyx::ScenarioGetResponse *rsp) {
    if (req->speed() > sim::k_max_speed) {
        return {grpc::StatusCode::INVALID_ARGUMENT,
                "speed must be a number from 0 to " + std::to_string(sim::k_max_speed)};
    }
    try {
        const auto text = req->toml().empty() ? sim::scenario_text(req->name()) : req->toml();
        sim::start_scenario(
            sim::parse_scenario(text),
            {.name = std::string(base::without_cut_character(req->name().substr(0, k_max_name))),
             .seed = req->seed(),
             .speed = req->speed()});
    } catch (const std::invalid_argument &error) {
        return {grpc::StatusCode::INVALID_ARGUMENT, error.what()};
    } catch (const std::out_of_range &error) {
        return {grpc::StatusCode::NOT_FOUND, error.what()};
    }
    fill(rsp);
    return grpc::Status::OK;
}

grpc::Status FaultSvcImpl::ScenarioGet(grpc::ServerContext *, const types::Empty *,
                                       nyx::ScenarioGetResponse *rsp) {
    fill(rsp);
    return grpc::Status::OK;
}

grpc::Status FaultSvcImpl::ScenarioAdvance(grpc::ServerContext *context,
                                           const nyx::ScenarioAdvanceRequest *req,
                                           nyx::ScenarioGetResponse *rsp) {
    if (req->by_ms() > sim::k_max_advance_ms) {
        return {grpc::StatusCode::INVALID_ARGUMENT,
                "by_ms must be a number from 0 to " + std::to_string(sim::k_max_advance_ms)};
    }
    if (!sim::advance_scenario(req->by_ms(), [=] { return !context->IsCancelled(); })) {
        return {grpc::StatusCode::FAILED_PRECONDITION, "no scenario runs"};
    }
    fill(rsp);
    return grpc::Status::OK;
}

grpc::Status FaultSvcImpl::ScenarioStop(grpc::ServerContext *, const types::Empty *,
                                        nyx::ScenarioGetResponse *rsp) {
    sim::stop_scenario();
    fill(rsp);
    return grpc::Status::OK;
}

}  // namespace host
