// Return codes as texts and as API status numbers.

#pragma once

#include <fmt/ostream.h>

#include <ostream>

#include "agent_api/sdk_ret.h"
#include "nyx/types/status.pb.h"

namespace sdk {

// Writes the code's text in double quotes; writes nothing for a value without a text.
std::ostream &operator<<(std::ostream &out, sdk_ret_t ret);

}  // namespace sdk

// Return codes print as their quoted texts in log lines.
template <>
struct fmt::formatter<sdk::sdk_ret_t> : fmt::ostream_formatter {};

// The translation for all services except the table service. An unknown code is API_STATUS_ERROR.
types::ApiStatus sdk_ret_to_api_status(sdk::sdk_ret_t ret);

// The table service's translation: it knows the codes 0 to 6, and is API_STATUS_ERROR for all others.
types::ApiStatus tbl_svc_ret_to_api_status(sdk::sdk_ret_t ret);
