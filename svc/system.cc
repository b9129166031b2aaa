#include "svc/system.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>

#include "agent_api/sysmgr.h"
#include "agent_api/system.h"
#include "svc/common/call.h"
#include "svc/common/converters.h"
#include "svc/common/ret_code.h"
#include "svc/common/text.h"
#include "svc/common/trace.h"

namespace {

struct readings_s {
    nyx_system_voltage_s voltage = {};
    nyx_system_power_s power = {};
    char die_id[64] = {};
    nyx_system_clock_freq_s frequency = {};
    nyx_system_temperature_s temperature = {};
};

template <class Proto, class Record>
void values_to_proto(Proto *proto, const Record &record) {
    proto->set_value_1(record.value[0]);
    proto->set_value_2(record.value[1]);
    proto->set_value_3(record.value[2]);
}

nyx::LedStatus led_to_proto(uint32_t led) {
    return led == 1 || led == 2 ? static_cast<nyx::LedStatus>(led) : nyx::LED_STATUS_OTHER;
}

nyx::ResetReason reset_reason_to_proto(uint32_t reason) {
    return svc::enumerator_or_none(reason, nyx::ResetReason_MAX);
}

void readings_to_proto(nyx::SystemGetResponse *rsp, const readings_s &readings) {
    rsp->set_led_status(led_to_proto(nyx_get_system_led()));
    rsp->set_reset_reason(reset_reason_to_proto(nyx_get_system_reset_reason()));
    rsp->set_die_id(svc::text_of(readings.die_id));
    rsp->mutable_voltage()->set_value_1(readings.voltage.value[1]);  // the first value is not reported
    rsp->mutable_voltage()->set_value_2(readings.voltage.value[2]);
    values_to_proto(rsp->mutable_power(), readings.power);
    values_to_proto(rsp->mutable_frequency(), readings.frequency);
    values_to_proto(rsp->mutable_temperature(), readings.temperature);
}

// A frequency that a clock accepts, and the system API's number for it.
struct frequency_s {
    uint32_t mhz;
    nyx_clock_freq_e number;
};
constexpr frequency_s k_core_frequencies[] = {{833, NYX_CLOCK_FREQ_833},
                                              {900, NYX_CLOCK_FREQ_900},
                                              {957, NYX_CLOCK_FREQ_957},
                                              {1033, NYX_CLOCK_FREQ_1033},
                                              {1100, NYX_CLOCK_FREQ_1100}};
constexpr frequency_s k_arm_frequencies[] = {{1667, NYX_CLOCK_FREQ_1667},
                                             {2000, NYX_CLOCK_FREQ_2000},
                                             {2200, NYX_CLOCK_FREQ_2200},
                                             {3000, NYX_CLOCK_FREQ_3000}};
constexpr frequency_s k_p4_stage_frequencies[] = {{1137, NYX_CLOCK_FREQ_1137}, {1500, NYX_CLOCK_FREQ_1500}};

// Changes a clock if the request has a frequency for it, and stores the outcome. False when the clock does not accept
// it.
bool update_clock(uint32_t mhz, std::span<const frequency_s> accepted,
                  sdk::sdk_ret_t (*update)(nyx_clock_freq_e), sdk::sdk_ret_t *ret) {
    if (mhz == 0) {
        return true;
    }
    const auto frequency = std::ranges::find(accepted, mhz, &frequency_s::mhz);
    if (frequency == accepted.end()) {
        return false;
    }
    *ret = update(frequency->number);
    return true;
}

// Named after the methods: log lines start with the function's name.

void SystemGet(const types::Empty *, nyx::SystemGetResponse *rsp) {
    readings_s readings;
    sdk::sdk_ret_t ret;
    if ((ret = nyx_get_system_voltage(&readings.voltage))) {
        SVC_TRACE_ERR("Failure getting system voltage, err {}", ret);
    } else if ((ret = nyx_get_system_power(&readings.power))) {
        SVC_TRACE_ERR("Failure getting system power, err {}", ret);
    } else if ((ret = nyx_get_system_die_id(readings.die_id, sizeof(readings.die_id)))) {
        SVC_TRACE_ERR("Failure getting system die id, err {}", ret);
    } else if ((ret = nyx_get_system_clock_frequency(&readings.frequency))) {
        SVC_TRACE_ERR("Failure getting system frequencies, err {}", ret);
    } else if ((ret = nyx_get_system_temperature(&readings.temperature))) {
        SVC_TRACE_ERR("Failure getting system temperature, err {}", ret);
    } else {
        readings_to_proto(rsp, readings);
    }
    rsp->set_api_status(sdk_ret_to_api_status(ret));
}

void ClockFrequencyUpdate(const nyx::ClockFrequencyRequest *req, nyx::ClockFrequencyResponse *rsp) {
    auto ret = sdk::SDK_RET_INVALID_ARG;
    rsp->set_api_status(types::API_STATUS_INVALID_ARG);
    if (!req) {
        return;
    }
    if (!update_clock(req->clock_frequency(), k_core_frequencies, nyx_clock_frequency_update, &ret)) {
        SVC_TRACE_ERR("Clock-frequency update failed, accepted frequencies are 833, 900, 957, 1033 and 1100");
        return;
    }
    if (!update_clock(req->arm_clock_frequency(), k_arm_frequencies, nyx_arm_clock_frequency_update, &ret)) {
        SVC_TRACE_ERR("Clock-frequency update failed, accepted frequencies are 1667, 2000, 2200 and 3000");
        return;
    }
    if (!update_clock(req->p4_stage_frequency(), k_p4_stage_frequencies, nyx_p4_stage_frequency_update,
                      &ret)) {
        SVC_TRACE_ERR("P4 Stage frequency update failed, acccepted frequencies are 1137 and 1500");
        return;
    }
    rsp->set_api_status(sdk_ret_to_api_status(ret));
}

}  // namespace

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&SystemSvcImpl::SystemGet>("SystemGet"),
    svc::method_of<&SystemSvcImpl::ClockFrequencyUpdate>("ClockFrequencyUpdate"),
    svc::method_of<&SystemSvcImpl::QueueCreditsGet>("QueueCreditsGet"),
    svc::method_of<&SystemSvcImpl::ProcessRecoveryEnable>("ProcessRecoveryEnable"),
    svc::method_of<&SystemSvcImpl::ProcessRecoveryDisable>("ProcessRecoveryDisable"),
    svc::method_of<&SystemSvcImpl::ProcessRecoveryGet>("ProcessRecoveryGet"),
};

