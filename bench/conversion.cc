// An entry on its way from message to record and back, by the time that protobuf takes to parse it.

#include <benchmark/benchmark.h>

#include <memory>

#include "bench/entries.h"
#include "bench/figures.h"
#include "svc/nyx_tbl_flow.h"
#include "svc/nyx_tbl_frame.h"

namespace bench {

namespace {

constexpr int k_batch = 1000;

double to_record(nanoseconds slice) {
    const auto spec = std::make_unique<nyx::flowSpec>(flow_entries(1).request(0));
    return cost_of(slice, k_batch, [&spec] {
        nyx_tbl_flow_spec_s record{};
        nyx_tbl::spec_to_record<nyx_tbl::flow_binding>(record, *spec);
        benchmark::DoNotOptimize(&record);
        benchmark::ClobberMemory();
    });
}

double to_message(nanoseconds slice) {
    const nyx_tbl_flow_spec_s record = flow_record();
    benchmark::DoNotOptimize(&record);
    return cost_of(slice, k_batch, [&record] {
        const auto spec = std::make_unique<nyx::flowSpec>();
        nyx_tbl::record_to_spec<nyx_tbl::flow_binding>(spec.get(), record);
        benchmark::DoNotOptimize(spec.get());
        benchmark::ClobberMemory();
    });
}

double parse(nanoseconds slice) {
    const std::string bytes = flow_entries(1).request(0).SerializeAsString();
    return cost_of(slice, k_batch, [&bytes] {
        const auto spec = std::make_unique<nyx::flowSpec>();
        if (!spec->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
            fail("protobuf does not parse the entry");
        }
        benchmark::DoNotOptimize(spec.get());
        benchmark::ClobberMemory();
    });
}

}  // namespace

void add_conversion(ratio_table *table) {
    table->time_at_most(0.06, "entry to record / protobuf's parse", to_record, parse);
    table->time_at_most(0.75, "record to entry / protobuf's parse", to_message, parse);
}

}  // namespace bench
