// The table of figures: each has a goal and is measured many times over, then shown as its median.
//
// The two sides of a ratio are measured right after one another, in alternating order, and all figures take turns: other
// load on the machine affects all of them alike. Common benchmark libraries measure each side by itself, and don't cover
// several clients at once.

#pragma once

#include <chrono>
#include <climits>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using nanoseconds = std::chrono::nanoseconds;

// Works for about `slice` and returns the seconds that a unit of the work took.
using cost = std::function<double(nanoseconds slice)>;

// Repeats `work` for about `slice`, and reads the clock after each `batch` of it.
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

// The place of a figure in a chart.
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

    // A ratio of throughputs that `figure` computes, in the first `most_rounds` rounds.
    void figure_at_least(double goal, const std::string &what,
                         const std::function<double(nanoseconds slice)> &figure, int most_rounds = INT_MAX);

    // A count, or an absolute time.
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
        int most_rounds = INT_MAX;
        std::vector<double> samples = {};

        double quantile(double part) const;
        std::string goal_text() const;
        const char *verdict() const;
    };

    std::vector<figure_s> figures_;
};

}  // namespace bench
