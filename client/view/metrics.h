// What the agent reports, in the text format of Prometheus (version 0.0.4).

#pragma once

#include <google/protobuf/message.h>

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "client/view/views.h"

namespace nyx {
class AgentGetResponse;
}

namespace nyxctl {

// Which messages of a response become metrics. Every numeric field of theirs does: fields that count become counters,
// all others gauges, enumerations by their number. An element of a list that is a number and its value becomes a series
// with the number as a label; other lists have a view of their own.
struct metric_view_s {
    const char *prefix;  // of the names: "port" for nyx_port_link_state
    const char *method;
    const char *request = "{}";              // JSON; null: the caller's
    const char *list = "";                   // dotted path of the messages; "" is the response
    const char *inner = "";                  // see list_view_s
    std::vector<view_column_s> labels = {};  // tell the messages apart; the title is the label's name
    std::vector<view_column_s> facts = {};   // texts: further labels of nyx_PREFIX_info, which is always 1
};

// Views of one method follow each other.
std::span<const metric_view_s> metric_views();

// Metrics on their way into a text. Of two messages with the same labels the first one stays.
class metrics_s {
 public:
    // The response is of the view's method.
    void add(const metric_view_s &view, const google::protobuf::Message &response);

    // One series. `labels` are texts of label(), divided by commas.
    void add(const std::string &name, const char *help, const std::string &labels, bool value);

    // Families in the order of their names, each with its help and its type.
    std::string text() const;

    // NAME="VALUE". Texts are foreign: they are cut to 128 bytes and hold neither quotes nor control characters then.
    static std::string label(std::string_view name, const std::string &value);

 private:
    friend struct metric_walk_s;
    struct family_s {
        std::string_view type;
        std::string help;
        std::string lines = {};
    };

    // Returns false when the name has another type, or the series is there.
    bool add(const std::string &name, const family_s &family, const std::string &labels,
             const std::string &value, const char *suffix = "");
    void add_element(const metric_view_s &view, const google::protobuf::Message &outer,
                     const google::protobuf::Message &element);
    void add_durations(const nyx::AgentGetResponse &agent);

    std::map<std::string, family_s> families_;  // by name without _total, so that no two differ only in it
    std::unordered_set<std::string> seen_;      // series and messages
};

}  // namespace nyxctl
