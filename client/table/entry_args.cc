#include "client/table/entry_args.h"

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <set>
#include <string_view>

#include "client/core/bytes_text.h"
#include "client/core/nearest.h"
#include "client/core/number_text.h"
#include "client/core/record_width.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {

const char k_entry_words_help[] =
    R"(An entry is written in words:
  k1=7            a field of the key, also key.k1=7; a key field that is not given is zero
  mask.k1=255     a field of the mask (ternary tables), also key_mask.k1=255; makes the mask valid
  action=0        the action; when it is left out, the only action of the table that has data, else 0
  d1=5            a field of the action's data, also with the name of its message: flow_info_a_data.d1=5
Numbers are decimal or 0x and hex digits. Bytes are hex digits ("00a1ff", "00:a1:ff"), MAC or IPv6 text
where the field holds an address, or "base64:" and base64; missing bytes are zero. A value that does not
fit in its field is refused unless --cut is given. nyxctl explain TABLE shows the fields.)";

namespace {

struct word_s {
    std::string name;
    std::string value;
};

outcome_s split(const std::string &text, word_s *word) {
    const size_t equal = text.find('=');
    if (equal == 0 || equal == text.npos) {
        return usage_failure("\"" + text + "\" is no FIELD=VALUE such as k1=7");
    }
    *word = {.name = text.substr(0, equal), .value = text.substr(equal + 1)};
    return {};
}

std::string full_name(const record_field_s &field) {
    return (field.member ? field.member->name() + "." : "") + field.field->name();
}

std::optional<uint64_t> parse_number(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hex ? 2 : 0);
    uint64_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
    const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    return whole ? std::optional(number) : std::nullopt;
}

outcome_s set_bytes(const word_s &word, const pb::FieldDescriptor *field, bool cut, pb::Message *message) {
    std::string bytes;
    std::string error;
    if (!bytes_from_text(word.value, field->options().GetExtension(types::bytes_text), &bytes, &error)) {
        return usage_failure(word.name + ": " + error);
    }
    if (const auto wide = width_error(field, std::string_view(bytes)); wide && !cut) {
        return usage_failure(word.name + ": " + *wide);
    }
    message->GetReflection()->SetString(message, field, bytes);
    return {};
}

outcome_s read_number(const word_s &word, const pb::FieldDescriptor *field, uint64_t *number) {
    const auto form = field->options().GetExtension(types::number_text);
    if (is_number_text(word.value, form)) {
        std::string error;
        return number_from_text(word.value, form, number, &error) ? outcome_s()
                                                                  : usage_failure(word.name + ": " + error);
    }
    const auto parsed = parse_number(word.value);
    if (!parsed) {
        return usage_failure(word.name + ": \"" + word.value + "\" is no number; give 0 to " +
                             std::to_string(largest_number(field)) + " in decimal, or 0x and hex digits");
    }
    *number = *parsed;
    return {};
}

// The message may be narrower than the number; so is the record then, which keeps the same low-order bytes.
outcome_s set_number(const word_s &word, const pb::FieldDescriptor *field, bool cut, pb::Message *message) {
    uint64_t number = 0;
    if (outcome_s outcome = read_number(word, field, &number); !outcome.ok()) {
        return outcome;
    }
    if (const auto wide = width_error(field, number); wide && !cut) {
        return usage_failure(word.name + ": " + *wide);
    }
    if (field->type() == pb::FieldDescriptor::TYPE_UINT64) {
        message->GetReflection()->SetUInt64(message, field, number);
    } else {
        message->GetReflection()->SetUInt32(message, field, static_cast<uint32_t>(number));
    }
    return {};
}

outcome_s set_value(const word_s &word, const pb::FieldDescriptor *field, bool cut, pb::Message *message) {
    return field->type() == pb::FieldDescriptor::TYPE_BYTES ? set_bytes(word, field, cut, message)
                                                            : set_number(word, field, cut, message);
}

// Fills one message out of words, each field once.
class entry_words {
 public:
    entry_words(const table_layout_s &layout, bool cut) : layout_(layout), cut_(cut) {}

    outcome_s fill(const std::vector<std::string> &texts, bool key_only, pb::Message *message) {
        key_only_ = key_only;
        std::vector<word_s> words(texts.size());
        for (size_t i = 0; i < texts.size(); i++) {
            if (outcome_s outcome = split(texts[i], &words[i]); !outcome.ok()) return outcome;
        }
        if (outcome_s outcome = choose_action(words); !outcome.ok()) {
            return outcome;
        }
        for (const word_s &word : words) {
            if (outcome_s outcome = put(word, message); !outcome.ok()) return outcome;
        }
        return {};
    }

