#include "client/core/field_value.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/reflection.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include "base/nearest_names.h"
#include "base/text.h"
#include "client/core/bytes_text.h"
#include "client/core/fields.h"
#include "client/core/labels.h"
#include "client/core/record_width.h"
#include "nyx/types/net.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using reflection_t = pb::Reflection;

// One field, or one element of a list.
struct place_s {
    pb::Message *message;
    const pb::FieldDescriptor *field;
    int index;
};

template <typename Value>
using setter_t = void (reflection_t::*)(pb::Message *, const pb::FieldDescriptor *, Value) const;

template <typename Value>
void store(const place_s &place, Value value, setter_t<Value> set) {
    const reflection_t *reflection = place.message->GetReflection();
    if (!place.field->is_repeated()) {
        (reflection->*set)(place.message, place.field, std::move(value));
        return;
    }
    auto list = reflection->GetMutableRepeatedFieldRef<Value>(place.message, place.field);
    if (place.index == list.size()) {
        list.Add(value);
    } else {
        list.Set(place.index, value);
    }
}

types::NumberText number_form(const pb::FieldDescriptor *field) {
    return field->options().GetExtension(types::number_text);
}

types::BytesText bytes_form(const pb::FieldDescriptor *field) {
    return field->options().GetExtension(types::bytes_text);
}

template <typename Number>
bool parse_number(std::string_view text, Number *number) {
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(is_hex ? 2 : 0);
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *number, is_hex ? 16 : 10);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

template <typename Number>
std::string no_number(const place_s &place, std::string_view text, fit_e fit) {
    const types::NumberText form = number_form(place.field);
    const char *address = form == types::NUMBER_TEXT_MAC    ? " or a MAC address like 00:1a:2b:3c:4d:5e"
                          : form == types::NUMBER_TEXT_IPV4 ? " or an IPv4 address like 10.0.0.1"
                                                            : "";
    const auto largest = static_cast<uint64_t>(std::numeric_limits<Number>::max());
    return fmt::format(
        "\"{}\" is not accepted; give a number from {} to {}{}", text, std::numeric_limits<Number>::min(),
        fit == fit_e::type ? largest : std::min(largest, largest_number(place.field)), address);
}

template <typename Number>
std::string set_number(const place_s &place, std::string_view text, fit_e fit, setter_t<Number> set) {
    std::conditional_t<std::is_signed_v<Number>, int64_t, uint64_t> number = 0;
    const types::NumberText form = number_form(place.field);
    if (is_number_text(text, form)) {
        uint64_t address = 0;
        std::string reason;
        if (!number_from_text(text, form, &address, &reason)) {
            return reason;
        }
        number = address;
    } else if (!parse_number(text, &number) && !parse_number(labelled_number(place.field, text), &number)) {
        return no_number<Number>(place, text, fit);
    }
    if (fit == fit_e::record) {
        if (const auto error = width_error(place.field, static_cast<uint64_t>(number))) {
            return *error;
        }
    }
    if (fit != fit_e::cut && !std::in_range<Number>(number)) {
        return no_number<Number>(place, text, fit);
    }
    store(place, static_cast<Number>(number), set);
    return {};
}

std::string set_bool(const place_s &place, std::string_view text) {
    const bool is_true = text == "yes" || text == "true" || text == "1";
    if (!is_true && text != "no" && text != "false" && text != "0") {
        return fmt::format("\"{}\" is not accepted; give yes or no, true or false, 1 or 0", text);
    }
    store(place, is_true, &reflection_t::SetBool);
    return {};
}

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

const pb::EnumValueDescriptor *find_enumerator(const pb::EnumDescriptor *type, std::string_view text) {
    const std::string wanted = lower(std::string(text));
    for (int i = 0; i < type->value_count(); i++) {
        if (wanted == enumerator_text(type->value(i)) || wanted == lower(type->value(i)->name())) {
            return type->value(i);
        }
    }
    int number = 0;
    return parse_number(text, &number) ? type->FindValueByNumber(number) : nullptr;
}

