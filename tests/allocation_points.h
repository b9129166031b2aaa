// Memory that runs out at a chosen allocation of libsvc_quill. Linked into a test, this replaces operator new of the
// whole process.

#pragma once

#include <cstdint>

namespace test {

// False under AddressSanitizer, where protobuf's allocations don't fail.
extern const bool k_protobufs_fail;

// While it lives, the `nth` allocation (from 1) that the library makes on any thread, and with `and_all_after` every
// later one, fails with std::bad_alloc; so count
// those that the C++ library, the log library and protobuf make on its behalf, and not those of the agent that it calls.
// One at a time.
class failing_allocation {
 public:
    explicit failing_allocation(int64_t nth, bool and_all_after = false);
    failing_allocation(const failing_allocation &) = delete;
    failing_allocation &operator=(const failing_allocation &) = delete;
    ~failing_allocation();

    // False when there were fewer allocations.
    bool struck() const;
};

}  // namespace test
