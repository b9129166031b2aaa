// The writer of a link event trace.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "agent_api/link_event_tracer.h"

namespace sim {

// One thread at a time appends; readers of the tracer need no lock.
class link_event_trace {
 public:
    // `capacity`: records in each of the two buffers, 1 or more.
    explicit link_event_trace(uint32_t capacity = 8);
    link_event_trace(const link_event_trace &) = delete;
    link_event_trace &operator=(const link_event_trace &) = delete;

    // The trace for readers; valid as long as this object.
    const link_event_tracer_s *tracer() const { return &tracer_; }

    // Forgets all records. Counts as appending: one thread at a time.
    void clear();

    void append(uint32_t state, link_event_time_s wall_clock, link_event_time_s elapsed_clock);

 private:
    link_event_buffer_s &next_place();
    link_event_buffer_s &switch_buffers();

    const uint32_t capacity_;
    std::vector<uint8_t> records_[2];
    link_event_tracer_s tracer_ = {};
};

}  // namespace sim
