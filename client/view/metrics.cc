#include "client/view/metrics.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>

#include "base/text.h"
#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/view/list_rows.h"
#include "client/view/metric_name.h"
#include "client/view/one_object.h"
#include "nyx/agent.pb.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_label_size_max = 128;

struct to_number_s {
    double factor;

    std::string scaled(auto number) const {
        return factor == 1 ? fmt::to_string(number)
                           : fmt::format("{:.15g}", static_cast<double>(number) * factor);
    }
    std::string operator()(const auto &) const { return {}; }
    std::string operator()(bool truth) const { return truth ? "1" : "0"; }
    std::string operator()(uint64_t number) const { return scaled(number); }
    std::string operator()(int64_t number) const { return scaled(number); }
    std::string operator()(double number) const { return scaled(number); }
    std::string operator()(const counter_s &counter) const { return scaled(counter.count); }
};

std::string escaped(std::string_view text, std::string_view special) {
    std::string result;
    for (const char c : text) {
        result += special.find(c) != special.npos ? "\\" : "";
        result += c;
    }
    return result;
}

std::string joined(const std::string &labels, const std::string &more) {
    return labels.empty() || more.empty() ? labels + more : labels + "," + more;
}

std::string labels_of(const pb::Message &outer, const pb::Message &element,
                      const std::vector<view_column_s> &columns) {
    std::string labels;
    for (const view_column_s &column : columns) {
        const std::string text = cell_text(column_value(*column.path == '^' ? outer : element, column));
        labels = joined(labels, metrics_s::label(column.title, text == "-" ? "" : text));
    }
    return labels;
}

// A number of a message.
struct number_s {
    const pb::Message &message;
    const pb::FieldDescriptor *field;
    std::string path;
    int index = 0;                              // in a list of numbers
    const pb::FieldDescriptor *list = nullptr;  // that it is an element of
    uint64_t element = 0;                       // its number there
    std::string element_name = {};              // what that number is: "type"

    std::string text(double factor) const {
        return field->enum_type()
                   ? fmt::to_string(message.GetReflection()->GetEnumValue(message, field))
                   : std::visit(to_number_s{factor}, element_value(message, field, index).content());
    }

    // Names the field, for an element of its own with its number.
    std::string owner(const metric_view_s &view, bool any_element) const {
        const std::string number = list && !any_element ? fmt::format("[{}]", element) : "";
        return fmt::format("{}{} of {}", path, number, view.method);
    }

    std::string help(const std::string &owner, const label_s *label) const {
        return (label && !label->help.empty() ? label->help : owner) + number_texts(field, label);
    }
};

}  // namespace

// Makes series of the numbers of a message.
struct metric_walk_s {
    metrics_s *metrics;
    const metric_view_s &view;
    const std::string &labels;

    void add_message(const pb::Message &message, const std::string &path) const {
        for (int i = 0; i < message.GetDescriptor()->field_count(); i++) {
            const auto *field = message.GetDescriptor()->field(i);
            const bool absent = field->has_presence() && !message.GetReflection()->HasField(message, field);
            if (!absent && field->name() != "api_status") {
                add_field(message, field, path + field->name());
            }
        }
    }

    void add_field(const pb::Message &message, const pb::FieldDescriptor *field,
                   const std::string &path) const {
        const auto is_path = [&](const view_column_s &column) { return path == column.path; };
        if (field->is_repeated()) {
            add_list(message, field, path);
        } else if (field->message_type() && !is_one_value(field->message_type())) {
            add_message(message_at(message, field, 0), path + ".");
        } else if (std::ranges::none_of(view.labels, is_path)) {
            add_number({message, field, path});
        }
    }

    void add_list(const pb::Message &message, const pb::FieldDescriptor *field,
                  const std::string &path) const {
        const bool counts = field->options().GetExtension(types::counter);
        const bool pairs = field->message_type() && is_number_and_value(field->message_type());
        for (uint32_t i = 0; (counts || pairs) && i < static_cast<uint32_t>(element_count(message, field));
             i++) {
            if (counts) {
                add_number({message, field, path, static_cast<int>(i), field, i, "index"});
                continue;
            }
            const pb::Message &pair = message_at(message, field, static_cast<int>(i));
            const auto *number = pair.GetDescriptor()->field(0);
            add_number({pair, pair.GetDescriptor()->field(1), path.substr(0, path.find(".entry")), 0, field,
                        pair.GetReflection()->GetUInt32(pair, number), number->name()});
        }
    }

    // A label that names an element makes a family of it. When another field has that name, the path stays the name.
    void add_number(const number_s &number) const {
        const label_s *label = number.list ? label_of(number.list, number.element) : label_of(number.field);
        if (!label || label->name.empty() || !add_named(number, label, label_word(label))) {
            add_named(number, label, "");
        }
    }

