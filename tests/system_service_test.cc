// The system service through real gRPC calls.

#include <array>

#include "svc/system.h"
#include "tests/device_fixture.h"

namespace {

using nyx::ClockFrequencyResponse;
using nyx::SystemGetResponse;
using test::IsMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class system_service : public test::device_service<nyx::SystemSvc, SystemSvcImpl> {};

TEST_F(system_service, AllValuesButTheFirstVoltageAreReported) {
    sim::system_state_s state;
    state.voltage = {{1, 2, 3}};
    state.power = {{4, 5, 6}};
    state.frequency = {{7, 8, 9}};
    state.temperature = {{10, 11, UINT32_MAX}};
    state.die_id = std::string(62, 'd') + "!";
    state.led = 2;
    state.reset_reason = 8;
    sim::put_system_state(state);
    EXPECT_THAT(call<SystemGetResponse>("SystemGet"),
                IsMessage("die_id: '" + state.die_id +
                          "' voltage { value_1: 2 value_2: 3 } power { value_1: 4 value_2: 5 value_3: 6 } "
                          "frequency { value_1: 7 value_2: 8 value_3: 9 } "
                          "temperature { value_1: 10 value_2: 11 value_3: 4294967295 } "
                          "led_status: LED_STATUS_2 reset_reason: RESET_REASON_8"));
}

TEST_F(system_service, ValuesOutOfRangeAreReplaced) {
    sim::system_state_s state;
    state.die_id = "die \xff";
    const std::array<uint32_t, 4> cases[] = {// LED and reset reason, read and reported
                                             {0, 0, 3, 0},
                                             {1, 1, 1, 1},
                                             {2, 7, 2, 7},
                                             {3, 9, 3, 0},
                                             {0x80000001, UINT32_MAX, 3, 0}};
    for (const auto &[led, reset_reason, led_reported, reset_reason_reported] : cases) {
        state.led = led;
        state.reset_reason = reset_reason;
        sim::put_system_state(state);
        const auto rsp = call<SystemGetResponse>("SystemGet");
        EXPECT_EQ(static_cast<uint32_t>(rsp.led_status()), led_reported) << led;
        EXPECT_EQ(static_cast<uint32_t>(rsp.reset_reason()), reset_reason_reported) << reset_reason;
        EXPECT_EQ(rsp.die_id(), "die \xef\xbf\xbd");
    }
}

TEST_F(system_service, FirstGetterThatFails_IsAllThatIsReported) {
    const std::pair<std::string, std::string> getters[] = {{"voltage", "voltage"},
                                                           {"power", "power"},
                                                           {"die_id", "die id"},
                                                           {"clock_frequency", "frequencies"},
                                                           {"temperature", "temperature"}};
    trace_.log().trace_level = 1;
    for (size_t first = 0; first < std::size(getters); first++) {
        sim::clear_faults();
        for (size_t i = first; i < std::size(getters); i++) {
            add_fault("nyx_get_system_" + getters[i].first + (i == first ? ":code=1" : ":code=6"));
        }
        EXPECT_THAT(call<SystemGetResponse>("SystemGet"), IsMessage("api_status: API_STATUS_OUT_OF_MEMORY"));
        ASSERT_EQ(trace_.messages().size(), first + 1);
        EXPECT_EQ(trace_.messages()[first],
                  "Failure getting system " + getters[first].second + ", err \"out of memory error\"");
        EXPECT_THAT(trace_.sink().lines()[first], StartsWith("[SystemGet:"));
    }
}

class clock_update : public system_service {
 protected:
    clock_update() { trace_.log().trace_level = 1; }

