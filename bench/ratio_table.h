// The table of figures: each has a goal and is measured many times over, then shown as its median.
//
// A ratio sets two things side by side that were measured right after one another, in turns one or the other
// first, and all figures take turns too: what else the machine does affects all of them alike. Common benchmark
// libraries measure each side by itself, and not what clients on several threads do together.

#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using nanoseconds = std::chrono::nanoseconds;

// Works for about `slice` and returns the seconds that a unit of the work took.
using cost = std::function<double(nanoseconds slice)>;

// Repeats `work` for about `slice`; the clock is looked at once in `batch` times.
template <class Work>
double cost_of(nanoseconds slice, int batch, Work work) {
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    nanoseconds taken{};
    size_t units = 0;
    while (taken < slice) {
        for (int i = 0; i < batch; i++) {
            work();
        }
        units += static_cast<size_t>(batch);
        taken = clock::now() - begin;
    }
    return std::chrono::duration<double>(taken).count() / static_cast<double>(units);
}

// Where a figure stands in a chart, if it does.
struct chart_s {
    std::string title, x_label;
};
struct chart_point_s {
    chart_s chart = {};  // without a title: in none
    std::string series = {};
    double x = 0;
};

// Ends the program: what was to be measured does not work.
[[noreturn]] void fail(const std::string &what);

// A goal of 0 means that the figure has no goal. Owned and called by one thread.
class ratio_table {
 public:
    // Time of `subject` by time of `baseline`.
    void time_at_most(double goal, const std::string &what, const cost &subject, const cost &baseline);

    // Throughput of `subject` by throughput of `baseline`.
    void throughput_at_least(double goal, const std::string &what, const cost &subject, const cost &baseline,
                             const chart_point_s &point = {});

    // A throughput that is a ratio already.
    void figure_at_least(double goal, const std::string &what,
                         const std::function<double(nanoseconds slice)> &figure);

    // A figure that is counted, or a time of its own.
    void count_at_most(double goal, const std::string &what, const std::function<double()> &count);

    // Keeps only those figures whose text matches the regular expression.
    void filter(const std::string &regex);

    // Once more than `rounds`: the first one warms up and is not counted.
    void measure(int rounds, nanoseconds slice);
    void print(FILE *output) const;

    // A list of all figures, with the middle half of their samples and their places in charts.
    std::string json() const;

 private:
    struct figure_s {
        std::string what;
        bool at_most;
        double goal;
        std::function<double(nanoseconds slice, bool baseline_first)> sample;
        chart_point_s point = {};
        std::vector<double> samples = {};

        double quantile(double part) const;
        std::string goal_text() const;
        const char *verdict() const;
    };

    std::vector<figure_s> figures_;
};

}  // namespace bench
