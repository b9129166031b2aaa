// The link event trace of a port: the last transitions of its link state machine, written by the port API while
// others read it without a lock.
//
// Two buffers take turns: generation g of the trace is in buffer g modulo 2, and generation g - 1, the previous
// one, is complete in the other. To switch, the writer
//   1. sets the other buffer's num_records to 0,
//   2. advances the generation,
//   3. writes records there, and counts each one after it is complete.
// So a copied record is whole when the generation read after the copy is at most one above the record's own. A writer
// that advanced the generation first would, for a moment, present the old number of records as that of the new
// generation.
//
// One thread writes; any number of threads read, at any time while services run. The reader copies byte by byte, uses
// acquire loads, and reads records that are being overwritten: it drops those, and the rest of the walk.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

struct link_event_time_s {
    int64_t seconds;
    int64_t nanoseconds;
};
static_assert(std::has_unique_object_representations_v<link_event_time_s>);  // no gaps

// A record: this header, then the record data. Records follow each other without gaps.
struct link_event_header_s {
    link_event_time_s wall_clock;     // reported in the agent's local time
    link_event_time_s elapsed_clock;  // for the time between records
};
static_assert(std::has_unique_object_representations_v<link_event_header_s>);  // no gaps
static_assert(sizeof(link_event_header_s) == 32);

struct link_event_buffer_s {
    const void *records;  // fixed once the tracer exists; null: no records
    std::atomic<uint32_t> num_records;
    uint32_t reserved;
};

struct link_event_tracer_s {
    link_event_buffer_s buffer[2];
    uint32_t record_data_size;  // for ports 4: a u32, the state entered, 1 to 24; above 4 nothing is read
    std::atomic<uint32_t> generation;  // 0: nothing has been written yet
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);
static_assert(offsetof(link_event_tracer_s, buffer[0].num_records) == 8);
static_assert(offsetof(link_event_tracer_s, buffer[1].records) == 16);
static_assert(offsetof(link_event_tracer_s, buffer[1].num_records) == 24);
static_assert(offsetof(link_event_tracer_s, record_data_size) == 32);
static_assert(offsetof(link_event_tracer_s, generation) == 36);
static_assert(sizeof(link_event_tracer_s) == 40);
