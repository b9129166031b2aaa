#include "client/core/field_words.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string>
#include <vector>

#include "client/core/field_value.h"
#include "client/core/nearest.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr int k_no_index = -1;

// A word on its way through the messages: `done` is the part of the path that was followed.
struct path_s {
    std::string_view done;
    std::string_view rest;
};

// "spec[2]" of a path.
struct step_s {
    std::string name;
    int index = k_no_index;
};

outcome_s refuse(std::string_view path, const std::string &reason) {
    return usage_failure(std::string(path) + ": " + reason);
}

// Moves the next step from `rest` to `done`.
outcome_s next_step(path_s *path, step_s *step) {
    const size_t size = std::min(path->rest.find('.'), path->rest.size());
    const std::string_view text = path->rest.substr(0, size);
    path->done = {path->done.data(), static_cast<size_t>(text.data() + size - path->done.data())};
    path->rest.remove_prefix(std::min(size + 1, path->rest.size()));
    const size_t bracket = text.find('[');
    step->name = text.substr(0, bracket);
    if (bracket == text.npos) {
        return {};
    }
    const std::string_view digits = text.substr(bracket + 1);
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), step->index);
    const bool fits = parsed.ec == std::errc() && step->index >= 0 &&
                      std::string_view(parsed.ptr, text.data() + text.size()) == "]";
    return fits ? outcome_s() : refuse(path->done, "no index; give one like " + step->name + "[0]");
}

const pb::FieldDescriptor *find_field(const pb::Descriptor *type, const std::string &name) {
    const auto *field = type->FindFieldByName(name);
    return field ? field : type->FindFieldByCamelcaseName(name);
}

std::string unknown_field_text(std::span<pb::Message *const> messages, const std::string &name) {
    std::vector<std::string> names;
    std::string types;
    for (const pb::Message *message : messages) {
        const pb::Descriptor *type = message->GetDescriptor();
        types += (types.empty() ? "" : " or ") + type->full_name();
        for (int i = 0; i < type->field_count(); i++) {
            names.push_back(type->field(i)->name());
        }
    }
    return "no such field in " + types + nearest_names_text(name, names) + "; see nyxctl describe " +
           messages.back()->GetDescriptor()->full_name();
}

std::string member_names(const pb::OneofDescriptor *oneof) {
    std::string names;
    for (int i = 0; i < oneof->field_count(); i++) {
        names += (i == 0 ? "" : ", ") + oneof->field(i)->name();
    }
    return names;
}

outcome_s check_oneof(const pb::Message &message, const pb::FieldDescriptor *field, std::string_view path) {
    const pb::OneofDescriptor *oneof = field->real_containing_oneof();
    const auto *member = oneof ? message.GetReflection()->GetOneofFieldDescriptor(message, oneof) : nullptr;
    return !member || member == field
               ? outcome_s()
               : refuse(path, member->name() + " is set already; give fields of one of " +
                                  member_names(oneof) + " alone");
}

// Where in the list; the size of the list means behind its end.
outcome_s check_index(const pb::Message &message, const pb::FieldDescriptor *field, std::string_view path,
                      int *index) {
    if (!field->is_repeated()) {
        return *index == k_no_index ? outcome_s() : refuse(path, "no list; leave the index out");
    }
    const int size = message.GetReflection()->FieldSize(message, field);
    if (*index == k_no_index) {
        *index = size;
    }
    return *index <= size
               ? outcome_s()
               : refuse(path, "the list has " + std::to_string(size) + " elements up to here; give " +
                                  field->name() + "[" + std::to_string(size) + "] first");
}

pb::Message *enter(pb::Message *message, const pb::FieldDescriptor *field, int index) {
    const pb::Reflection *reflection = message->GetReflection();
    if (!field->is_repeated()) {
        return reflection->MutableMessage(message, field);
    }
    return index == reflection->FieldSize(*message, field)
               ? reflection->AddMessage(message, field)
               : reflection->MutableRepeatedMessage(message, field, index);
}

outcome_s set_below(std::span<pb::Message *const> messages, path_s path, std::string_view value);

outcome_s set_or_enter(pb::Message *message, const pb::FieldDescriptor *field, int index, const path_s &path,
                       std::string_view value) {
    const bool is_message = field->message_type() != nullptr;
    if (is_message && !path.rest.empty()) {
        pb::Message *member = enter(message, field, index);
        return set_below({&member, 1}, path, value);
    }
    if (!path.rest.empty()) {
        return refuse(path.done, "has no fields; found \"." + std::string(path.rest) + "\" behind it");
    }
    const std::string reason = is_message ? set_message_value(enter(message, field, index), value)
                                          : set_plain_value(message, field, index, value);
    return reason.empty() ? outcome_s() : refuse(path.done, reason);
}

outcome_s set_below(std::span<pb::Message *const> messages, path_s path, std::string_view value) {
    step_s step;
    if (outcome_s outcome = next_step(&path, &step); !outcome.ok()) {
        return outcome;
    }
    const auto found = std::ranges::find_if(
        messages, [&](auto *message) { return find_field(message->GetDescriptor(), step.name); });
    if (found == messages.end()) {
        return refuse(path.done, unknown_field_text(messages, step.name));
    }
    const pb::FieldDescriptor *field = find_field((*found)->GetDescriptor(), step.name);
    if (field->is_repeated() && step.index == k_no_index && !path.rest.empty()) {
        return refuse(path.done, "a list; say which element: " + step.name + "[0]");
    }
    outcome_s outcome = check_oneof(**found, field, path.done);
    if (outcome.ok()) {
        outcome = check_index(**found, field, path.done, &step.index);
    }
    return outcome.ok() ? set_or_enter(*found, field, step.index, path, value) : outcome;
}

}  // namespace

bool is_field_word(std::string_view word) {
    const std::string_view path = word.substr(0, word.find('='));
    return path.size() < word.size() && !path.empty() && std::isalpha(static_cast<unsigned char>(path[0])) &&
           std::ranges::all_of(path, [](unsigned char c) {
               return std::isalnum(c) || c == '_' || c == '.' || c == '[' || c == ']';
           });
}

outcome_s set_field(pb::Message *message, std::string_view word) { return set_field({&message, 1}, word); }

outcome_s set_field(std::span<pb::Message *const> messages, std::string_view word) {
    if (!is_field_word(word)) {
        return usage_failure('"' + std::string(word) + "\" names no field; give PATH=VALUE, such as id=1");
    }
    const size_t equals = word.find('=');
    return set_below(messages, {.done = word.substr(0, 0), .rest = word.substr(0, equals)},
                     word.substr(equals + 1));
}

}  // namespace nyxctl
