#include "sim/scenario/running.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "sim/faults/faults.h"

namespace sim {

namespace {

using steady = std::chrono::steady_clock;

class virtual_clock {
 public:
    explicit virtual_clock(uint32_t speed = 0) : speed_(speed), since_(steady::now()) {}

    uint64_t now_ms() const {
        const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(steady::now() - since_);
        return set_forward_ms_ + static_cast<uint64_t>(passed.count()) * speed_ / 1000;
    }

    void set_forward(uint64_t by_ms) { set_forward_ms_ += by_ms; }

 private:
    uint32_t speed_;
    steady::time_point since_;
    uint64_t set_forward_ms_ = 0;
};

// The card is changed under the lock. An operation never holds a lock when it begins, so nobody waits for another.
struct running_s {
    std::mutex lock;
    std::unique_ptr<living_card> card;
    virtual_clock clock;
    scenario_status_s status;
    std::function<void()> restarted;

    // `status` with what the card knows.
    const scenario_status_s &current_status() {
        if (card) {
            status.history = card->history();
        }
        return status;
    }
};

running_s &running() {
    static running_s running;
    return running;
}

void bring_up_to_date() {
    auto &state = running();
    std::lock_guard guard(state.lock);
    if (state.card) {
        state.card->advance(state.clock.now_ms());
    }
}

void notify(running_s &state) {
    if (state.restarted) {
        state.restarted();
    }
}

}  // namespace

void start_scenario(scenario_s scenario, scenario_settings_s settings) {
    auto &state = running();
    std::lock_guard guard(state.lock);
    state.status = {
        .is_running = true, .settings = std::move(settings), .title = scenario.title, .history = {}};
    state.card.reset();  // first, because it removes its faults
    state.card = std::make_unique<living_card>(std::move(scenario), state.status.settings.seed,
                                               [&state] { notify(state); });
    state.clock = virtual_clock(state.status.settings.speed);
    notify(state);
    run_before_operations(bring_up_to_date);
}

void stop_scenario() {
    auto &state = running();
    std::lock_guard guard(state.lock);
    run_before_operations(nullptr);
    (void)state.current_status();
    state.status.is_running = false;
    state.card.reset();
}

bool advance_scenario(uint64_t by_ms, const std::function<bool()> &is_wanted) {
    auto &state = running();
    std::unique_lock guard(state.lock);
    if (!state.card) {
        return false;
    }
    state.clock.set_forward(by_ms);
    const uint64_t target = state.clock.now_ms();
    while (state.card && state.card->history().now_ms < target && is_wanted()) {
        state.card->advance(target);
        guard.unlock();
        std::this_thread::yield();
        guard.lock();
    }
    return true;
}

scenario_status_s scenario_status() {
    bring_up_to_date();
    auto &state = running();
    std::lock_guard guard(state.lock);
    return state.current_status();
}

void on_card_restart(std::function<void()> restarted) {
    auto &state = running();
    std::lock_guard guard(state.lock);
    state.restarted = std::move(restarted);
}

}  // namespace sim
