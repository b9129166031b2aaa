// The transceivers in the card's cages.

#pragma once

#include <cstdint>

namespace sdk::platform {

// The platform's table has at least as many places.
inline constexpr uint32_t k_max_xcvr = 16;

// Transceiver types with the memory layout of SFF-8636 (QSFP class); all others have that of SFF-8472 (SFP class).
enum xcvr_type_e : uint32_t {
    XCVR_TYPE_QSFP = 2,
    XCVR_TYPE_QSFP28 = 3,
};

// The start of a descriptor; what follows is the platform's.
struct xcvr_s {
    uint32_t type;
};

// Descriptors by transceiver number minus 1; null where there is none. Neither the table nor what a descriptor
// says of the type changes while services run.
extern xcvr_s *g_xcvr[k_max_xcvr];

}  // namespace sdk::platform
