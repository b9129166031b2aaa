// A card on which a scenario happens. It has no clock and no thread: whoever owns it says how late it is.

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/scenario/occurrences.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/traffic.h"

namespace sim {

constexpr size_t k_max_remembered_events = 64;

struct happened_s {
    uint64_t at_ms;
    std::string what;
};

struct card_history_s {
    uint64_t now_ms = 0;
    uint64_t events = 0;
    uint64_t restarts = 0;
    std::deque<happened_s> last;  // at most k_max_remembered_events
};

// What it does to the card depends on scenario, seed, time and what clients do, and not on how often it is called. One
// thread at a time; others may use the card meanwhile.
class living_card {
 public:
    // Starts the card anew; its counters begin at 0. `restarted` runs after each restart of the scenario, and must not begin
    // operations.
    living_card(scenario_s scenario, uint64_t seed, std::function<void()> restarted);
    ~living_card();  // removes its faults; otherwise the card stays as it is
    living_card(const living_card &) = delete;
    living_card &operator=(const living_card &) = delete;

    // Brings the card to this time, or nearer to it: handles at most 1,000 events and creates at most 100,000 entries.
    void advance(uint64_t to_ms);

    const card_history_s &history() const { return history_; }

 private:
    struct port_state_s {
        bool carries_traffic = false;
        int reasons_to_be_down = 0;
        bool is_up = false;
    };

    void start();
    uint64_t next_stop(uint64_t to_ms, uint64_t entries) const;
    uint64_t pass(uint64_t to_ms);
    uint64_t due_entries(size_t fill, uint64_t at_ms) const;
    void fill_tables();
    size_t handle_due_events();
    void begin(size_t event);
    void end(size_t event);
    void restart();
    void update_links();
    void update_neighbor();
    void remember(std::string what);
    void publish();

    const scenario_s scenario_;
    const uint64_t seed_;
    const std::function<void()> restarted_;
    traffic traffic_;
    std::vector<occurrences> occurrences_;         // of each event
    std::vector<std::optional<uint32_t>> faults_;  // that an event has armed
    std::array<port_state_s, k_ports> ports_ = {};
    int reasons_without_neighbor_ = 0;
    bool has_neighbor_ = true;
    uint64_t started_ms_ = 0;       // the scenario, or its last restart
    std::vector<uint64_t> filled_;  // entries of each fill since then
    growth_s growth_;               // that is not published yet
    uint64_t flows_ = 0;            // that are
    card_history_s history_;
};

}  // namespace sim
