#include "svc/method_counters.h"

#include <algorithm>

namespace svc {

namespace {

template <class Counters>
void increment(Counters &counters, size_t at) {
    counters[std::min(at, counters.size() - 1)].fetch_add(1, std::memory_order_relaxed);
}

template <class Counters, class Counts>
void read(const Counters &counters, Counts *counts) {
    std::ranges::transform(counters, counts->begin(),
                           [](const auto &counter) { return counter.load(std::memory_order_relaxed); });
}

}  // namespace

void method_counters::count(const call_facts_s &facts) {
    increment(by_code_, static_cast<size_t>(facts.status.error_code()));
    if (facts.status.ok()) {
        increment(by_api_status_, static_cast<size_t>(facts.api_status));
    }
    const auto *bound = std::ranges::lower_bound(k_duration_bounds, facts.duration);
    increment(by_duration_, static_cast<size_t>(bound - k_duration_bounds.begin()));
    duration_ns_.fetch_add(facts.duration.count(), std::memory_order_relaxed);
}

method_counts_s method_counters::counts(const google::protobuf::MethodDescriptor *method) const {
    method_counts_s counts = {};
    counts.method = method;
    read(by_code_, &counts.by_code);
    read(by_api_status_, &counts.by_api_status);
    read(by_duration_, &counts.by_duration);
    counts.duration = std::chrono::nanoseconds(duration_ns_.load(std::memory_order_relaxed));
    return counts;
}

types::ApiStatus api_status_of(const google::protobuf::Message &response) {
    static const std::string k_name = "api_status";
    const auto *field = response.GetDescriptor()->FindFieldByName(k_name);
    const auto *reflection = response.GetReflection();
    if (!field || field->enum_type() != types::ApiStatus_descriptor()) {
        return types::API_STATUS_OK;
    }
    if (!field->is_repeated()) {
        return static_cast<types::ApiStatus>(reflection->GetEnumValue(response, field));
    }
    for (int i = 0; i < reflection->FieldSize(response, field); i++) {
        if (const int status = reflection->GetRepeatedEnumValue(response, field, i); status != 0) {
            return static_cast<types::ApiStatus>(status);
        }
    }
    return types::API_STATUS_OK;
}

}  // namespace svc
