// The scenarios that are installed with nyx-agent.

#pragma once

#include <string>
#include <vector>

#include "sim/scenario/scenario.h"

namespace sim {

// In alphabetical order.
std::vector<std::string> scenario_names();

// The text of the scenario with this name. Throws std::out_of_range, with a text for people, if there is none.
std::string scenario_text(const std::string &name);

// A scenario by its name, or a file with a slash or a dot in its name. Throws what scenario_text() and parse_scenario() do,
// and std::out_of_range for a file that cannot be read.
scenario_s load_scenario(const std::string &name_or_file);

}  // namespace sim
