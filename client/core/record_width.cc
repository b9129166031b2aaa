#include "client/core/record_width.h"

#include <google/protobuf/descriptor.pb.h>

#include <limits>
#include <vector>

#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using found_t = std::optional<std::string>;

size_t width_of(const pb::FieldDescriptor *field) {
    return field->options().GetExtension(types::record_width);
}

std::string bytes_count_text(size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

// Of lists only those of ids have a width in requests.
found_t list_error(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::Reflection &get = *message.GetReflection();
    const bool is_bytes = field->type() == pb::FieldDescriptor::TYPE_BYTES;
    for (int i = 0; is_bytes && i < get.FieldSize(message, field); i++) {
        if (found_t error = width_error(field, std::string_view(get.GetRepeatedString(message, field, i)))) {
            return error;
        }
    }
    return {};
}

found_t value_error(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::Reflection &get = *message.GetReflection();
    if (field->is_repeated()) {
        return list_error(message, field);
    }
    switch (field->type()) {
        case pb::FieldDescriptor::TYPE_UINT32:
            return width_error(field, get.GetUInt32(message, field));
        case pb::FieldDescriptor::TYPE_UINT64:
            return width_error(field, get.GetUInt64(message, field));
        case pb::FieldDescriptor::TYPE_BYTES:
            return width_error(field, std::string_view(get.GetString(message, field)));
        default:
            return {};
    }
}

found_t find_error(const pb::Message &message, const std::string &path);

found_t find_error_below(const pb::Message &message, const pb::FieldDescriptor *field,
                         const std::string &path) {
    const pb::Reflection &get = *message.GetReflection();
    if (!field->is_repeated()) {
        return find_error(get.GetMessage(message, field), path + ".");
    }
    for (int i = 0; i < get.FieldSize(message, field); i++) {
        const std::string element = path + "[" + std::to_string(i) + "].";
        if (found_t error = find_error(get.GetRepeatedMessage(message, field, i), element)) {
            return error;
        }
    }
    return {};
}

found_t find_error(const pb::Message &message, const std::string &path) {
    std::vector<const pb::FieldDescriptor *> fields;
    message.GetReflection()->ListFields(message, &fields);
    for (const pb::FieldDescriptor *field : fields) {
        if (field->message_type()) {
            if (found_t error = find_error_below(message, field, path + field->name())) return error;
        } else if (const found_t error = value_error(message, field)) {
            return path + field->name() + ": " + *error;
        }
    }
    return {};
}

}  // namespace

uint64_t largest_number(const pb::FieldDescriptor *field) {
    const size_t width = width_of(field);
    return width == 0 || width >= sizeof(uint64_t) ? std::numeric_limits<uint64_t>::max()
                                                   : (uint64_t{1} << 8 * width) - 1;
}

found_t width_error(const pb::FieldDescriptor *field, uint64_t number) {
    if (number <= largest_number(field)) {
        return {};
    }
    return std::to_string(number) + " does not fit in " + bytes_count_text(width_of(field)) +
           ", largest is " + std::to_string(largest_number(field)) + "; --cut sends it anyway";
}

found_t width_error(const pb::FieldDescriptor *field, std::string_view bytes) {
    const size_t width = width_of(field);
    if (width == 0 || bytes.size() <= width) {
        return {};
    }
    return bytes_count_text(bytes.size()) + " do not fit in " + bytes_count_text(width) +
           "; --cut sends them anyway";
}

outcome_s check_widths(const pb::Message &message) {
    const found_t error = find_error(message, "");
    return error ? usage_failure(*error) : outcome_s();
}

}  // namespace nyxctl
