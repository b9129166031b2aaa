#include "client/cli/change.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "client/core/field_words.h"
#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/json.h"
#include "client/core/text_io.h"
#include "client/view/find_object.h"
#include "client/view/one_object.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

const pb::MethodDescriptor *method_of(const std::string &full_name) {
    return pb::DescriptorPool::generated_pool()->FindMethodByName(full_name);
}

// Removes what the fields of `given` replace: lists, and other members of a oneof.
void make_room(const pb::Message &given, pb::Message *message) {
    const pb::Reflection &reflection = *message->GetReflection();
    std::vector<const pb::FieldDescriptor *> fields;
    given.GetReflection()->ListFields(given, &fields);
    for (const pb::FieldDescriptor *field : fields) {
        if (field->is_repeated() || !oneof_error(*message, field).empty()) {
            const pb::OneofDescriptor *oneof = field->real_containing_oneof();
            oneof ? reflection.ClearOneof(message, oneof) : reflection.ClearField(message, field);
        } else if (field->message_type() && reflection.HasField(*message, field)) {
            make_room(given.GetReflection()->GetMessage(given, field),
                      reflection.MutableMessage(message, field));
        }
    }
}

rows_s rows_of(const pb::Message &message) {
    shown_s shown;
    append_object(message, "", {}, &shown);
    return shown.rows;
}

// Field, old and new value; null where a message does not have the field.
rows_s changed_rows(const pb::Message &before, const pb::Message &after) {
    rows_s changes = {.subject = "changes", .columns = {"field", "old", "new"}, .rows = {}};
    std::map<std::string, std::pair<value_s, value_s>> values;
    for (const row_t &row : rows_of(before).rows) values[cell_text(row[0])].first = row[1];
    for (const row_t &row : rows_of(after).rows) values[cell_text(row[0])].second = row[1];
    for (const auto &[field, both] : values) {
        if (both.first != both.second) changes.rows.push_back({field, both.first, both.second});
    }
    return changes;
}

}  // namespace

outcome_s set_fields(std::span<pb::Message *const> messages, words_t words) {
    for (const std::string &word : words) {
        if (outcome_s outcome = set_field(messages, word, fit_e::record); !outcome.ok()) {
            // Only the commands about tables have that option.
            outcome.text.resize(std::min(outcome.text.size(), outcome.text.find("; --cut")));
            return outcome;
        }
    }
    return {};
}

outcome_s set_fields(pb::Message *message, words_t words) { return set_fields({&message, 1}, words); }

outcome_s call(const global_options_s &global, const std::string &method, const pb::Message &request,
               pb::Message *response) {
    return checked_call(global, method_of(method), request, response);
}

outcome_s change(const global_options_s &global, const std::string &method, const pb::Message &request) {
    const auto response = new_message(method_of(method)->output_type());
    outcome_s outcome = call(global, method, request, response.get());
    return outcome.ok() ? write_result(global, json_text({{"status", "ok"}}), "") : outcome;
}

outcome_s read_spec(const global_options_s &global, std::string_view kind, const std::string &given,
                    pb::Message *spec) {
    const auto view = std::ranges::find(element_views(), kind, &element_view_s::name);
    found_object_s found;
    outcome_s outcome = find_object(global, *view, given, &found);
    if (outcome.ok()) {
        const auto *field = found.object->GetDescriptor()->FindFieldByName("spec");
        spec->CopyFrom(found.object->GetReflection()->GetMessage(*found.object, field));
    }
    return outcome;
}

outcome_s change_settings(const global_options_s &global, const std::string &method,
                          const pb::Message &request, pb::Message *spec,
                          const std::function<parts_t(pb::Message *spec)> &parts_of, words_t words) {
    const std::unique_ptr<pb::Message> before(spec->New());
    before->CopyFrom(*spec);
    const std::unique_ptr<pb::Message> given(spec->New());
    outcome_s outcome = set_fields(parts_of(given.get()), words);
    if (outcome.ok()) {
        make_room(*given, spec);
        outcome = set_fields(parts_of(spec), words);
    }
    if (outcome.ok()) {
        const auto response = new_message(method_of(method)->output_type());
        outcome = call(global, method, request, response.get());
    }
    if (!outcome.ok()) {
        return outcome;
    }
    const rows_s changes = changed_rows(*before, *spec);
    std::string text;
    for (const row_t &row : changes.rows) {
        text += fmt::format("{} {} -> {}\n", cell_text(row[0]), cell_text(row[1]), cell_text(row[2]));
    }
    return write_result(global, rows_to_json(changes, {{"status", "ok"}}), text);
}

outcome_s with_hint(outcome_s outcome, const std::string &hint) {
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS) {
        outcome.text += "; " + hint;
    }
    return outcome;
}

}  // namespace nyxctl
