#include "sim/card/link_event_writer.h"

#include <cstring>

namespace sim {

namespace {

struct record_s {
    link_event_header_s header;
    uint32_t state;
} __attribute__((packed));

// Each byte is released after the generation has advanced: a reader that acquires a byte of the new record then reads the
// new generation, and knows that its copy is incomplete.
void store(uint8_t *to, const record_s &record) {
    uint8_t bytes[sizeof(record)];
    memcpy(bytes, &record, sizeof(record));
    for (const uint8_t byte : bytes) {
        std::atomic_ref(*to++).store(byte, std::memory_order_release);
    }
}

}  // namespace

link_event_trace::link_event_trace(uint32_t capacity) : capacity_(capacity) {
    for (int i = 0; i < 2; i++) {
        records_[i].resize(capacity * sizeof(record_s));
        tracer_.buffer[i].records = records_[i].data();
    }
    tracer_.record_data_size = sizeof(record_s::state);
}

void link_event_trace::clear() {
    if (tracer_.generation.load(std::memory_order_relaxed) > 0) {
        switch_buffers();
        switch_buffers();
    }
}

void link_event_trace::append(uint32_t state, link_event_time_s wall_clock, link_event_time_s elapsed_clock) {
    auto &buffer = next_place();
    const uint32_t place = buffer.num_records.load(std::memory_order_relaxed);
    store(&records_[&buffer - tracer_.buffer][place * sizeof(record_s)],
          {{wall_clock, elapsed_clock}, state});
    buffer.num_records.store(place + 1, std::memory_order_release);
}

// Returns the buffer that has room for a record. In generation 0, neither has.
link_event_buffer_s &link_event_trace::next_place() {
    const uint32_t generation = tracer_.generation.load(std::memory_order_relaxed);
    auto &current = tracer_.buffer[generation % 2];
    const bool has_room = generation > 0 && current.num_records.load(std::memory_order_relaxed) < capacity_;
    return has_room ? current : switch_buffers();
}

// Begins the next generation, and returns its buffer, which is empty.
//
// The count is set to 0 before the generation advances. In the other order a reader could see the new generation with the
// old count, and read records while they are overwritten.
link_event_buffer_s &link_event_trace::switch_buffers() {
    const uint32_t generation = tracer_.generation.load(std::memory_order_relaxed);
    auto &other = tracer_.buffer[(generation + 1) % 2];
    other.num_records.store(0, std::memory_order_relaxed);
    tracer_.generation.store(generation + 1, std::memory_order_release);
    return other;
}

}  // namespace sim
