// Names that can stand as an argument, out of the descriptors.

#pragma once

#include <string>
#include <vector>

namespace nyxctl {

// Appends what can stand for the argument of that name ("METHOD") of the command ("call"), behind the positionals that
// are there already, in the place of `current`. More than what begins with it may be appended.
void add_names(const std::string &command, const std::string &argument,
               const std::vector<std::string> &positionals, const std::string &current,
               std::vector<std::string> *found);

}  // namespace nyxctl
