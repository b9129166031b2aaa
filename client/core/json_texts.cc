#include "client/core/json_texts.h"

#include <google/protobuf/descriptor.pb.h>

#include <charconv>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "client/core/bytes_text.h"
#include "client/core/nearest.h"
#include "client/core/number_text.h"
#include "client/core/people_value.h"
#include "client/core/symbols.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr std::string_view k_type_key = "@type";

// How people write the values of a field.
struct forms_s {
    types::BytesText bytes = types::BYTES_TEXT_HEX;
    types::NumberText number = types::NUMBER_TEXT_DECIMAL;
};

forms_s forms_of(const pb::FieldDescriptor *field) {
    return {.bytes = field->options().GetExtension(types::bytes_text),
            .number = field->options().GetExtension(types::number_text)};
}

// Each changes one value in place and returns what is wrong with it, or nothing. Bytes values are strings.
struct conversions_s {
    std::string (*bytes)(json_t &value, types::BytesText form);
    std::string (*number)(json_t &value, types::NumberText form);
};

// Either of the two spellings that protobuf's reader accepts.
const pb::FieldDescriptor *field_of_key(const pb::Descriptor *type, const std::string &key) {
    if (const pb::FieldDescriptor *field = type->FindFieldByName(key)) {
        return field;
    }
    for (int i = 0; i < type->field_count(); ++i) {
        if (type->field(i)->json_name() == key) {
            return type->field(i);
        }
    }
    return nullptr;
}

std::string unknown_field_text(const pb::Descriptor *type, const std::string &key) {
    std::vector<std::string> names;
    for (int i = 0; i < type->field_count(); ++i) {
        names.push_back(type->field(i)->name());
    }
    return "no such field in " + type->full_name() + nearest_names_text(key, names) +
           "; see nyxctl describe " + type->full_name();
}

// Visits a tree once. Every function returns false after the first refusal.
class text_walk {
 public:
    explicit text_walk(conversions_s convert) : convert_(convert) {}

    bool walk_message(json_t &value, const pb::Descriptor *type, forms_s forms) {
        switch (type->well_known_type()) {
            case pb::Descriptor::WELLKNOWNTYPE_ANY:
                return walk_any(value);
            case pb::Descriptor::WELLKNOWNTYPE_BYTESVALUE:
                return walk_bytes(value, forms.bytes);
            case pb::Descriptor::WELLKNOWNTYPE_UNSPECIFIED:
                return walk_fields(value, type);
            default:
                return true;  // JSON of its own kind, and never with bytes
        }
    }

    std::string error() const { return path_.empty() ? reason_ : path_ + ": " + reason_; }

 private:
    bool refuse(std::string reason) {
        reason_ = std::move(reason);
        return false;
    }

    // The path is kept as it is on refusal: it names the place.
    template <typename WALK>
    bool below(const std::string &step, WALK walk) {
        const size_t size = path_.size();
        path_ += step;
        if (!walk()) {
            return false;
        }
        path_.resize(size);
        return true;
    }

    std::string key_step(const std::string &key) const { return path_.empty() ? key : "." + key; }

    bool walk_fields(json_t &object, const pb::Descriptor *type) {
        if (object.is_null() && !path_.empty()) {
            return true;
        }
        if (!object.is_object()) {
            return refuse("found " + std::string(object.type_name()) + ", but " + type->full_name() +
                          " is a JSON object; see nyxctl describe " + type->full_name());
        }
        std::set<const pb::FieldDescriptor *> given;
        for (auto &[key, value] : object.items()) {
            if (!below(key_step(key), [&, &k = key, &v = value] { return walk_key(k, v, type, &given); })) {
                return false;
            }
        }
        return true;
    }

    bool walk_key(const std::string &key, json_t &value, const pb::Descriptor *type,
                  std::set<const pb::FieldDescriptor *> *given) {
        if (key == k_type_key) {
            return true;
        }
        const pb::FieldDescriptor *field = field_of_key(type, key);
        if (field == nullptr) {
            return refuse(unknown_field_text(type, key));
        }
        if (!given->insert(field).second) {
            return refuse("given twice, as \"" + field->name() + "\" and \"" + field->json_name() + "\"");
        }
        return walk_field(value, field);
    }

    bool walk_field(json_t &value, const pb::FieldDescriptor *field) {
        if (field->is_map()) {
            return walk_elements(value, value.is_object(), field->message_type()->map_value(),
                                 forms_of(field));
        }
        if (field->is_repeated()) {
            return walk_elements(value, value.is_array(), field, forms_of(field));
        }
        return walk_value(value, field, forms_of(field));
    }

    bool walk_elements(json_t &value, bool fits, const pb::FieldDescriptor *field, forms_s forms) {
        if (!fits) {
            return value.is_null() ||
                   refuse("found " + std::string(value.type_name()) +
                          " for a field of several values; give " +
                          (field->containing_type()->options().map_entry() ? "{...}" : "[...]"));
        }
        for (auto &[key, element] : value.items()) {
            if (!below("[" + key + "]", [&, &e = element] { return walk_element(e, field, forms); })) {
                return false;
            }
        }
        return true;
    }

