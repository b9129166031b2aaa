// Counters of the calls of one method.

#pragma once

#include <atomic>

#include "svc/call_hooks.h"

namespace svc {

// Any thread. Counters that are read while calls end may be of different moments.
class method_counters {
 public:
    void count(const call_facts_s &facts);
    method_counts_s counts(const google::protobuf::MethodDescriptor *method) const;

 private:
    template <class Counts>
    struct atomic_of;
    template <size_t size>
    struct atomic_of<std::array<uint64_t, size>> {
        using type = std::array<std::atomic<uint64_t>, size>;
    };

    atomic_of<decltype(method_counts_s::by_code)>::type by_code_ = {};
    atomic_of<decltype(method_counts_s::by_api_status)>::type by_api_status_ = {};
    atomic_of<decltype(method_counts_s::by_duration)>::type by_duration_ = {};
    std::atomic<int64_t> duration_ns_ = 0;
};

// What a response reports as its outcome. Where it has several, the first failure; OK when it has none.
types::ApiStatus api_status_of(const google::protobuf::Message &response);

}  // namespace svc
