#include "client/core/template.h"

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>

#include "client/core/number_text.h"
#include "client/core/symbols.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

json_t default_value(const pb::FieldDescriptor *field) {
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return false;
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return field->enum_type()->value(0)->name();
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return "";
        default:
            break;
    }
    const auto text = number_to_text(0, field->options().GetExtension(types::number_text));
    return text ? json_t(*text) : json_t(0);
}

class template_writer {
 public:
    json_t message(const pb::Descriptor *type, const std::string &path) {
        json_t object = json_t::object();
        if (type->well_known_type() != pb::Descriptor::WELLKNOWNTYPE_UNSPECIFIED ||
            std::ranges::count(open_, type) != 0) {
            return object;
        }
        open_.push_back(type);
        for (int i = 0; i < type->field_count(); i++) {
            const pb::FieldDescriptor *field = type->field(i);
            const pb::OneofDescriptor *oneof = field->real_containing_oneof();
            if (!oneof || oneof->field(0) == field) {
                note_choice(oneof, path);
                object[field->name()] = value(field, path + field->name());
            }
        }
        open_.pop_back();
        return object;
    }

    std::vector<std::string> choices() { return std::move(choices_); }

 private:
    json_t value(const pb::FieldDescriptor *field, const std::string &path) {
        const pb::Descriptor *type = field->message_type();
        if (!field->is_repeated()) {
            return type ? message(type, path + ".") : default_value(field);
        }
        return type ? json_t::array({message(type, path + "[0].")}) : json_t::array();
    }

    void note_choice(const pb::OneofDescriptor *oneof, const std::string &path) {
        if (!oneof || oneof->field_count() < 2) {
            return;
        }
        std::string text = path + oneof->name() + ": " + oneof->field(0)->name() + ", or instead of it ";
        for (int i = 1; i < oneof->field_count(); i++) {
            text += (i == 1 ? "" : ", ") + oneof->field(i)->name();
        }
        choices_.push_back(text);
    }

    std::vector<const pb::Descriptor *> open_;  // a message inside itself stays empty
    std::vector<std::string> choices_;
};

}  // namespace

template_s message_template(const pb::Descriptor *type) {
    template_writer writer;
    json_t json = writer.message(type, "");
    return {std::move(json), writer.choices()};
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
    return outcome.ok() ? usage_failure('"' + std::string(name) +
                                        "\" has no template; give the name of a method or message")
                        : outcome;
}

}  // namespace nyxctl
