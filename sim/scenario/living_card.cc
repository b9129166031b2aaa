#include "sim/scenario/living_card.h"

#include <algorithm>
#include <utility>

#include "sim/api/lldp.h"
#include "sim/faults/faults.h"
#include "sim/scenario/card_changes.h"

namespace sim {

namespace {

constexpr uint64_t k_second_ms = 1000, k_lldp_ms = 30'000;
constexpr size_t k_max_events = 1000;
constexpr uint64_t k_max_entries = 100'000;

std::string of_port(const char *what, const event_s &event, const char *how) {
    return what + std::to_string(event.port) + how;
}

}  // namespace

living_card::living_card(scenario_s scenario, uint64_t seed, std::function<void()> restarted)
    : scenario_(std::move(scenario)),
      seed_(seed),
      restarted_(std::move(restarted)),
      traffic_(scenario_.traffic, seed),
      faults_(scenario_.events.size()),
      filled_(scenario_.fills.size()) {
    for (const auto &event : scenario_.events) {
        occurrences_.emplace_back(event, seed, 1000 + occurrences_.size());
    }
    for (const auto &stanza : scenario_.traffic) {
        for (const endpoint place : {stanza.from, stanza.to}) {
            if (place < k_ports) {
                ports_[place].carries_traffic = true;
            }
        }
    }
    start();
    handle_due_events();
    publish();
}

living_card::~living_card() {
    for (size_t event = 0; event < faults_.size(); event++) {
        if (faults_[event]) {
            end(event);
        }
    }
}

// The card's own state at a start: the links of port 1 and of the management port are up.
void living_card::start() {
    restart_card();
    growth_ = {};
    flows_ = 0;
    started_ms_ = history_.now_ms;
    std::ranges::fill(filled_, 0);
    ports_[0].is_up = ports_[2].is_up = has_neighbor_ = true;
    ports_[1].is_up = false;
    for (uint8_t port = 1; port <= 2; port++) {
        // A transceiver that is out stays out.
        const auto is_out = [&](size_t i) {
            return scenario_.events[i].what == EVENT_TRANSCEIVER_OUT && scenario_.events[i].port == port &&
                   !occurrences_[i].next_is_begin();
        };
        for (size_t i = 0; i < occurrences_.size(); i++) {
            if (is_out(i)) {
                set_transceiver(port, false);
            }
        }
    }
    update_links();
    update_neighbor();
}

void living_card::advance(uint64_t to_ms) {
    uint64_t entries = 0;
    size_t events = handle_due_events();
    while (history_.now_ms < to_ms && events < k_max_events && entries < k_max_entries) {
        entries += pass(next_stop(to_ms, k_max_entries - entries));
        events += handle_due_events();
    }
    publish();
}

// The next event, the end of time, or the moment at which so many entries have been created.
uint64_t living_card::next_stop(uint64_t to_ms, uint64_t entries) const {
    uint64_t stop = to_ms;
    for (const auto &each : occurrences_) {
        stop = std::min(stop, each.next_ms());
    }
    uint64_t per_second = 0;
    for (size_t i = 0; i < filled_.size(); i++) {
        per_second += filled_[i] < scenario_.fills[i].entries ? scenario_.fills[i].per_second : 0;
    }
    return per_second ? std::min(stop, history_.now_ms + 1 + entries * k_second_ms / per_second) : stop;
}

// Returns how many entries were created.
uint64_t living_card::pass(uint64_t to_ms) {
    const uint64_t from_ms = std::exchange(history_.now_ms, to_ms);
    traffic_.pass(from_ms, to_ms, {ports_[0].is_up, ports_[1].is_up, ports_[2].is_up}, &growth_);
    const uint64_t frames = to_ms / k_lldp_ms - from_ms / k_lldp_ms;
    count_lldp_frames(1, ports_[0].is_up ? frames : 0, has_neighbor_ ? frames : 0);
    uint64_t entries = 0;
    for (size_t i = 0; i < filled_.size(); i++) {
        for (const uint64_t due = due_entries(i, to_ms); filled_[i] < due; filled_[i]++, entries++) {
            fill_table(scenario_.fills[i].table, filled_[i]);
        }
    }
    return entries;
}

uint64_t living_card::due_entries(size_t fill, uint64_t at_ms) const {
    const auto &stanza = scenario_.fills[fill];
    const uint64_t begin_ms = std::max(stanza.at_ms, started_ms_);
    return at_ms <= begin_ms ? 0
                             : std::min(stanza.entries, (at_ms - begin_ms) * stanza.per_second / k_second_ms);
}

size_t living_card::handle_due_events() {
    size_t handled = 0;
    for (size_t i = 0; i < occurrences_.size(); i++) {
        while (occurrences_[i].next_ms() <= history_.now_ms) {
            const bool begins = occurrences_[i].next_is_begin();
            occurrences_[i].go_on();
            begins ? begin(i) : end(i);
            handled++;
        }
    }
    return handled;
}

void living_card::begin(size_t number) {
    const event_s &event = scenario_.events[number];
    switch (event.what) {
        case EVENT_LINK_DOWN:
            remember(of_port("link of port ", event, " down"));
            ports_[event.port - 1].reasons_to_be_down++;
            break;
        case EVENT_TRANSCEIVER_OUT:
            remember(of_port("transceiver of port ", event, " pulled"));
            set_transceiver(static_cast<uint8_t>(event.port), false);
            ports_[event.port - 1].reasons_to_be_down++;
            break;
        case EVENT_NEIGHBOR_GONE:
            remember(of_port("neighbor of port ", event, " gone"));
            reasons_without_neighbor_++;
            break;
        case EVENT_FAULT:
            remember("fault added: " + event.fault.text);
            faults_[number] = add_fault(event.fault);
            break;
        case EVENT_RESTART:
            return restart();
    }
    update_links();
    update_neighbor();
}

void living_card::end(size_t number) {
    const event_s &event = scenario_.events[number];
    switch (event.what) {
        case EVENT_LINK_DOWN:
            remember(of_port("link of port ", event, " up"));
            ports_[event.port - 1].reasons_to_be_down--;
            break;
        case EVENT_TRANSCEIVER_OUT:
            remember(of_port("transceiver of port ", event, " plugged in"));
            set_transceiver(static_cast<uint8_t>(event.port), true);
            ports_[event.port - 1].reasons_to_be_down--;
            break;
        case EVENT_NEIGHBOR_GONE:
            remember(of_port("neighbor of port ", event, " back"));
            reasons_without_neighbor_--;
            break;
        case EVENT_FAULT: {
            remember("fault removed: " + event.fault.text);
            std::vector<armed_fault_s> removed;
            remove_faults(std::span(&*faults_[number], 1), &removed);  // unless a client was faster
            faults_[number].reset();
            break;
        }
        case EVENT_RESTART:
            break;
    }
    update_links();
    update_neighbor();
}

void living_card::restart() {
    remember("restart");
    history_.restarts++;
    start();
    restarted_();
}

// Port 2 starts without a link and stays so unless it has traffic.
void living_card::update_links() {
    for (uint8_t i = 0; i < k_ports; i++) {
        const bool has_link = i != 1 || ports_[i].carries_traffic;
        const bool is_up = has_link && ports_[i].reasons_to_be_down == 0;
        if (std::exchange(ports_[i].is_up, is_up) != is_up) {
            set_link(static_cast<uint8_t>(i + 1), is_up, history_.now_ms);
        }
    }
}

void living_card::update_neighbor() {
    const bool is_there = ports_[0].is_up && reasons_without_neighbor_ == 0;
    if (std::exchange(has_neighbor_, is_there) != is_there) {
        set_lldp_neighbor(1, is_there);
    }
}

void living_card::remember(std::string what) {
    history_.events++;
    history_.last.push_back({history_.now_ms, std::move(what)});
    if (history_.last.size() > k_max_remembered_events) {
        history_.last.pop_front();
    }
}

void living_card::publish() {
    add_growth(growth_, flows_);
    flows_ += growth_.flows;
    growth_ = {};
    set_sensors(scenario_.sensors, seed_, history_.now_ms);
}

}  // namespace sim
