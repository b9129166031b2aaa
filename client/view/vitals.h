// What a response says about the health of the card: numbers with limits in the dictionary, and counters of what should
// not happen.

#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/core/labels.h"

namespace nyxctl {

enum class health_e { ok, info, unknown, degraded, failed };  // by weight

struct vital_s {
    std::string
        path;  // "1 rx errors": elements of lists, and what the dictionary or the contract calls the field
    const label_s *label;  // null without one
    std::string text;      // of the number
    uint64_t number;
    unsigned bits;  // of a counter, else 0
};

// Numbers that the dictionary limits, and counters with the option types.trouble.
std::vector<vital_s> vitals_of(const google::protobuf::Message &response);

struct verdict_s {
    health_e state = health_e::ok;
    std::string detail;
};

// Of a number that is not a counter: "58 °C", or "107 °C, critical above 105".
verdict_s judge(const vital_s &vital);

// Of a counter that was read twice. Its limits are those of its growth per second; without limits it may not grow.
verdict_s judge(const vital_s &before, const vital_s &now, double seconds);

}  // namespace nyxctl
