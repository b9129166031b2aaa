// Calls behind the short commands: each fills a request from words, calls, and looks at api_status.

#pragma once

#include <google/protobuf/message.h>

#include <span>
#include <string>
#include <vector>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace nyxctl {

using words_t = std::span<const std::string>;

// Calls the method of that full name with the fields that set_field() takes from `words`. Of values that the
// agent's records would cut nothing is sent.
outcome_s call_with_words(const global_options_s &global, const std::string &method, words_t words);

// Switches "recovery", "quiesce", "sessions" or "lifs" to "on" or "off".
outcome_s set_switch(const global_options_s &global, const std::string &what, const std::string &state);

// Sets the clocks of "core=1100", "arm=2000", "p4=1500".
outcome_s set_clocks(const global_options_s &global, words_t words);

// Reads a port, changes the settings that `words` name, and sends all of them back. A port is a number of 0 to
// 999, its port_number, or else an id.
outcome_s set_port(const global_options_s &global, const std::string &port, words_t words);

// Clears the counters of one port or LIF, which must exist, or sends the empty id without one.
outcome_s clear_port_stats(const global_options_s &global, words_t port);
outcome_s clear_lif_stats(const global_options_s &global, words_t id);

// "uplink", "l3", ...: kinds of interfaces.
std::vector<std::string> interface_kinds();

// Calls the method with one interface of the kind. `words` are fields of nyx.InterfaceSpec and of the kind's message.
outcome_s write_interface(const global_options_s &global, const std::string &method, const std::string &kind,
                          words_t words);

outcome_s delete_interfaces(const global_options_s &global, words_t ids);

}  // namespace nyxctl
