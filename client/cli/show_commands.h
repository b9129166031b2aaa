// What the agent has, for people.

#pragma once

#include <functional>
#include <memory>
#include <string>

#include "client/cli/parser_command.h"
#include "client/view/shown.h"

namespace nyxctl {

void add_show_commands(CLI::App *app, context_s *context);

// Reads a view from the agent; see read_view.h for what `shown` holds after a failure.
using read_view_t = std::function<outcome_s(const global_options_s &global, shown_s *shown)>;

struct view_request_s {
    read_view_t read;   // set by the view that was named
    std::string words;  // "lif eth0"
    bool classic = false;
    uint32_t low = 0;
    uint32_t high = 0;
    std::string name;
    std::vector<std::string> key_words;
    std::vector<std::string> unexpected;
};

// Adds a command for every view to `parent`, which then runs `run` with the view that was named, and refuses a word
// that names none.
void add_views(CLI::App *parent, context_s *context, const std::shared_ptr<view_request_s> &request,
               const std::function<outcome_s()> &run);

}  // namespace nyxctl
