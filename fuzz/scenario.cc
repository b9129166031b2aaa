// Scenarios of the card: any text is refused or runs, and the counters balance whatever happens.

#include <stdexcept>
#include <utility>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/quiet.h"
#include "sim/scenario/running.h"
#include "tests/card_sums.h"

namespace {

void run(sim::scenario_s scenario) {
    constexpr uint64_t k_step_ms = 17'011;
    std::erase_if(scenario.events,
                  [](auto &event) { return event.what == sim::EVENT_FAULT; });  // they may wait
    for (auto &fill : scenario.fills) {
        fill.entries = std::min<uint64_t>(fill.entries, 1000);
    }
    sim::start_scenario(std::move(scenario), {.name = "fuzz", .seed = 1, .speed = 0});
    for (int step = 0; step < 4; step++) {
        sim::advance_scenario(k_step_ms);
        fuzz::check(test::sums().balance, "what came in went out or was dropped");
    }
    sim::stop_scenario();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    try {
        run(sim::parse_scenario(fuzz::input(data, size).take_rest()));
    } catch (const std::invalid_argument &) {
    }
    return 0;
}