    // Returns the frequencies afterwards; the clocks start at 1100, 2000 and 1500 MHz.
    std::vector<uint32_t> update(uint32_t core, uint32_t arm, uint32_t p4_stage, types::ApiStatus status) {
        nyx::ClockFrequencyRequest req;
        req.set_clock_frequency(core);
        req.set_arm_clock_frequency(arm);
        req.set_p4_stage_frequency(p4_stage);
        const auto rsp = call<ClockFrequencyResponse>("ClockFrequencyUpdate", req);
        EXPECT_EQ(rsp.api_status(), status) << req.ShortDebugString();
        const auto after = sim::system_state().frequency;
        return {std::begin(after.value), std::end(after.value)};
    }
};

TEST_F(clock_update, EveryAcceptedFrequencyReachesItsClock) {
    for (const uint32_t core : {833U, 900U, 957U, 1033U, 1100U}) {
        EXPECT_THAT(update(core, 0, 0, types::API_STATUS_OK), ElementsAre(core, 2000, 1500));
    }
    for (const uint32_t arm : {1667U, 2200U, 2000U, 3000U}) {
        EXPECT_THAT(update(0, arm, 0, types::API_STATUS_OK), ElementsAre(1100, arm, 1500));
    }
    for (const uint32_t p4_stage : {1137U, 1500U}) {
        EXPECT_THAT(update(0, 0, p4_stage, types::API_STATUS_OK), ElementsAre(1100, 3000, p4_stage));
    }
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(clock_update, RefusedFrequencyEndsTheRequest_WhatWasChangedBeforeStays) {
    constexpr auto k_refused = types::API_STATUS_INVALID_ARG;
    EXPECT_THAT(update(0, 0, 0, k_refused), ElementsAre(1100, 2000, 1500));
    EXPECT_THAT(update(834, 2100, 1, k_refused), ElementsAre(1100, 2000, 1500));
    EXPECT_THAT(update(1500, 3000, 1137, k_refused), ElementsAre(1100, 2000, 1500));
    EXPECT_THAT(update(900, 2100, 1137, k_refused), ElementsAre(900, 2000, 1500));
    EXPECT_THAT(update(957, 3000, 1100, k_refused), ElementsAre(957, 3000, 1500));
    const std::string core =
        "Clock-frequency update failed, accepted frequencies are 833, 900, 957, 1033 and 1100";
    EXPECT_THAT(
        trace_.messages(),
        ElementsAre(core, core,
                    "Clock-frequency update failed, accepted frequencies are 1667, 2000, 2200 and 3000",
                    "P4 Stage frequency update failed, acccepted frequencies are 1137 and 1500"));
    EXPECT_THAT(trace_.sink().lines(), testing::Each(StartsWith("[ClockFrequencyUpdate:")));
}

TEST_F(clock_update, StatusIsThatOfTheLastChange) {
    add_fault("nyx_clock_frequency_update:code=1");
    EXPECT_THAT(update(833, 0, 1137, types::API_STATUS_OK), ElementsAre(1100, 2000, 1137));
    EXPECT_THAT(update(833, 0, 0, types::API_STATUS_OUT_OF_MEMORY), ElementsAre(1100, 2000, 1137));
    add_fault("nyx_arm_clock_frequency_update:code=39");
    EXPECT_THAT(update(833, 1667, 0, types::API_STATUS_TIMED_OUT), ElementsAre(1100, 2000, 1137));
    add_fault("nyx_p4_stage_frequency_update:code=10");
    EXPECT_THAT(update(0, 1667, 1500, types::API_STATUS_RETRY), ElementsAre(1100, 2000, 1137));
}

TEST_F(system_service, RecoveryIsSwitchedAndRead) {
    const auto status_after = [&](const std::string &method) {
        call<types::Empty>(method);
        return call<nyx::ProcessRecoveryGetResponse>("ProcessRecoveryGet").recovery_status();
    };
    sim::system_state_s state;
    for (const bool suspended : {true, false}) {
        state.recovery_suspended = suspended;
        sim::put_system_state(state);
        EXPECT_EQ(status_after("ProcessRecoveryDisable"),
                  suspended ? nyx::RECOVERY_STATUS_SUSPENDED : nyx::RECOVERY_STATUS_DISABLED);
        EXPECT_EQ(status_after("ProcessRecoveryEnable"), nyx::RECOVERY_STATUS_ENABLED);
    }
    add_fault("sysmgr::Client::recovery_toggle:code=19");
    EXPECT_EQ(status_after("ProcessRecoveryDisable"), nyx::RECOVERY_STATUS_ENABLED);
    add_fault("sysmgr::Client::get_recovery_status:code=19");
    EXPECT_EQ(status_after("ProcessRecoveryEnable"), nyx::RECOVERY_STATUS_DISABLED);
}

TEST_F(system_service, AllQueueCreditsAreReported_AlsoOfPortsBeforeAFailure) {
    sim::system_state_s state;
    state.credits = {{7, {{0, 10}, {UINT32_MAX, 20}}}, {9, {}}, {1, {}}, {3, {}}};
    state.credits[2].queues.assign(1000, {63, 630});
    sim::put_system_state(state);
    add_fault("sdk::asic::pd::queue_credits_get:code=42,nth=4");
    const auto rsp = call<nyx::QueueCreditsGetResponse>("QueueCreditsGet");
    EXPECT_EQ(rsp.api_status(), types::API_STATUS_ENTRY_EXISTS_IN_HW);
    ASSERT_EQ(rsp.port_queue_credit_size(), 3);
    EXPECT_THAT(
        rsp.port_queue_credit(0),
        IsMessage("port: 7 queue_credit { credit: 10 } queue_credit { queue: 4294967295 credit: 20 }"));
    EXPECT_THAT(rsp.port_queue_credit(1), IsMessage("port: 9"));
    ASSERT_EQ(rsp.port_queue_credit(2).queue_credit_size(), 1000);
    EXPECT_THAT(rsp.port_queue_credit(2).queue_credit(999), IsMessage("queue: 63 credit: 630"));
    sim::clear_faults();
    EXPECT_EQ(call<nyx::QueueCreditsGetResponse>("QueueCreditsGet").api_status(), types::API_STATUS_OK);
}

}  // namespace
