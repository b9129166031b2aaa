#include "client/table/entry_args.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>

#include "base/nearest_names.h"
#include "client/core/field_value.h"
#include "client/core/fields.h"

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
        return usage_failure(fmt::format("\"{}\" is not FIELD=VALUE, such as k1=7", text));
    }
    *word = {.name = text.substr(0, equal), .value = text.substr(equal + 1)};
    return {};
}

std::string full_name(const record_field_s &field) {
    return (field.member ? field.member->name() + "." : "") + field.field->name();
}

outcome_s set_value(const word_s &word, const pb::FieldDescriptor *field, fit_e fit, pb::Message *message) {
    const std::string error = set_from_text(message, field, 0, word.value, fit);
    return error.empty() ? outcome_s() : usage_failure(fmt::format("{}: {}", word.name, error));
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
                const auto spec = new_message(layout_.spec);  // takes the number only
                const auto *field = layout_.spec->FindFieldByName("action_id");
                outcome_s outcome = set_value(word, field, fit_e::cut, spec.get());
                action_ = static_cast<uint8_t>(spec->GetReflection()->GetUInt32(*spec, field));
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
            return usage_failure(
                fmt::format("{}: {} goes with action {}, not with {}; the agent would ignore it", word.name,
                            found->member->name(), found->action_id, *action_));
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
            return usage_failure(fmt::format("{}: {} is given twice", word.name, field->name()));
        }
        return set_value(word, field, cut_ ? fit_e::cut : fit_e::record, holder);
    }

    outcome_s unknown(const word_s &word) const {
        if (outcome_s outcome = misplaced_data(word); !outcome.ok()) {
            return outcome;
        }
        std::vector<std::string> names;
        for (const record_field_s &field : layout_.fields) {
            if (fits(field, field.short_name())) names.push_back(field.short_name());
        }
        return usage_failure(fmt::format("{}: no such field in the {} of {}{}; see nyxctl explain {}",
                                         word.name, key_only_ ? "key" : "entries", layout_.name,
                                         base::nearest_names_text(word.name, names), layout_.name));
    }

    // A plain dN that another action has, or that several have.
    outcome_s misplaced_data(const word_s &word) const {
        const bool known = std::ranges::any_of(layout_.fields, [&](const record_field_s &field) {
            return field.part == RECORD_DATA && field.short_name() == word.name;
        });
        if (!known || key_only_) {
            return {};
        }
        const std::string problem = action_ ? fmt::format("action {} has no such data", *action_)
                                            : "data of several actions have this name";
        return usage_failure(
            fmt::format("{}: {}; give action={}", word.name, problem, data_actions_text(layout_)));
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
