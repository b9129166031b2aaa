#include "client/core/field_words.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <string>
#include <vector>

#include "client/core/field_value.h"
#include "client/core/fields.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr int k_no_index = -1;

// A word on its way through the messages: `done` is the part of the path that was followed.
struct path_s {
    std::string_view done;
    std::string_view rest;
    std::string_view value;
    fit_e fit;
};

// "spec[2]" of a path.
struct step_s {
    std::string name;
    int index = k_no_index;
};

outcome_s refuse(std::string_view path, const std::string &reason) {
    return usage_failure(fmt::format("{}: {}", path, reason));
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
    return fits ? outcome_s()
                : refuse(path->done, fmt::format("invalid index; give one like {}[0]", step->name));
}

// Turns a missing index into the size of the list, which appends.
outcome_s check_index(const pb::Message &message, const pb::FieldDescriptor *field, std::string_view path,
                      int *index) {
    if (!field->is_repeated()) {
        return *index == k_no_index ? outcome_s() : refuse(path, "not a list; leave the index out");
    }
    const int size = message.GetReflection()->FieldSize(message, field);
    if (*index == k_no_index) {
        *index = size;
    }
    return *index <= size
               ? outcome_s()
               : refuse(path, fmt::format("the list has {0} elements up to here; give {1}[{0}] first", size,
                                          field->name()));
}

outcome_s set_below(std::span<pb::Message *const> messages, path_s path);

outcome_s set_or_enter(pb::Message *message, const pb::FieldDescriptor *field, int index,
                       const path_s &path) {
    const bool is_message = field->message_type() != nullptr;
    if (is_message && !path.rest.empty()) {
        pb::Message *member = mutable_message_at(message, field, index);
        return set_below({&member, 1}, path);
    }
    if (!path.rest.empty()) {
        return refuse(path.done, fmt::format("has no fields; found \".{}\" after it", path.rest));
    }
    const std::string reason = is_message
                                   ? set_from_text(mutable_message_at(message, field, index), path.value)
                                   : set_from_text(message, field, index, path.value, path.fit);
    return reason.empty() ? outcome_s() : refuse(path.done, reason);
}

outcome_s set_below(std::span<pb::Message *const> messages, path_s path) {
    step_s step;
    if (outcome_s outcome = next_step(&path, &step); !outcome.ok()) {
        return outcome;
    }
    const auto found = std::ranges::find_if(
        messages, [&](auto *message) { return find_field(message->GetDescriptor(), step.name); });
    if (found == messages.end()) {
        std::vector<const pb::Descriptor *> types;
        std::ranges::transform(messages, std::back_inserter(types), &pb::Message::GetDescriptor);
        return refuse(path.done, unknown_field_text(types, step.name));
    }
    const pb::FieldDescriptor *field = find_field((*found)->GetDescriptor(), step.name);
    if (field->is_repeated() && step.index == k_no_index && !path.rest.empty()) {
        return refuse(path.done, fmt::format("a list; say which element: {}[0]", step.name));
    }
    if (const std::string error = oneof_error(**found, field); !error.empty()) {
        return refuse(path.done, error);
    }
    outcome_s outcome = check_index(**found, field, path.done, &step.index);
    return outcome.ok() ? set_or_enter(*found, field, step.index, path) : outcome;
}

}  // namespace

bool is_field_word(std::string_view word) {
    const std::string_view path = word.substr(0, word.find('='));
    return path.size() < word.size() && !path.empty() && std::isalpha(static_cast<unsigned char>(path[0])) &&
           std::ranges::all_of(path, [](unsigned char c) {
               return std::isalnum(c) || c == '_' || c == '.' || c == '[' || c == ']';
           });
}

outcome_s set_field(pb::Message *message, std::string_view word, fit_e fit) {
    return set_field({&message, 1}, word, fit);
}

outcome_s set_field(std::span<pb::Message *const> messages, std::string_view word, fit_e fit) {
    if (!is_field_word(word)) {
        return usage_failure(fmt::format("\"{}\" names no field; give PATH=VALUE, such as id=1", word));
    }
    const size_t equals = word.find('=');
    return set_below(messages, {.done = word.substr(0, 0),
                                .rest = word.substr(0, equals),
                                .value = word.substr(equals + 1),
                                .fit = fit});
}

}  // namespace nyxctl
