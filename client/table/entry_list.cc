#include "client/table/entry_list.h"

#include <fmt/format.h>

#include <string>
#include <utility>

#include "client/core/fields.h"
#include "client/core/json_reader.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr std::string_view k_blanks = " \t\r\n";

// How entries are read, and where they go.
struct reading_s {
    const pb::Descriptor *type;
    fit_e fit;
    const progress_t &progress;
    message_list_t *entries;
};

outcome_s add_entry(std::unique_ptr<pb::Message> entry, const reading_s &reading) {
    reading.entries->push_back(std::move(entry));
    if (reading.progress) {
        reading.progress(reading.entries->size());
    }
    return {};
}

outcome_s parse_list(std::string_view text, const reading_s &reading) {
    const size_t before = reading.entries->size();
    const auto add = [&](std::unique_ptr<pb::Message> entry) { return add_entry(std::move(entry), reading); };
    outcome_s outcome = read_json_list(text, reading.type, add, reading.fit);
    return outcome.ok() ? outcome
                        : usage_failure(fmt::format("entry {}: {}", reading.entries->size() - before + 1,
                                                    outcome.text));
}

outcome_s parse_line(std::string_view line, const reading_s &reading) {
    auto entry = new_message(reading.type);
    outcome_s outcome = read_json(line, entry.get(), reading.fit);
    return outcome.ok() ? add_entry(std::move(entry), reading) : outcome;
}

// For an object over several lines, none of which is one.
std::string line_hint(std::string_view line) {
    const size_t first = line.find_first_not_of(k_blanks);
    const size_t last = line.find_last_not_of(k_blanks);
    return line[first] == '{' && line[last] == '}'
               ? ""
               : "; give one JSON object in each line, or one JSON array of objects";
}

outcome_s parse_lines(std::string_view text, const reading_s &reading) {
    for (size_t number = 1; !text.empty(); number++) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.find_first_not_of(k_blanks) == line.npos) {
            continue;
        }
        if (outcome_s outcome = parse_line(line, reading); !outcome.ok()) {
            return usage_failure(fmt::format("line {}: {}{}", number, outcome.text, line_hint(line)));
        }
    }
    return {};
}

}  // namespace

outcome_s parse_entries(std::string_view text, const pb::Descriptor *type, bool cut,
                        const progress_t &progress, message_list_t *entries) {
    const size_t first = text.find_first_not_of(k_blanks);
    const bool is_list = first != text.npos && text[first] == '[';
    const reading_s reading = {
        .type = type, .fit = cut ? fit_e::cut : fit_e::record, .progress = progress, .entries = entries};
    return is_list ? parse_list(text, reading) : parse_lines(text, reading);
}

}  // namespace nyxctl
