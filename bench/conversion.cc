// Converts an entry from message to record and back, and compares with protobuf's parse, reflection and a plain copy.

#include <google/protobuf/arena.h>

#include <cstring>
#include <memory>
#include <vector>

#include "bench/entries.h"
#include "bench/figures.h"
#include "bench/reflection.h"
#include "svc/nyx_tbl_flow.h"
#include "svc/table_operations.h"

namespace bench {

namespace {

constexpr int k_batch = 1000;

// Keeps the optimizer from dropping writes: what `pointer` points at, and all other memory, counts as read and changed.
void keep(const void *pointer) { asm volatile("" : : "r"(pointer) : "memory"); }

// `convert` fills a record from an entry.
template <class Convert>
cost filling_record(Convert convert) {
    return [convert](nanoseconds slice) {
        const auto spec = std::make_unique<nyx::flowSpec>(flow_entries(1).request(0));
        return cost_of(slice, k_batch, [&] {
            nyx_tbl_flow_spec_s record{};
            convert(record, *spec);
            keep(&record);
        });
    };
}

// `convert` fills an entry from a record, in an arena that has its memory already.
template <class Convert>
cost filling_message(Convert convert) {
    return [convert](nanoseconds slice) {
        const nyx_tbl_flow_spec_s record = flow_record();
        keep(&record);
        std::vector<char> memory(1 << 20);
        google::protobuf::Arena arena(memory.data(), memory.size());
        const double batch_cost = cost_of(slice, 1, [&] {
            for (int i = 0; i < k_batch; i++) {
                auto *spec = google::protobuf::Arena::CreateMessage<nyx::flowSpec>(&arena);
                convert(spec, record);
                keep(spec);
            }
            arena.Reset();
        });
        return batch_cost / k_batch;
    };
}

double parse(nanoseconds slice) {
    const std::string bytes = flow_entries(1).request(0).SerializeAsString();
    return cost_of(slice, k_batch, [&bytes] {
        const auto spec = std::make_unique<nyx::flowSpec>();
        if (!spec->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
            fail("protobuf does not parse the entry");
        }
        keep(spec.get());
    });
}

}  // namespace

void add_conversion(ratio_table *table) {
    const auto to_record = filling_record(
        [](auto &record, const auto &spec) { nyx_tbl::spec_to_record<nyx_tbl::flow_binding>(record, spec); });
    const auto to_message = filling_message(
        [](auto *spec, const auto &record) { nyx_tbl::record_to_spec<nyx_tbl::flow_binding>(spec, record); });
    const auto reflection = std::make_shared<flow_reflection>();
    table->time_at_most(0.04, "entry to record / protobuf's parse", to_record, parse);
    table->time_at_most(0.40, "record to entry in an arena / protobuf's parse", to_message, parse);
    table->throughput_at_least(20, "entry to record / by reflection", to_record,
                               filling_record([reflection](auto &record, const auto &spec) {
                                   reflection->to_record(record, spec);
                               }));
    table->throughput_at_least(0, "record to entry in an arena / by reflection", to_message,
                               filling_message([reflection](auto *spec, const auto &record) {
                                   reflection->to_message(spec, record);
                               }));
    const auto stored = std::make_shared<nyx_tbl_flow_spec_s>(flow_record());
    table->throughput_at_least(0, "entry to record / copy of the record", to_record,
                               filling_record([stored](auto &record, const auto &) {
                                   memcpy(&record, stored.get(), sizeof(record));
                               }));
}

}  // namespace bench
