// Parts of the measurement that need a process of their own: this program runs itself with --part NAME
// [ARGUMENT]...

#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// Runs the part in this process; the exit code.
int run_part(const std::string &name, const std::vector<std::string> &arguments);

// Runs a part, given with its arguments, to its end, with these environment variables; the number it prints.
double figure_of_part(const std::string &part, const std::string &environment = "");

// A part that runs for as long as this object lives.
class running_part {
 public:
    explicit running_part(const std::string &part);

 private:
    std::unique_ptr<FILE, decltype(&pclose)> input_;  // whose end ends it
};

}  // namespace bench