SystemSvcImpl::SystemSvcImpl() : served(k_methods) {}

SystemSvcImpl::~SystemSvcImpl() = default;

grpc::Status SystemSvcImpl::SystemGet(grpc::ServerContext *context, const types::Empty *req,
                                      nyx::SystemGetResponse *rsp) {
    return svc::call(context, req, rsp, ::SystemGet);
}

grpc::Status SystemSvcImpl::ClockFrequencyUpdate(grpc::ServerContext *context,
                                                 const nyx::ClockFrequencyRequest *req,
                                                 nyx::ClockFrequencyResponse *rsp) {
    return svc::call(context, req, rsp, ::ClockFrequencyUpdate);
}

void nyx_queue_credits_to_proto(uint32_t port, sdk::asic::pd::port_queue_credit_s *credits, void *ctxt) {
    auto *proto = static_cast<nyx::QueueCreditsGetResponse *>(ctxt)->add_port_queue_credit();
    proto->set_port(port);
    for (const sdk::asic::pd::queue_credit_s queue : queues_of(credits)) {
        auto *queue_credit = proto->add_queue_credit();
        queue_credit->set_queue(queue.queue);
        queue_credit->set_credit(queue.credit);
    }
}

grpc::Status SystemSvcImpl::QueueCreditsGet(grpc::ServerContext *context, const types::Empty *req,
                                            nyx::QueueCreditsGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        rsp->set_api_status(
            sdk_ret_to_api_status(sdk::asic::pd::queue_credits_get(nyx_queue_credits_to_proto, rsp)));
    });
}

grpc::Status SystemSvcImpl::ProcessRecoveryEnable(grpc::ServerContext *context, const types::Empty *req,
                                                  types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { sysmgr::Client::recovery_toggle(true); });
}

grpc::Status SystemSvcImpl::ProcessRecoveryDisable(grpc::ServerContext *context, const types::Empty *req,
                                                   types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] { sysmgr::Client::recovery_toggle(false); });
}

grpc::Status SystemSvcImpl::ProcessRecoveryGet(grpc::ServerContext *context, const types::Empty *req,
                                               nyx::ProcessRecoveryGetResponse *rsp) {
    return svc::call(context, req, rsp, [&] {
        bool enabled = false, suspended = false;
        sysmgr::Client::get_recovery_status(&enabled, &suspended);
        rsp->set_recovery_status(enabled     ? nyx::RECOVERY_STATUS_ENABLED
                                 : suspended ? nyx::RECOVERY_STATUS_SUSPENDED
                                             : nyx::RECOVERY_STATUS_DISABLED);
    });
}