const pb::EnumValueDescriptor *find_labelled(const pb::FieldDescriptor *field, std::string_view text) {
    for (int i = 0; i < field->enum_type()->value_count(); i++) {
        const std::string label = label_text(field, field->enum_type()->value(i));
        if (!text.empty() && !label.empty() && label_word(label) == label_word(text)) {
            return field->enum_type()->value(i);
        }
    }
    return nullptr;
}

std::string set_enumerator(const place_s &place, std::string_view text) {
    const pb::EnumDescriptor *type = place.field->enum_type();
    const auto *known = find_enumerator(type, text);
    if (const auto *enumerator = known ? known : find_labelled(place.field, text)) {
        store<int32_t>(place, enumerator->number(), &reflection_t::SetEnumValue);
        return {};
    }
    std::vector<std::string> texts;
    std::vector<std::string> names;
    for (int i = 0; i < type->value_count(); i++) {
        const std::string label = label_text(place.field, type->value(i));
        const std::string number = enumerator_text(type->value(i));
        texts.push_back(label.empty() ? number : fmt::format("{} ({})", number, label));
        names.insert(names.end(),
                     {number, type->value(i)->name(), label.empty() ? number : label_word(label)});
    }
    return fmt::format("\"{}\" is not accepted; give one of {}{}", text, fmt::join(texts, ", "),
                       base::nearest_names_text(text, names));
}

std::string set_bytes(const place_s &place, std::string_view text, fit_e fit) {
    std::string bytes;
    std::string reason;
    if (!bytes_from_text(text, bytes_form(place.field), &bytes, &reason)) {
        return reason;
    }
    const auto error = width_error(place.field, std::string_view(bytes));
    if (error && fit == fit_e::record) {
        return *error;
    }
    store(place, std::move(bytes), &reflection_t::SetString);
    return {};
}

// Messages with other bytes in a string field are refused whole by their receiver.
std::string set_string(const place_s &place, std::string_view text) {
    if (base::to_utf8(text) != text) {
        return "the text is not UTF-8; give it in UTF-8";
    }
    store(place, std::string(text), &reflection_t::SetString);
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

// Up to and including the last underscore that all enumerators have in common.
size_t prefix_size(const pb::EnumDescriptor *type) {
    std::string_view common = type->value(0)->name();
    for (int i = 1; i < type->value_count(); i++) {
        const std::string &name = type->value(i)->name();
        common = common.substr(0, std::ranges::mismatch(common, name).in1 - common.begin());
    }
    return type->value_count() > 1 ? common.rfind('_') + 1 : 0;
}

// Empty without a family.
std::string address_text(const types::IPAddress &address) {
    switch (address.af()) {
        case types::IP_AF_INET:
            return number_to_text(address.v4_addr(), types::NUMBER_TEXT_IPV4).value_or("");
        case types::IP_AF_INET6:
            return bytes_to_text(address.v6_addr(), types::BYTES_TEXT_IPV6);
        default:
            return {};
    }
}

value_s message_value(const pb::Message &message) {
    const auto *prefix = pb::DynamicCastToGenerated<types::IPPrefix>(&message);
    const auto *address = prefix ? &prefix->addr() : pb::DynamicCastToGenerated<types::IPAddress>(&message);
    const std::string text = address ? address_text(*address) : "";
    if (text.empty()) {
        return {};
    }
    return prefix ? fmt::format("{}/{}", text, prefix->len()) : text;
}

value_s number_value(uint64_t number, const pb::FieldDescriptor *field) {
    if (field->options().GetExtension(types::counter)) {
        return counter_s{number, field->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT64 ? 64U : 32U};
    }
    const auto text = number_to_text(number, number_form(field));
    return text ? value_s(*text) : value_s(number);
}

value_s enum_value(int number, const pb::FieldDescriptor *field) {
    const auto *value = field->enum_type()->FindValueByNumber(number);
    return value ? value_s(enumerator_s{value->name(), enumerator_text(value)}) : value_s(number);
}

value_s string_value(std::string value, const pb::FieldDescriptor *field) {
    return field->type() == pb::FieldDescriptor::TYPE_BYTES ? bytes_to_text(value, bytes_form(field))
                                                            : std::move(value);
}

}  // namespace

