#include "svc/common/ret_code.h"

#include <array>
#include <cstdint>

namespace {

using namespace sdk;
using namespace types;

constexpr std::array<uint32_t, 7> k_tbl_svc_statuses = {
    API_STATUS_OK,
    API_STATUS_OUT_OF_MEMORY,
    API_STATUS_INVALID_ARG,
    API_STATUS_INVALID_OPERATION,
    API_STATUS_LOOKUP_FAILURE,
    API_STATUS_ALREADY_PRESENT,
    API_STATUS_RESOURCE_EXHAUSTION,
};

// The first codes as for the table service, three more with a status of their own; all others are an error.
constexpr auto k_statuses = [] {
    std::array<uint8_t, SDK_RET_GENERIC_ERROR + 1> statuses{};
    statuses.fill(API_STATUS_ERROR);
    for (size_t code = 0; code < k_tbl_svc_statuses.size(); code++) {
        statuses[code] = static_cast<uint8_t>(k_tbl_svc_statuses[code]);
    }
    statuses[SDK_RET_RETRY_OPERATION] = API_STATUS_RETRY;
    statuses[SDK_RET_OPERATION_TIMED_OUT] = API_STATUS_TIMED_OUT;
    statuses[SDK_RET_ENTRY_EXISTS_IN_HW] = API_STATUS_ENTRY_EXISTS_IN_HW;
    return statuses;
}();

template <class Table>
ApiStatus look_up(const Table &statuses, sdk_ret_t ret) {
    return ret < statuses.size() ? static_cast<ApiStatus>(statuses[ret]) : API_STATUS_ERROR;
}

const char *text_of(sdk_ret_t ret) {
    switch (ret) {
#define SDK_RET_TEXT(name, value, text) \
    case name:                          \
        return text;
        SDK_RET_CODES(SDK_RET_TEXT)
#undef SDK_RET_TEXT
    }
    return nullptr;
}

}  // namespace

std::ostream &sdk::operator<<(std::ostream &out, sdk_ret_t ret) {
    if (const char *text = text_of(ret)) {
        out << '"' << text << '"';
    }
    return out;
}

ApiStatus sdk_ret_to_api_status(sdk_ret_t ret) { return look_up(k_statuses, ret); }

ApiStatus tbl_svc_ret_to_api_status(sdk_ret_t ret) { return look_up(k_tbl_svc_statuses, ret); }
