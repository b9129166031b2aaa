#include "bench/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <set>

namespace bench {

namespace {

constexpr double k_width = 720, k_height = 300, k_left = 60, k_right = 150, k_top = 40, k_bottom = 50;
constexpr const char *k_colors[] = {"#1f5fa8", "#c4581b", "#2b7d4f", "#7a3f9d"};

// Where values stand in the image.
class scale {
 public:
    scale(const chart &chart, double top) : top_(top) {
        for (const auto &[name, values] : chart.series) {
            for (const auto &value : values) {
                xs_.insert(value.x);
                most_ = std::max(most_, value.high);
            }
        }
        most_ = std::max(1.0, std::ceil(most_ * 5) / 5);
    }

    double x(double value) const {
        const double least = std::log(*xs_.begin()), span = std::max(1e-9, std::log(*xs_.rbegin()) - least);
        return k_left + (k_width - k_left - k_right) * (std::log(value) - least) / span;
    }
    double y(double value) const {
        return top_ + k_height - k_bottom - (k_height - k_top - k_bottom) * value / most_;
    }
    double most() const { return most_; }
    const std::set<double> &xs() const { return xs_; }

 private:
    const double top_;
    double most_ = 0;
    std::set<double> xs_;
};

std::string text(double x, double y, const char *anchor, const std::string &what) {
    return fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\">{}</text>\n", x, y, anchor, what);
}

std::string line(double x1, double y1, double x2, double y2, const char *color) {
    return fmt::format("<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" stroke=\"{}\"/>\n", x1,
                       y1, x2, y2, color);
}

std::string axes(const chart &chart, const scale &scale) {
    std::string svg;
    const int steps = 4;
    for (int i = 0; i <= steps; i++) {
        const double value = scale.most() * i / steps;
        svg += line(k_left, scale.y(value), k_width - k_right, scale.y(value), "#ddd");
        svg += text(k_left - 8, scale.y(value) + 4, "end", fmt::format("{:.2f}", value));
    }
    for (const double x : scale.xs()) {
        svg += text(scale.x(x), scale.y(0) + 18, "middle", fmt::format("{:g}", x));
    }
    return svg + text((k_left + k_width - k_right) / 2, scale.y(0) + 36, "middle", chart.x_label);
}

std::string curve(const std::string &name, const std::vector<chart_value_s> &values, const scale &scale,
                  const char *color) {
    std::string svg, points;
    for (const auto &value : values) {
        svg += line(scale.x(value.x), scale.y(value.low), scale.x(value.x), scale.y(value.high), color);
        svg += fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\" fill=\"{}\"/>\n", scale.x(value.x),
                           scale.y(value.median), color);
        points += fmt::format("{:.1f},{:.1f} ", scale.x(value.x), scale.y(value.median));
    }
    svg += fmt::format("<polyline points=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"1.5\"/>\n", points,
                       color);
    return svg + text(scale.x(values.back().x) + 10, scale.y(values.back().median) + 4, "start", name);
}

std::string draw(const chart &chart, double top) {
    const scale scale(chart, top);
    std::string svg =
        text(k_left, top + 24, "start", "<tspan font-weight=\"bold\">" + chart.title + "</tspan>");
    svg += axes(chart, scale);
    size_t number = 0;
    for (const auto &[name, values] : chart.series) {
        svg += curve(name, values, scale, k_colors[number++ % std::size(k_colors)]);
    }
    return svg;
}

}  // namespace

std::string to_svg(const std::vector<chart> &charts) {
    const double height = k_height * static_cast<double>(charts.size());
    std::string svg = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" height=\"{1}\" "
        "font-family=\"sans-serif\" font-size=\"12\">\n<rect width=\"{0}\" height=\"{1}\" fill=\"white\"/>\n",
        k_width, height);
    double top = 0;
    for (const auto &chart : charts) {
        svg += draw(chart, top);
        top += k_height;
    }
    return svg + "</svg>\n";
}

}  // namespace bench
