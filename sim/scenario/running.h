// The scenario that runs on the card, if any, and its clock. Operations bring the card up to date when they begin, so that
// no thread is needed. Any thread.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "sim/scenario/living_card.h"
#include "sim/scenario/scenario.h"

namespace sim {

constexpr uint32_t k_max_speed = 1000;
constexpr uint64_t k_max_advance_ms = 3'600'000;

struct scenario_settings_s {
    std::string name;  // as clients shall see it
    uint64_t seed = 1;
    uint32_t speed =
        1;  // seconds of the scenario in a second, up to k_max_speed; 0: only advance_scenario() moves it
};

// Starts the card anew, with a scenario instead of the one that ran before.
void start_scenario(scenario_s scenario, scenario_settings_s settings);

// Leaves the card as it is.
void stop_scenario();

// Sets the clock forward, up to k_max_advance_ms, and handles everything until then. Operations go on meanwhile. When
// `is_wanted` no longer is, leaves the rest to them. False: no scenario runs.
bool advance_scenario(
    uint64_t by_ms, const std::function<bool()> &is_wanted = [] { return true; });

struct scenario_status_s {
    bool is_running = false;  // otherwise, what there was when it was stopped
    scenario_settings_s settings;
    std::string title;
    card_history_s history;
};

scenario_status_s scenario_status();

// Runs whenever the card has started anew: at the start of a scenario, and at each restart in it. It must not begin
// operations. Set before operations begin; null: nothing.
void on_card_restart(std::function<void()> restarted);

}  // namespace sim