    // protobuf would leave it out, and the values behind it would take other places.
    bool walk_element(json_t &value, const pb::FieldDescriptor *field, forms_s forms) {
        return value.is_null() ? refuse("null can't stand in a list; leave it out")
                               : walk_value(value, field, forms);
    }

    bool walk_value(json_t &value, const pb::FieldDescriptor *field, forms_s forms) {
        if (field->type() == pb::FieldDescriptor::TYPE_BYTES) {
            return walk_bytes(value, forms.bytes);
        }
        if (field->enum_type() && value.is_string()) {
            return walk_enumerator(value, field->enum_type());
        }
        if (forms.number != types::NUMBER_TEXT_DECIMAL) {
            std::string reason = convert_.number(value, forms.number);
            return reason.empty() || refuse(std::move(reason));
        }
        const pb::Descriptor *type = field->message_type();
        return type == nullptr || walk_message(value, type, forms);
    }

    // Also as people say it: "up" for STATE_UP.
    bool walk_enumerator(json_t &value, const pb::EnumDescriptor *type) {
        const std::string text = value.get<std::string>();
        if (const auto *enumerator = enumerator_from_text(type, text)) {
            value = enumerator->name();
            return true;
        }
        std::vector<std::string> names;
        for (int i = 0; i < type->value_count(); ++i) {
            names.push_back(type->value(i)->name());
        }
        return refuse('"' + text + "\" is no value of " + type->full_name() +
                      nearest_names_text(text, names) + "; see nyxctl describe " + type->full_name());
    }

    bool walk_bytes(json_t &value, types::BytesText form) {
        if (value.is_null()) {
            return true;
        }
        std::string reason =
            value.is_string() ? convert_.bytes(value, form)
                              : "found " + std::string(value.type_name()) + ", but bytes are a JSON string";
        return reason.empty() || refuse(std::move(reason));
    }

    bool walk_any(json_t &value) {
        if (!value.is_object() || !value.contains(k_type_key) || !value[k_type_key].is_string()) {
            return true;
        }
        const std::string &url = value[k_type_key].get_ref<const std::string &>();
        const std::string name = url.substr(url.rfind('/') + 1);
        const pb::Descriptor *type = pb::DescriptorPool::generated_pool()->FindMessageTypeByName(name);
        if (type == nullptr || name.size() == url.size()) {
            return refuse("\"@type\" is \"" + url +
                          "\"; give \"type.googleapis.com/\" and the full name of a message" +
                          nearest_names_text(name, all_message_names()));
        }
        if (type->well_known_type() == pb::Descriptor::WELLKNOWNTYPE_UNSPECIFIED) {
            return walk_fields(value, type);
        }
        // Types with JSON of their own stand in an Any under this key.
        return !value.contains("value") || walk_message(value["value"], type, {});
    }

    const conversions_s convert_;
    std::string path_;
    std::string reason_;
};

std::string text_to_base64(json_t &value, types::BytesText form) {
    std::string bytes;
    std::string reason;
    if (!bytes_from_text(value.get_ref<const std::string &>(), form, &bytes, &reason)) {
        return reason;
    }
    value = base64_encode(bytes);
    return {};
}

std::string base64_to_text(json_t &value, types::BytesText form) {
    std::string bytes;
    if (base64_decode(value.get_ref<const std::string &>(), &bytes)) {
        value = bytes_to_text(bytes, form);
    }
    return {};
}

std::string text_to_number(json_t &value, types::NumberText form) {
    if (!value.is_string() || !is_number_text(value.get_ref<const std::string &>(), form)) {
        return {};
    }
    uint64_t number = 0;
    std::string reason;
    if (!number_from_text(value.get_ref<const std::string &>(), form, &number, &reason)) {
        return reason;
    }
    value = number;
    return {};
}

// protobuf writes numbers of 64 bits as strings.
std::string number_to_text(json_t &value, types::NumberText form) {
    const std::string digits = value.is_string() ? value.get<std::string>() : value.dump();
    uint64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (auto text = nyxctl::number_to_text(number, form)) {
        value = *text;
    }
    return {};
}

}  // namespace

bool texts_to_canonical(json_t *dom, const pb::Descriptor *type, std::string *error) {
    text_walk walk({.bytes = text_to_base64, .number = text_to_number});
    if (walk.walk_message(*dom, type, {})) {
        return true;
    }
    *error = walk.error();
    return false;
}

void canonical_to_texts(json_t *dom, const pb::Descriptor *type) {
    // Nothing is refused here: the tree comes from protobuf's own writer.
    text_walk walk({.bytes = base64_to_text, .number = number_to_text});
    static_cast<void>(walk.walk_message(*dom, type, {}));
}

}  // namespace nyxctl