 private:
    // By the word for it, by the full name of a data field, or as the only action that has data.
    outcome_s choose_action(const std::vector<word_s> &words) {
        if (layout_.data.size() == 1) {
            action_ = action_of(layout_.data.front());
        }
        for (const word_s &word : words) {
            if (word.name == "action" || word.name == "action_id") {
                uint64_t number = 0;
                outcome_s outcome = read_number(word, layout_.spec->FindFieldByName("action_id"), &number);
                action_ = static_cast<uint8_t>(number);
                return outcome;
            }
            if (const auto *member = member_of(word.name)) {
                action_ = action_of(member);
            }
        }
        return {};
    }

    const pb::FieldDescriptor *member_of(const std::string &name) const {
        const std::string prefix = name.substr(0, std::min(name.find('.'), name.size()));
        const auto found = std::ranges::find(layout_.data, prefix, [](const auto *m) { return m->name(); });
        return found == layout_.data.end() ? nullptr : *found;
    }

    bool fits(const record_field_s &field, const std::string &name) const {
        if (key_only_ && field.part != RECORD_KEY) return false;
        const bool other_action = field.part == RECORD_DATA && field.action_id != action_;
        return name == full_name(field) || (name == field.short_name() && !other_action);
    }

    outcome_s put(const word_s &word, pb::Message *message) {
        if (word.name == "client_tag" && !key_only_) {
            return put_once(word, layout_.spec->FindFieldByName(word.name), message);
        }
        const auto found =
            std::ranges::find_if(layout_.fields, [&](const auto &field) { return fits(field, word.name); });
        if (found == layout_.fields.end()) {
            return unknown(word);
        }
        if (found->part == RECORD_DATA && found->action_id != action_) {
            return usage_failure(word.name + ": " + found->member->name() + " goes with action " +
                                 std::to_string(found->action_id) + ", not with " + std::to_string(*action_) +
                                 "; the agent would ignore it");
        }
        return put_field(word, *found, message);
    }

    // A mask makes itself valid, and data brings its action, unless words say otherwise.
    outcome_s put_field(const word_s &word, const record_field_s &field, pb::Message *message) {
        if (field.part == RECORD_MASK) {
            set_unless_given("key_mask_valid", 1, message);
        }
        if (field.part == RECORD_DATA) {
            set_unless_given("action_id", *action_, message);
        }
        const bool below = field.member && !key_only_;
        return put_once(word, field.field,
                        below ? message->GetReflection()->MutableMessage(message, field.member) : message);
    }

    void set_unless_given(const std::string &name, uint32_t number, pb::Message *spec) const {
        const auto *field = layout_.spec->FindFieldByName(name);
        if (!given_.contains(field)) {
            spec->GetReflection()->SetUInt32(spec, field, number);
        }
    }

    outcome_s put_once(const word_s &word, const pb::FieldDescriptor *field, pb::Message *holder) {
        if (!given_.insert(field).second) {
            return usage_failure(word.name + ": " + field->name() + " is given twice");
        }
        return set_value(word, field, cut_, holder);
    }

    outcome_s unknown(const word_s &word) const {
        if (outcome_s outcome = misplaced_data(word); !outcome.ok()) {
            return outcome;
        }
        std::vector<std::string> names;
        for (const record_field_s &field : layout_.fields) {
            if (fits(field, field.short_name())) names.push_back(field.short_name());
        }
        return usage_failure(word.name + ": no such field in the " + (key_only_ ? "key" : "entries") +
                             " of " + layout_.name + nearest_names_text(word.name, names) +
                             "; see nyxctl explain " + layout_.name);
    }

    // A plain dN that another action has, or that several have.
    outcome_s misplaced_data(const word_s &word) const {
        const bool known = std::ranges::any_of(layout_.fields, [&](const record_field_s &field) {
            return field.part == RECORD_DATA && field.short_name() == word.name;
        });
        if (!known || key_only_) {
            return {};
        }
        const std::string problem = action_ ? "action " + std::to_string(*action_) + " has no such data"
                                            : "data of several actions have this name";
        return usage_failure(word.name + ": " + problem + "; give action=" + data_actions_text(layout_));
    }

    const table_layout_s &layout_;
    const bool cut_;
    bool key_only_ = false;
    std::optional<uint32_t> action_;  // none: not given, and several have data
    std::set<const pb::FieldDescriptor *> given_;
};

}  // namespace

outcome_s fill_spec(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                    pb::Message *spec) {
    return entry_words(layout, cut).fill(words, false, spec);
}

outcome_s fill_key(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                   pb::Message *key) {
    return entry_words(layout, cut).fill(words, true, key);
}

}  // namespace nyxctl
