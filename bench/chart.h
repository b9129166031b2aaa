// Line charts as SVG.

#pragma once

#include <map>
#include <string>
#include <vector>

namespace bench {

struct chart_value_s {
    double x, median, low, high;  // low and high: the middle half
};

struct chart {
    std::string title, x_label;
    std::map<std::string, std::vector<chart_value_s>> series = {};
};

// One below the other; x is logarithmic, y begins at 0.
std::string to_svg(const std::vector<chart> &charts);

}  // namespace bench
