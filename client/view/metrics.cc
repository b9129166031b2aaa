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

std::string with_underscores(std::string path) {
    std::ranges::replace(path, '.', '_');
    return path;
}

std::string joined(const std::string &labels, const std::string &more) {
    return labels.empty() || more.empty() ? labels + more : labels + "," + more;
}

std::string labels_of(const pb::Message &outer, const pb::Message &element,
                      const std::vector<view_column_s> &columns) {
    std::string labels;
    for (const view_column_s &column : columns) {
        const std::string text = plain_text(column_value(*column.path == '^' ? outer : element, column));
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

    const label_s *label() const { return list ? label_of(list, element) : label_of(field); }

    bool counts() const {
        const label_s *own = label();
        return own && own->counter ? *own->counter : field->options().GetExtension(types::counter);
    }

    // "value_1", "flag_a": only a dictionary knows what it is.
    bool is_numbered() const {
        const std::string tail = field->name().substr(field->name().rfind('_') + 1);
        return list || tail.size() == 1 ||
               std::ranges::all_of(tail, [](char c) { return c >= '0' && c <= '9'; });
    }

    std::string name_in(const metric_view_s &view) const {
        return metric_name(view.prefix, std::string_view(path).substr(0, path.find(".entry")));
    }

    std::string name_by_label(const metric_view_s &view) const {
        const std::string word = is_numbered() && label() ? label_word(label()->name) : "";
        return word.empty() ? "" : metric_name(view.prefix, path.substr(0, path.rfind('.') + 1) + word);
    }

    std::string element_label() const { return list ? fmt::format("{}=\"{}\"", element_name, element) : ""; }
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
            add_number({pair, pair.GetDescriptor()->field(1), path, 0, field,
                        pair.GetReflection()->GetUInt32(pair, number), number->name()});
        }
    }

    // By its label, an element of a list has a family of its own. The other names are for faulty labels, which give one
    // name to two numbers.
    void add_number(const number_s &number) const {
        const std::string by_label = number.name_by_label(view);
        if (by_label.empty() || !add_named(number, by_label, "")) {
            const std::string more = number.element_label();
            if (!add_named(number, number.name_in(view), more)) {
                add_named(number, metric_name(view.prefix, "") + "_" + with_underscores(number.path), more);
            }
        }
    }

    bool add_named(const number_s &number, std::string name, const std::string &more) const {
        const label_s *label = number.label();
        const double scale = label ? label->scale.value_or(1) : 1;
        const unit_s unit = metric_unit(number.field, label, &name);
        const std::string value = number.text(unit.factor * scale);
        if (value.empty()) {
            return true;
        }
        name += unit.base.empty() || name.ends_with(unit.base) ? "" : fmt::format("_{}", unit.base);
        const std::string series = joined(labels, more);
        const std::string help =
            label && !label->help.empty() ? label->help : fmt::format("{} of {}", number.path, view.method);
        const bool is_added = metrics->add(
            name, {number.counts() ? "counter" : "gauge", help + number_texts(number.field, label)}, series,
            value, number.counts() ? "_total" : "");
        if (is_added && label && !number.counts()) {  // limits of counters are about their growth
            add_limits(*label, joined(series, metrics_s::label("metric", name)),
                       std::stod(number.text(scale)));
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
};

bool metrics_s::add(const std::string &name, const family_s &family, const std::string &labels,
                    const std::string &value, const char *suffix) {
    family_s &found = families_.try_emplace(name, family).first->second;
    const std::string series =
        labels.empty() ? name + suffix : fmt::format("{}{}{{{}}}", name, suffix, labels);
    if (found.type != family.type || !seen_.insert(series).second) {
        return false;
    }
    found.lines += fmt::format("{} {}\n", series, value);
    return true;
}

void metrics_s::add(const metric_view_s &view, const pb::Message &response) {
    const auto outers = *view.list ? elements_at(response, view.list) : std::vector{&response};
    for (const pb::Message *outer : outers) {
        for (const pb::Message *element :
             *view.inner ? elements_at(*outer, view.inner) : std::vector{outer}) {
            add_element(view, *outer, *element);
        }
    }
    if (const auto *agent = dynamic_cast<const nyx::AgentGetResponse *>(&response)) {
        add_durations(*agent);
    }
}

void metrics_s::add_element(const metric_view_s &view, const pb::Message &outer, const pb::Message &element) {
    const std::string labels = labels_of(outer, element, view.labels);
    if (!seen_.insert(fmt::format("{} {} {}", view.prefix, view.inner, labels)).second) {
        return;
    }
    metric_walk_s{this, view, labels}.add_message(element, "");
    if (!view.facts.empty()) {
        add(fmt::format("nyx_{}_info", view.prefix), "Texts; the value is 1",
            joined(labels, labels_of(outer, element, view.facts)), true);
    }
}

void metrics_s::add(const std::string &name, const char *help, const std::string &labels, bool value) {
    add(name, {"gauge", help}, labels, value ? "1" : "0");
}

// The last bucket has no bound: it is the number of all calls.
void metrics_s::add_durations(const nyx::AgentGetResponse &agent) {
    const std::string name = "nyx_agent_call_duration_seconds";
    const family_s family = {"histogram", "From the arrival of a request to its response"};
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
        const char *suffix = family.type == "counter" ? "_total" : "";
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
