#include "client/core/template.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "client/core/field_value.h"
#include "client/core/json.h"
#include "client/core/symbols.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

class template_filler {
 public:
    // A message inside itself stays empty.
    void fill(pb::Message *message, const std::string &path) {
        const pb::Descriptor *type = message->GetDescriptor();
        if (std::ranges::count(open_, type) != 0) {
            return;
        }
        open_.push_back(type);
        for (int i = 0; i < type->field_count(); i++) {
            const pb::OneofDescriptor *oneof = type->field(i)->real_containing_oneof();
            if (!oneof) {
                fill_field(message, type->field(i), path);
            } else if (oneof->field(0) == type->field(i)) {
                note_choice(oneof, path);
                fill_field(message, oneof->field(0), path);
            }
        }
        open_.pop_back();
    }

    std::vector<std::string> choices() { return std::move(choices_); }

 private:
    void fill_field(pb::Message *message, const pb::FieldDescriptor *field, const std::string &path) {
        const pb::Reflection *reflection = message->GetReflection();
        if (field->message_type() && field->is_repeated()) {
            fill(reflection->AddMessage(message, field), path + field->name() + "[0].");
        } else if (field->message_type()) {
            fill(reflection->MutableMessage(message, field), path + field->name() + ".");
        } else if (field->has_presence()) {
            const bool is_text = field->cpp_type() == pb::FieldDescriptor::CPPTYPE_STRING;
            (void)set_from_text(message, field, 0, is_text ? "" : "0");
        }
    }

    void note_choice(const pb::OneofDescriptor *oneof, const std::string &path) {
        std::vector<std::string> others;
        for (int i = 1; i < oneof->field_count(); i++) {
            others.push_back(oneof->field(i)->name());
        }
        if (!others.empty()) {
            choices_.push_back(fmt::format("{}{}: {}, or instead of it {}", path, oneof->name(),
                                           oneof->field(0)->name(), fmt::join(others, ", ")));
        }
    }

    std::vector<const pb::Descriptor *> open_;
    std::vector<std::string> choices_;
};

}  // namespace

template_s message_template(const pb::Descriptor *type) {
    template_filler filler;
    const auto message = new_message(type);
    filler.fill(message.get(), "");
    return {indented(message_json(*message)), filler.choices()};
}

outcome_s find_template_type(std::string_view name, const pb::Descriptor **type) {
    const pb::MethodDescriptor *method = nullptr;
    if (find_method(name, &method).ok()) {
        *type = method->input_type();
        return {};
    }
    if (find_message(name, type).ok()) {
        return {};
    }
    std::string text;
    outcome_s outcome = describe_symbol(name, &text);
    return outcome.ok() ? usage_failure(fmt::format(
                              "\"{}\" has no template; give the name of a method or message", name))
                        : outcome;
}

}  // namespace nyxctl