    bool add_named(const number_s &number, const label_s *label, const std::string &word) const {
        const bool is_element = number.list && word.empty();
        const std::string owner = number.owner(view, is_element);
        std::string name = metric_name(view.prefix, word.empty() ? number.path : word);
        const unit_s unit = metric_unit(number.field, label, &name);
        const std::string value = number.text(unit.factor * (label ? label->scale.value_or(1) : 1));
        const bool counts = label && label->counter ? *label->counter : is_counter(number.field);
        name += unit.base.empty() || name.ends_with(unit.base) ? "" : fmt::format("_{}", unit.base);
        const std::string more =
            is_element ? fmt::format("{}=\"{}\"", number.element_name, number.element) : "";
        if (value.empty()) {
            return true;
        }
        const std::string series = joined(labels, more);
        const bool is_added =
            metrics->add(name, {owner, counts ? "counter" : "gauge", number.help(owner, label)}, series,
                         value, counts ? "_total" : "");
        if (is_added && label) {
            add_limits(*label, joined(series, metrics_s::label("metric", name)),
                       std::stod(number.text(label->scale.value_or(1))));
        }
        return is_added;
    }

    void add_limits(const label_s &label, const std::string &series, double shown) const {
        for (const auto &[limit, severity] :
             {std::pair(&label.warn, "warning"), {&label.critical, "critical"}}) {
            if (limit->above || limit->below) {
                metrics->add("nyx_limit_passed", "Whether the metric is beyond a limit of the dictionary",
                             joined(series, metrics_s::label("severity", severity)), limit->passed(shown));
            }
        }
    }

    static bool is_counter(const pb::FieldDescriptor *field) {
        return field->options().GetExtension(types::counter);
    }
};

bool metrics_s::add(const std::string &name, const family_s &family, const std::string &labels,
                    const std::string &value, const char *suffix) {
    family_s &found = families_.try_emplace(name, family).first->second;
    if (found.owner != family.owner) {
        return false;
    }
    const std::string series =
        labels.empty() ? name + suffix : fmt::format("{}{}{{{}}}", name, suffix, labels);
    if (seen_.insert(series).second) {
        found.lines += fmt::format("{} {}\n", series, value);
    }
    return true;
}

void metrics_s::add(const metric_view_s &view, const pb::Message &response) {
    const auto outers = *view.list ? elements_at(response, view.list) : std::vector{&response};
    for (const pb::Message *outer : outers) {
        for (const pb::Message *element :
             *view.inner ? elements_at(*outer, view.inner) : std::vector{outer}) {
            const std::string labels = labels_of(*outer, *element, view.labels);
            metric_walk_s{this, view, labels}.add_message(*element, "");
            if (!view.facts.empty()) {
                add(fmt::format("nyx_{}_info", view.prefix), "Texts; the value is 1",
                    joined(labels, labels_of(*outer, *element, view.facts)), true);
            }
        }
    }
    if (const auto *agent = dynamic_cast<const nyx::AgentGetResponse *>(&response)) {
        add_durations(*agent);
    }
}

void metrics_s::add(const std::string &name, const char *help, const std::string &labels, bool value) {
    add(name, {name, "gauge", help}, labels, value ? "1" : "0");
}

// The last bucket has no bound: it is the number of all calls.
void metrics_s::add_durations(const nyx::AgentGetResponse &agent) {
    const std::string name = "nyx_agent_call_duration_seconds";
    const family_s family = {name, "histogram", "From the arrival of a request to its response"};
    const auto &bounds = agent.duration_bound_ns();
    for (const nyx::AgentMethod &method : agent.method()) {
        const std::string labels = label("method", method.method());
        uint64_t calls = 0;
        for (int i = 0; i <= bounds.size(); i++) {
            calls += i < method.duration_calls_size() ? method.duration_calls(i) : 0;
            const std::string bound = i < bounds.size() ? to_number_s{1e-9}.scaled(bounds[i]) : "+Inf";
            add(name, family, joined(labels, label("le", bound)), fmt::to_string(calls), "_bucket");
        }
        add(name, family, labels, to_number_s{1e-9}.scaled(method.duration_ns()), "_sum");
        add(name, family, labels, fmt::to_string(calls), "_count");
    }
}

std::string metrics_s::text() const {
    std::string text;
    for (const auto &[name, family] : families_) {
        const std::string help = base::without_controls(base::to_utf8(family.help));
        const char *suffix = family.type == std::string_view("counter") ? "_total" : "";
        text += fmt::format("# HELP {0}{1} {2}\n# TYPE {0}{1} {3}\n{4}", name, suffix, escaped(help, "\\"),
                            family.type, family.lines);
    }
    return text;
}

std::string metrics_s::label(std::string_view name, const std::string &value) {
    const std::string whole = base::without_controls(base::to_utf8(value));
    const auto cut = base::without_cut_character(std::string_view(whole).substr(0, k_label_size_max));
    return fmt::format("{}=\"{}\"", name, escaped(cut, "\\\""));
}

}  // namespace nyxctl
