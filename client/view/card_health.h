// What the responses of the agent say about its health and that of the card.

#pragma once

#include <google/protobuf/message.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "client/core/value.h"
#include "client/view/views.h"
#include "client/view/vitals.h"

namespace nyxctl {

struct check_s {
    health_e state = health_e::ok;
    std::string check;
    std::string subject;
    value_s detail;
    std::string see = {};  // the command that shows more, without "nyxctl"
    value_s milliseconds = {};
};

using report_t = std::vector<check_s>;

// The response to a method that reads.
struct look_s {
    snapshot_part_s part;
    std::unique_ptr<google::protobuf::Message> response = {};  // may be null
    std::chrono::steady_clock::time_point at = {};
    std::vector<vital_s> vitals = {};  // of the response
};

using looks_t = std::vector<look_s>;

// Sets the vitals. Ports that carry only uplinks that are down by their settings need no link.
void find_vitals(looks_t *looks);

// Adds checks of what one response shows.
void check_state(const looks_t &looks, report_t *report);

// Adds checks of the counters that rose from one look to the other, which are of the same method.
void check_growth(const look_s &before, const look_s &now, report_t *report);

bool has_counters(const look_s &look);

}  // namespace nyxctl
