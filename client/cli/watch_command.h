// A view again and again.

#pragma once

#include <functional>
#include <string>

#include "client/cli/command.h"
#include "client/view/shown.h"

namespace nyxctl {

// Reads a view from the agent; see read_view.h for what `shown` holds after a failure.
using read_view_t = std::function<outcome_s(const given_s &given, shown_s *shown)>;

// The options that watch() obeys.
arguments_t watch_options();

// Reads and shows a view until SIGINT, which ends the program with exit code 0, or for as many rounds as were asked
// for. `title` names the view.
outcome_s watch(const given_s &given, const std::string &title, const read_view_t &read);

}  // namespace nyxctl
