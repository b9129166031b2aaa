// Entries of a P4 table on their way to the agent: in requests of 1,000, of which several are under way at once, in
// memory that does not grow with their number.
//
// The service reports one status for a request. So the keys of a request are read first, what is right already is not
// written, and after a write that failed they are read again: each entry ends with a verdict of its own. Somebody else
// who changes the same entries in between makes the verdicts wrong, never the entries.

#pragma once

#include <google/protobuf/message.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/table/entry_source.h"

namespace nyxctl {

enum operation_e {
    OPERATION_GET,
    OPERATION_ADD,
    OPERATION_UPDATE,   // changes the fields that are given and keeps the others
    OPERATION_REPLACE,  // writes what is given, other fields become zero
    OPERATION_DELETE,
    OPERATION_APPLY,  // adds or replaces
};

enum verdict_e {
    VERDICT_READ,
    VERDICT_ADDED,
    VERDICT_UPDATED,
    VERDICT_UNCHANGED,  // there, with these values, before it was tried
    VERDICT_DELETED,
    VERDICT_ABSENT,  // not there, or not readable, and so neither updated nor deleted nor read
    VERDICT_FAILED,  // refused by the agent, there with other values (add), or not sent because the agent was lost
    VERDICT_INVALID,  // not sent: the text is wrong
    VERDICT_UNKNOWN,  // sent; no answer, and it could not be read again
    VERDICTS
};

struct entry_result_s {
    verdict_e verdict;
    entry_text_s entry;
    std::string_view reason;                  // of what failed
    const google::protobuf::Message *before;  // null for an absent entry
    const google::protobuf::Message *after;   // what it was to become; null when it was to be read or deleted
};

struct totals_s {
    std::array<size_t, VERDICTS> counts = {};
    size_t next_line = 1;  // where to go on: nothing from here on was sent

    size_t all() const;
    size_t written() const;  // for certain, or maybe
};

// A key's record as a number. Different keys have the same one once in a few 10^19 pairs.
using key_hash_t = uint64_t;

struct stream_options_s {
    operation_e operation = OPERATION_GET;
    bool dry_run = false;     // only reads; verdicts are what they would be
    bool keep_going = false;  // passes over wrong texts
    std::function<bool(key_hash_t key)> wants =
        {};  // if given: entries for which it returns false are passed over
    // Gets every entry in the order of the source. A failure ends it all.
    std::function<outcome_s(const entry_result_s &result)> take = {};
    std::function<void(const totals_s &totals)> progress = {};  // after each request
};

// Runs the operation for all entries of the source. After a signal, a lost agent, or a wrong text without keep_going
// (of whose batch nothing is sent), it waits for what is under way, at most for the timeout, and returns why it ended
// early. `totals` is true in any case; what the agent answered to each entry is no failure.
outcome_s run_stream(const global_options_s &global, entry_source *source, const stream_options_s &options,
                     totals_s *totals);

}  // namespace nyxctl