std::string set_from_text(pb::Message *message, const pb::FieldDescriptor *field, int index,
                          std::string_view text, fit_e fit) {
    const place_s place{message, field, index};
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return set_bool(place, text);
        case pb::FieldDescriptor::CPPTYPE_INT32:
            return set_number(place, text, fit, &reflection_t::SetInt32);
        case pb::FieldDescriptor::CPPTYPE_INT64:
            return set_number(place, text, fit, &reflection_t::SetInt64);
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return set_number(place, text, fit, &reflection_t::SetUInt32);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return set_number(place, text, fit, &reflection_t::SetUInt64);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return set_enumerator(place, text);
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return field->type() == pb::FieldDescriptor::TYPE_BYTES ? set_bytes(place, text, fit)
                                                                    : set_string(place, text);
        default:
            return "can't be set here; see call --canonical";
    }
}

bool is_one_value(const pb::Descriptor *type) {
    return type == types::IPAddress::descriptor() || type == types::IPPrefix::descriptor();
}

std::string set_from_text(pb::Message *message, std::string_view text) {
    types::IPAddress address;
    types::IPPrefix prefix;
    if (message->GetDescriptor() == types::IPAddress::descriptor()) {
        if (!parse_address(std::string(text), &address)) {
            return fmt::format("\"{}\" is not accepted; give an address like 10.0.0.1 or 2001:db8::1", text);
        }
        message->CopyFrom(address);
        return {};
    }
    if (message->GetDescriptor() == types::IPPrefix::descriptor()) {
        if (!parse_prefix(std::string(text), &prefix)) {
            return fmt::format("\"{}\" is not accepted; give a prefix like 10.0.0.0/24 or 2001:db8::/64",
                               text);
        }
        message->CopyFrom(prefix);
        return {};
    }
    return fmt::format("is a message; set its fields: {}",
                       fmt::join(field_names(message->GetDescriptor()), ", "));
}

value_s element_value(const pb::Message &message, const pb::FieldDescriptor *field, int index) {
    const reflection_t &reflection = *message.GetReflection();
    const auto get = [&](auto single, auto repeated) {
        return field->is_repeated() ? (reflection.*repeated)(message, field, index)
                                    : (reflection.*single)(message, field);
    };
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return get(&reflection_t::GetBool, &reflection_t::GetRepeatedBool);
        case pb::FieldDescriptor::CPPTYPE_INT32:
            return get(&reflection_t::GetInt32, &reflection_t::GetRepeatedInt32);
        case pb::FieldDescriptor::CPPTYPE_INT64:
            return get(&reflection_t::GetInt64, &reflection_t::GetRepeatedInt64);
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return number_value(get(&reflection_t::GetUInt32, &reflection_t::GetRepeatedUInt32), field);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return number_value(get(&reflection_t::GetUInt64, &reflection_t::GetRepeatedUInt64), field);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return enum_value(get(&reflection_t::GetEnumValue, &reflection_t::GetRepeatedEnumValue), field);
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return string_value(get(&reflection_t::GetString, &reflection_t::GetRepeatedString), field);
        case pb::FieldDescriptor::CPPTYPE_MESSAGE:
            return message_value(message_at(message, field, index));
        default:
            throw std::logic_error(field->full_name() + ": no message has such fields");
    }
}

value_s field_value(const pb::Message &message, const pb::FieldDescriptor *field) {
    if (!field->is_repeated()) {
        return element_value(message, field, 0);
    }
    value_s::list_t list;
    for (int i = 0; i < element_count(message, field); i++) {
        list.push_back(element_value(message, field, i));
    }
    return list;
}

std::string enumerator_text(const pb::EnumValueDescriptor *value) {
    return lower(value->name().substr(prefix_size(value->type())));
}

}  // namespace nyxctl
