// The transceivers in the card's cages.

#pragma once

#include <cstdint>
#include <type_traits>

namespace sdk::platform {

// Transceiver types with the memory layout of SFF-8636 (QSFP class); all others have that of SFF-8472 (SFP class).
enum xcvr_type_e : uint32_t {
    XCVR_TYPE_QSFP = 2,
    XCVR_TYPE_QSFP28 = 3,
};

// The start of a descriptor; what follows belongs to the platform.
struct xcvr_s {
    uint32_t type;
};
static_assert(std::has_unique_object_representations_v<xcvr_s>);  // no gaps

// Descriptors by transceiver number minus 1; null where there is none. The platform defines the array with as many places
// as it likes: its size is that of the symbol, and numbers beyond it have no descriptor. Neither the array nor the type in
// a descriptor changes while services run.
extern xcvr_s *g_xcvr[];

}  // namespace sdk::platform
