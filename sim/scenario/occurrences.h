// When an event of a scenario begins and ends.

#pragma once

#include <cstdint>
#include <limits>

#include "sim/scenario/scenario.h"
#include "sim/scenario/seeded.h"

namespace sim {

constexpr uint64_t k_never = std::numeric_limits<uint64_t>::max();

// Walks through the beginnings and ends of one event, in the order of time. `number` distinguishes the random numbers
// of events.
class occurrences {
 public:
    occurrences(const event_s &event, uint64_t seed, uint64_t number)
        : event_(&event), seed_(seed), number_(number), next_ms_(begin_of(0)) {}

    uint64_t next_ms() const { return next_ms_; }
    bool next_is_begin() const { return !is_on_; }

    void go_on() {
        if (!is_on_ && event_->what != EVENT_RESTART) {
            is_on_ = true;
            next_ms_ += event_->lasts_ms;
        } else {
            is_on_ = false;
            next_ms_ = event_->every_ms ? begin_of(++count_) : k_never;
        }
    }

 private:
    // The parser ensures that an event ends before it begins again.
    uint64_t begin_of(uint64_t count) const {
        return event_->at_ms + count * event_->every_ms +
               seeded(seed_, number_, count) % (event_->jitter_ms + 1);
    }

    const event_s *event_;
    uint64_t seed_, number_;
    uint64_t next_ms_;
    uint64_t count_ = 0;
    bool is_on_ = false;
};

}  // namespace sim
