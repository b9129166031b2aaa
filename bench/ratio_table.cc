#include "bench/ratio_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <regex>

namespace bench {

namespace {

struct costs_s {
    double subject, baseline;
};

costs_s costs_of(const cost &subject, const cost &baseline, nanoseconds slice, bool baseline_first) {
    costs_s costs = {};
    if (baseline_first) {
        costs.baseline = baseline(slice);
    }
    costs.subject = subject(slice);
    if (!baseline_first) {
        costs.baseline = baseline(slice);
    }
    return costs;
}

}  // namespace

void fail(const std::string &what) {
    fprintf(stderr, "nyx_bench: %s\n", what.c_str());
    std::_Exit(1);  // other threads are still at work
}

void ratio_table::time_at_most(double goal, const std::string &what, const cost &subject,
                               const cost &baseline) {
    const auto sample = [=](nanoseconds slice, bool baseline_first) {
        const auto costs = costs_of(subject, baseline, slice, baseline_first);
        return costs.subject / costs.baseline;
    };
    figures_.push_back({what, true, goal, sample});
}

void ratio_table::throughput_at_least(double goal, const std::string &what, const cost &subject,
                                      const cost &baseline, const chart_point_s &point) {
    const auto sample = [=](nanoseconds slice, bool baseline_first) {
        const auto costs = costs_of(subject, baseline, slice, baseline_first);
        return costs.baseline / costs.subject;
    };
    figures_.push_back({what, false, goal, sample, point});
}

void ratio_table::figure_at_least(double goal, const std::string &what,
                                  const std::function<double(nanoseconds slice)> &figure, int most_rounds) {
    figures_.push_back({what, false, goal, [figure](nanoseconds slice, bool) { return figure(slice); }});
    figures_.back().most_rounds = most_rounds;
}

void ratio_table::count_at_most(double goal, const std::string &what, const std::function<double()> &count) {
    figures_.push_back({what, true, goal, [count](nanoseconds, bool) { return count(); }});
}

void ratio_table::filter(const std::string &regex) {
    const std::regex wanted(regex);
    std::erase_if(figures_, [&](const figure_s &figure) { return !std::regex_search(figure.what, wanted); });
}

void ratio_table::measure(int rounds, nanoseconds slice) {
    for (int round = 0; round <= rounds; round++) {
        for (auto &figure : figures_) {
            if (round > figure.most_rounds) {
                continue;
            }
            const double sample = figure.sample(slice, round % 2 == 1);
            if (round > 0) {
                figure.samples.push_back(sample);
            }
        }
    }
}

void ratio_table::print(FILE *output) const {
    fprintf(output, "%-64s %8s %9s %16s\n", "", "goal", "measured", "middle half");
    for (const auto &figure : figures_) {
        fprintf(output, "%-64s %8s %9.3f %7.3f .. %5.3f  %s\n", figure.what.c_str(),
                figure.goal_text().c_str(), figure.quantile(0.5), figure.quantile(0.25),
                figure.quantile(0.75), figure.verdict());
    }
}

std::string ratio_table::json() const {
    auto list = nlohmann::ordered_json::array();
    for (const auto &figure : figures_) {
        list.push_back({{"what", figure.what},
                        {"goal", figure.goal_text()},
                        {"verdict", figure.verdict()},
                        {"median", figure.quantile(0.5)},
                        {"low", figure.quantile(0.25)},
                        {"high", figure.quantile(0.75)},
                        {"chart", figure.point.chart.title},
                        {"x_label", figure.point.chart.x_label},
                        {"series", figure.point.series},
                        {"x", figure.point.x}});
    }
    return list.dump(1);
}

double ratio_table::figure_s::quantile(double part) const {
    auto sorted = samples;
    std::ranges::sort(sorted);
    const double position = part * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<size_t>(position);
    const size_t above = std::min(below + 1, sorted.size() - 1);
    return sorted[below] + (position - static_cast<double>(below)) * (sorted[above] - sorted[below]);
}

std::string ratio_table::figure_s::goal_text() const {
    return goal == 0 ? "" : fmt::format("{} {:5.2f}", at_most ? "<=" : ">=", goal);
}

const char *ratio_table::figure_s::verdict() const {
    if (goal == 0) {
        return "";
    }
    const double median = quantile(0.5);
    return (at_most ? median <= goal : median >= goal) ? "met" : "missed";
}

}  // namespace bench
