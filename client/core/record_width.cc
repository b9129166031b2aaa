#include "client/core/record_width.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>

#include <limits>

#include "client/core/json.h"
#include "client/core/json_reader.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using found_t = std::optional<std::string>;

size_t width_of(const pb::FieldDescriptor *field) {
    return field->options().GetExtension(types::record_width);
}

std::string bytes_count_text(size_t count) { return fmt::format("{} byte{}", count, count == 1 ? "" : "s"); }

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
    return fmt::format("{} does not fit in {}, largest is {}; --cut sends it anyway", number,
                       bytes_count_text(width_of(field)), largest_number(field));
}

found_t width_error(const pb::FieldDescriptor *field, std::string_view bytes) {
    const size_t width = width_of(field);
    if (width == 0 || bytes.size() <= width) {
        return {};
    }
    return fmt::format("{} do not fit in {}; --cut sends them anyway", bytes_count_text(bytes.size()),
                       bytes_count_text(width));
}

// Only the reader knows paths and widths, so the message is written and read again.
outcome_s check_widths(const pb::Message &message) {
    outcome_s outcome =
        read_json(message_json(message), new_message(message.GetDescriptor()).get(), fit_e::record);
    const std::string subject = fmt::format("JSON of {}: ", message.GetTypeName());
    outcome.text = outcome.text.substr(outcome.text.starts_with(subject) ? subject.size() : 0);
    return outcome;
}

}  // namespace nyxctl
