#include "client/table/entry_list.h"

#include <string>
#include <utility>

#include "client/core/json.h"
#include "client/core/json_dom.h"
#include "client/core/record_width.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr std::string_view k_blanks = " \t\r\n";

// What is known of all entries, and where they go.
struct reading_s {
    const pb::Descriptor *type;
    bool cut;
    const progress_t &progress;
    message_list_t *entries;
};

outcome_s add_entry(std::string_view json, const reading_s &reading) {
    auto entry = new_message(reading.type);
    outcome_s outcome = json_to_message(json, entry.get());
    if (outcome.ok() && !reading.cut) {
        outcome = check_widths(*entry);
    }
    reading.entries->push_back(std::move(entry));
    if (reading.progress) {
        reading.progress(reading.entries->size());
    }
    return outcome;
}

outcome_s parse_array(std::string_view text, const reading_s &reading) {
    json_t list;
    std::string error;
    if (!parse_json(text, &list, &error)) {
        return usage_failure("JSON array of " + reading.type->full_name() + ": " + error);
    }
    for (size_t i = 0; i < list.size(); i++) {
        if (outcome_s outcome = add_entry(dump_json(list[i]), reading); !outcome.ok()) {
            return usage_failure("entry " + std::to_string(i + 1) + ": " + outcome.text);
        }
    }
    return {};
}

// Of an object over several lines, none is one.
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
        if (outcome_s outcome = add_entry(line, reading); !outcome.ok()) {
            return usage_failure("line " + std::to_string(number) + ": " + outcome.text + line_hint(line));
        }
    }
    return {};
}

}  // namespace

outcome_s parse_entries(std::string_view text, const pb::Descriptor *type, bool cut,
                        const progress_t &progress, message_list_t *entries) {
    const size_t first = text.find_first_not_of(k_blanks);
    const bool array = first != text.npos && text[first] == '[';
    const reading_s reading = {.type = type, .cut = cut, .progress = progress, .entries = entries};
    return array ? parse_array(text, reading) : parse_lines(text, reading);
}

outcome_s entry_line(const pb::Message &entry, std::string *line) {
    std::string json;
    if (outcome_s outcome = message_to_json(entry, &json); !outcome.ok()) {
        return outcome;
    }
    json_t dom;
    std::string error;
    if (!parse_json(json, &dom, &error)) {
        return local_failure("cannot show " + entry.GetTypeName() + " in one line: " + error);
    }
    *line = dump_json(dom);
    return {};
}

}  // namespace nyxctl
