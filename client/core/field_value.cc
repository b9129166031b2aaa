#include "client/core/field_value.h"

#include <arpa/inet.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/reflection.h>

#include <charconv>
#include <limits>
#include <utility>
#include <vector>

#include "client/core/bytes_text.h"
#include "client/core/json_dom.h"
#include "client/core/nearest.h"
#include "client/core/number_text.h"
#include "client/core/people_value.h"
#include "nyx/types/net.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::string quoted(std::string_view value) { return '"' + std::string(value) + '"'; }

// One field, or one element of a list.
struct place_s {
    pb::Message *message;
    const pb::FieldDescriptor *field;
    int index;
};

template <typename VALUE>
using setter_t = void (pb::Reflection::*)(pb::Message *, const pb::FieldDescriptor *, VALUE) const;

template <typename VALUE>
void store(const place_s &place, VALUE value, setter_t<VALUE> set) {
    const pb::Reflection *reflection = place.message->GetReflection();
    if (!place.field->is_repeated()) {
        (reflection->*set)(place.message, place.field, std::move(value));
        return;
    }
    auto list = reflection->GetMutableRepeatedFieldRef<VALUE>(place.message, place.field);
    if (place.index == list.size()) {
        list.Add(value);
    } else {
        list.Set(place.index, value);
    }
}

template <typename NUMBER>
bool parse_number(std::string_view text, NUMBER *number) {
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(is_hex ? 2 : 0);
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *number, is_hex ? 16 : 10);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

template <typename NUMBER>
std::string set_number(const place_s &place, std::string_view value, setter_t<NUMBER> set) {
    const types::NumberText form = place.field->options().GetExtension(types::number_text);
    NUMBER number = 0;
    if (is_number_text(value, form)) {
        uint64_t address = 0;
        std::string reason;
        if (!number_from_text(value, form, &address, &reason)) {
            return reason;
        }
        number = static_cast<NUMBER>(address);  // the form's width is the field's
    } else if (!parse_number(value, &number)) {
        return quoted(value) + " is not accepted; give a number from " +
               std::to_string(std::numeric_limits<NUMBER>::min()) + " to " +
               std::to_string(std::numeric_limits<NUMBER>::max()) +
               (form == types::NUMBER_TEXT_MAC    ? " or a MAC address like 00:1a:2b:3c:4d:5e"
                : form == types::NUMBER_TEXT_IPV4 ? " or an IPv4 address like 10.0.0.1"
                                                  : "");
    }
    store(place, number, set);
    return {};
}

std::string set_bool(const place_s &place, std::string_view value) {
    const bool is_true = value == "yes" || value == "true" || value == "1";
    if (!is_true && value != "no" && value != "false" && value != "0") {
        return quoted(value) + " is not accepted; give yes or no, true or false, 1 or 0";
    }
    store(place, is_true, &pb::Reflection::SetBool);
    return {};
}

std::string set_enum(const place_s &place, std::string_view value) {
    const pb::EnumDescriptor *type = place.field->enum_type();
    const auto *enumerator = enumerator_from_text(type, value);
    if (!enumerator) {
        std::vector<std::string> names;
        for (int i = 0; i < type->value_count(); i++) {
            names.push_back(enumerator_text(type->value(i)));
        }
        return quoted(value) + " is not accepted; give one of " + enumerator_texts(type) +
               nearest_names_text(value, names);
    }
    store<int32_t>(place, enumerator->number(), &pb::Reflection::SetEnumValue);
    return {};
}

std::string set_bytes(const place_s &place, std::string_view value) {
    std::string bytes;
    std::string reason;
    if (!bytes_from_text(value, place.field->options().GetExtension(types::bytes_text), &bytes, &reason)) {
        return reason;
    }
    store(place, std::move(bytes), &pb::Reflection::SetString);
    return {};
}

// No service takes texts in another encoding.
bool is_utf8(const std::string &text) {
    try {
        static_cast<void>(json_t(text).dump());
        return true;
    } catch (const json_t::type_error &) {
        return false;
    }
}

std::string set_text(const place_s &place, std::string_view value) {
    std::string text(value);
    if (!is_utf8(text)) {
        return "the text is not UTF-8; give it in UTF-8";
    }
    store(place, std::move(text), &pb::Reflection::SetString);
    return {};
}

bool parse_address(const std::string &text, types::IPAddress *address) {
    in_addr v4;
    in6_addr v6;
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        address->set_af(types::IP_AF_INET);
        address->set_v4_addr(ntohl(v4.s_addr));
        return true;
    }
    if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
        address->set_af(types::IP_AF_INET6);
        address->set_v6_addr(&v6, sizeof v6);
        return true;
    }
    return false;
}

bool parse_prefix(const std::string &text, types::IPPrefix *prefix) {
    const size_t slash = text.find('/');
    uint32_t length = 0;
    if (slash == text.npos || !parse_number(std::string_view(text).substr(slash + 1), &length) ||
        !parse_address(text.substr(0, slash), prefix->mutable_addr())) {
        return false;
    }
    prefix->set_len(length);
    return length <= (prefix->addr().af() == types::IP_AF_INET ? 32 : 128);
}

std::string field_names(const pb::Descriptor *type) {
    std::string names;
    for (int i = 0; i < type->field_count(); i++) {
        names += (i == 0 ? "" : ", ") + type->field(i)->name();
    }
    return names;
}

}  // namespace

std::string set_plain_value(pb::Message *message, const pb::FieldDescriptor *field, int index,
                            std::string_view value) {
    const place_s place{message, field, index};
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return set_bool(place, value);
        case pb::FieldDescriptor::CPPTYPE_INT32:
            return set_number(place, value, &pb::Reflection::SetInt32);
        case pb::FieldDescriptor::CPPTYPE_INT64:
            return set_number(place, value, &pb::Reflection::SetInt64);
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return set_number(place, value, &pb::Reflection::SetUInt32);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return set_number(place, value, &pb::Reflection::SetUInt64);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return set_enum(place, value);
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return field->type() == pb::FieldDescriptor::TYPE_BYTES ? set_bytes(place, value)
                                                                    : set_text(place, value);
        default:
            return "can't be set here; give it in JSON";
    }
}

std::string set_message_value(pb::Message *message, std::string_view value) {
    const pb::Descriptor *type = message->GetDescriptor();
    const std::string text(value);
    if (type == types::IPAddress::descriptor()) {
        types::IPAddress address;
        if (!parse_address(text, &address)) {
            return quoted(value) + " is not accepted; give an address like 10.0.0.1 or 2001:db8::1";
        }
        message->CopyFrom(address);
        return {};
    }
    if (type == types::IPPrefix::descriptor()) {
        types::IPPrefix prefix;
        if (!parse_prefix(text, &prefix)) {
            return quoted(value) + " is not accepted; give a prefix like 10.0.0.0/24 or 2001:db8::/64";
        }
        message->CopyFrom(prefix);
        return {};
    }
    return "is a message; set its fields: " + field_names(type);
}

std::string enumerator_texts(const pb::EnumDescriptor *type) {
    std::string texts;
    for (int i = 0; i < type->value_count(); i++) {
        texts += (i == 0 ? "" : ", ") + enumerator_text(type->value(i));
    }
    return texts;
}

}  // namespace nyxctl
