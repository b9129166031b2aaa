#include "svc/link_event_trace.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>

#include "svc/common/converters.h"

namespace {

constexpr uint64_t k_nanoseconds_per_second = 1'000'000'000;
constexpr int64_t k_nanoseconds_per_millisecond = 1'000'000;

struct record_s {
    link_event_header_s header;
    uint32_t state;
};

// Reads generation by generation, so that the writer never waits.
class trace_reader {
 public:
    explicit trace_reader(const link_event_tracer_s &tracer) : tracer_(tracer) {}

    uint32_t generation() const { return tracer_.generation.load(std::memory_order_seq_cst); }

    uint32_t num_records(uint32_t generation) const {
        const link_event_buffer_s &buffer = buffer_of(generation);
        return buffer.records ? buffer.num_records.load(std::memory_order_acquire) : 0;
    }

    // Nothing when the writer has gone on to the record's buffer.
    std::optional<record_s> record(uint32_t generation, uint32_t index) const {
        const record_s record = copy(buffer_of(generation), index);
        // Checked after the copy, none of whose loads can move below this one, as each is an acquire.
        return this->generation() - generation > 1 ? std::nullopt : std::optional(record);
    }

 private:
    const link_event_buffer_s &buffer_of(uint32_t generation) const { return tracer_.buffer[generation % 2]; }

    // Byte by byte: records are packed, and the writer may be at work on this one.
    record_s copy(const link_event_buffer_s &buffer, uint32_t index) const {
        const size_t size = sizeof(link_event_header_s) + tracer_.record_data_size;
        const auto *from = static_cast<const uint8_t *>(buffer.records) + index * size;
        std::array<uint8_t, sizeof(record_s)> bytes = {};
        for (size_t i = 0; i < size; i++) {
            bytes[i] = __atomic_load_n(from + i, __ATOMIC_ACQUIRE);
        }
        record_s record;
        memcpy(&record, bytes.data(), sizeof(record));
        return record;
    }

    const link_event_tracer_s &tracer_;
};

// A short text of numbers, cut where it is full. Cheaper than strftime() and snprintf(), for up to
// hundreds of records a port.
class number_text {
 public:
    // At least `width` digits.
    number_text &number(uint64_t number, int width = 1) {
        char digits[20];
        char *first = std::end(digits);
        do {
            *--first = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number || std::end(digits) - first < width);
        while (first != std::end(digits)) {
            put(*first++);
        }
        return *this;
    }

    number_text &two_digits(int number) {
        return put(static_cast<char>('0' + number / 10)).put(static_cast<char>('0' + number % 10));
    }

    number_text &put(char c) {
        if (size_ < sizeof(text_)) {
            text_[size_++] = c;
        }
        return *this;
    }

    std::string str() const { return std::string(text_, size_); }

 private:
    char text_[29];
    size_t size_ = 0;
};

// "2026-01-31 23:59:58.7"; empty for a time that has no date.
std::string timestamp_text(const link_event_time_s &time) {
    const time_t seconds = time.seconds;
    tm local;
    if (!localtime_r(&seconds, &local)) {
        return {};
    }
    number_text text;
    const long year = local.tm_year + 1900L;
    if (year < 0) {
        text.put('-');
    }
    text.number(static_cast<uint64_t>(std::abs(year)));
    text.put('-').two_digits(local.tm_mon + 1).put('-').two_digits(local.tm_mday);
    text.put(' ')
        .two_digits(local.tm_hour)
        .put(':')
        .two_digits(local.tm_min)
        .put(':')
        .two_digits(local.tm_sec);
    text.put('.').number(static_cast<uint64_t>(time.nanoseconds / k_nanoseconds_per_millisecond));
    return text.str();
}

bool is_later(const link_event_time_s &time, const link_event_time_s &other) {
    return std::tie(time.seconds, time.nanoseconds) > std::tie(other.seconds, other.nanoseconds);
}

// "1.500000000"; "0.000000000" when `time` is not later. Unsigned arithmetic, so that absurd times can't overflow.
std::string elapsed_text(const link_event_time_s &time, const link_event_time_s &previous) {
    uint64_t seconds = 0, nanoseconds = 0;
    if (is_later(time, previous)) {
        const bool borrows = time.nanoseconds < previous.nanoseconds;
        seconds = static_cast<uint64_t>(time.seconds) - static_cast<uint64_t>(previous.seconds) - borrows;
        nanoseconds = static_cast<uint64_t>(time.nanoseconds) - static_cast<uint64_t>(previous.nanoseconds) +
                      borrows * k_nanoseconds_per_second;
    }
    return number_text().number(seconds).put('.').number(nanoseconds, 9).str();
}

}  // namespace

nyx::PortLinkSMState svc::link_sm_state_to_proto(uint32_t state) {
    return static_cast<nyx::PortLinkSMState>(known_or_none(state, nyx::PortLinkSMState_MAX));
}

void svc::link_event_trace_to_proto(google::protobuf::RepeatedPtrField<nyx::PortLinkSMRecord> *records,
                                    const link_event_tracer_s &tracer) {
    const trace_reader reader(tracer);
    const uint32_t current = reader.generation();
    if (!current || tracer.record_data_size > sizeof(record_s::state)) {
        return;
    }
    tzset();  // localtime_r() need not look at the time zone again
    link_event_time_s previous = {};
    for (uint32_t generation = current - 1; generation != current + 1; generation++) {
        const uint32_t count = reader.num_records(generation);
        for (uint32_t i = 0; i < count; i++) {
            const auto record = reader.record(generation, i);
            if (!record) {
                return;
            }
            auto *proto = records->Add();
            proto->set_timestamp(timestamp_text(record->header.wall_clock));
            proto->set_elapsed(elapsed_text(record->header.elapsed_clock, previous));
            proto->set_state(link_sm_state_to_proto(record->state));
            previous = record->header.elapsed_clock;
        }
    }
}
