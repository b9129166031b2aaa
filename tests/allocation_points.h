// Lets a chosen allocation of libsvc_quill fail. Replaces operator new of the whole test process.

#pragma once

#include <cstdint>

namespace test {

// False under AddressSanitizer, where protobuf's allocations don't fail.
extern const bool k_protobufs_fail;

// While this lives, the `nth` allocation (from 1) that the library makes on any thread fails with std::bad_alloc, and with
// `and_all_after` every later one. Those that the C++ library, the log library and protobuf make on its behalf count; those
// of the agent that it calls do not. One object at a time.
class failing_allocation {
 public:
    explicit failing_allocation(int64_t nth, bool and_all_after = false);
    failing_allocation(const failing_allocation &) = delete;
    failing_allocation &operator=(const failing_allocation &) = delete;
    ~failing_allocation();

    // False if there were fewer allocations.
    bool struck() const;
};

}  // namespace test
