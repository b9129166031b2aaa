#include "client/core/people_value.h"

#include <arpa/inet.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

#include "client/core/bytes_text.h"
#include "client/core/number_text.h"
#include "nyx/types/net.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Up to and including the last underscore that all enumerators have in common.
size_t prefix_size(const pb::EnumDescriptor *type) {
    std::string common = type->value(0)->name();
    for (int i = 1; i < type->value_count(); i++) {
        const std::string &name = type->value(i)->name();
        common.resize(static_cast<size_t>(std::ranges::mismatch(common, name).in1 - common.begin()));
    }
    return type->value_count() > 1 ? common.rfind('_') + 1 : 0;
}

json_t address_value(const types::IPAddress &address) {
    char text[INET6_ADDRSTRLEN];
    const uint32_t v4 = htonl(address.v4_addr());
    if (address.af() == types::IP_AF_INET) {
        return inet_ntop(AF_INET, &v4, text, sizeof text);
    }
    if (address.af() == types::IP_AF_INET6) {
        return bytes_to_text(address.v6_addr(), types::BYTES_TEXT_IPV6);
    }
    return nullptr;
}

json_t prefix_value(const types::IPPrefix &prefix) {
    const json_t address = address_value(prefix.addr());
    return address.is_null() ? address
                             : json_t(address.get<std::string>() + "/" + std::to_string(prefix.len()));
}

json_t message_value(const pb::Message &message) {
    if (message.GetDescriptor() == types::IPAddress::descriptor()) {
        return address_value(dynamic_cast<const types::IPAddress &>(message));
    }
    if (message.GetDescriptor() == types::IPPrefix::descriptor()) {
        return prefix_value(dynamic_cast<const types::IPPrefix &>(message));
    }
    json_t object = json_t::object();
    for (int i = 0; i < message.GetDescriptor()->field_count(); i++) {
        const auto *field = message.GetDescriptor()->field(i);
        // Of a oneof only the member that is set; absent messages are left out as well.
        if (!field->has_presence() || message.GetReflection()->HasField(message, field)) {
            object[field->name()] = people_value(message, field);
        }
    }
    return object;
}

json_t number_value(uint64_t number, const pb::FieldDescriptor *field) {
    const auto text = number_to_text(number, field->options().GetExtension(types::number_text));
    return text ? json_t(*text) : json_t(number);
}

json_t enum_value(const pb::FieldDescriptor *field, int number) {
    const auto *value = field->enum_type()->FindValueByNumber(number);
    return value ? json_t(enumerator_text(value)) : json_t(number);
}

json_t bytes_or_text(const pb::FieldDescriptor *field, const std::string &value) {
    return field->type() == pb::FieldDescriptor::TYPE_BYTES
               ? bytes_to_text(value, field->options().GetExtension(types::bytes_text))
               : value;
}

json_t element_value(const pb::Message &message, const pb::FieldDescriptor *field, int i) {
    const pb::Reflection &get = *message.GetReflection();
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return number_value(get.GetRepeatedUInt32(message, field, i), field);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return number_value(get.GetRepeatedUInt64(message, field, i), field);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return enum_value(field, get.GetRepeatedEnumValue(message, field, i));
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return bytes_or_text(field, get.GetRepeatedString(message, field, i));
        case pb::FieldDescriptor::CPPTYPE_MESSAGE:
            return message_value(get.GetRepeatedMessage(message, field, i));
        default:
            throw std::logic_error(field->full_name() + ": no such lists in the protos");
    }
}

json_t single_value(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::Reflection &get = *message.GetReflection();
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return get.GetBool(message, field);
        case pb::FieldDescriptor::CPPTYPE_INT32:
            return get.GetInt32(message, field);
        case pb::FieldDescriptor::CPPTYPE_INT64:
            return get.GetInt64(message, field);
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return number_value(get.GetUInt32(message, field), field);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return number_value(get.GetUInt64(message, field), field);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return enum_value(field, get.GetEnumValue(message, field));
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return bytes_or_text(field, get.GetString(message, field));
        case pb::FieldDescriptor::CPPTYPE_MESSAGE:
            return message_value(get.GetMessage(message, field));
        default:
            throw std::logic_error(field->full_name() + ": no such fields in the protos");
    }
}

}  // namespace

json_t people_value(const pb::Message &message, const pb::FieldDescriptor *field) {
    if (!field->is_repeated()) {
        return single_value(message, field);
    }
    json_t list = json_t::array();
    for (int i = 0; i < message.GetReflection()->FieldSize(message, field); i++) {
        list.push_back(element_value(message, field, i));
    }
    return list;
}

std::string enumerator_text(const pb::EnumValueDescriptor *value) {
    return lower(value->name().substr(prefix_size(value->type())));
}

const pb::EnumValueDescriptor *enumerator_from_text(const pb::EnumDescriptor *type, std::string_view text) {
    const std::string wanted = lower(std::string(text));
    int number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    const pb::EnumValueDescriptor *by_number = nullptr;
    for (int i = 0; i < type->value_count(); i++) {
        const auto *value = type->value(i);
        if (wanted == enumerator_text(value) || wanted == lower(value->name())) {
            return value;
        }
        by_number = is_number && value->number() == number ? value : by_number;
    }
    return by_number;
}

json_t value_at(const pb::Message &message, std::string_view path) {
    const size_t dot = path.find('.');
    const auto *field = message.GetDescriptor()->FindFieldByName(std::string(path.substr(0, dot)));
    if (!field) {
        throw std::logic_error("no field " + std::string(path) + " in " +
                               message.GetDescriptor()->full_name());
    }
    if (dot == path.npos) {
        return people_value(message, field);
    }
    if (!message.GetReflection()->HasField(message, field)) {
        return nullptr;
    }
    return value_at(message.GetReflection()->GetMessage(message, field), path.substr(dot + 1));
}

}  // namespace nyxctl
