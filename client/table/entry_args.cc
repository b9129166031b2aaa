#include "client/table/entry_args.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <cstdint>
#include <optional>

#include "base/nearest_names.h"
#include "client/core/field_value.h"
#include "client/core/fields.h"

namespace pb = google::protobuf;

namespace nyxctl {

const char k_entry_words_help[] =
    R"(An entry is written in words:
  k1=7            a field of the key, also key.k1=7; the others are zero
  mask.k1=255     a field of the mask (ternary tables), also key_mask.k1=255;
                  makes the mask valid
  action=0        the action; without it the only one of the table that has
                  data, else 0
  d1=5            a field of the action's data, also with the name of its
                  message: flow_info_a_data.d1=5
What the dictionary calls fields and values will do, too: dport=80 for k12=80,
proto=tcp for k2=6. Numbers are decimal or 0x and hex digits. Bytes are hex
digits ("00a1ff", "00:a1:ff"), MAC or IPv6 text where the field holds an
address, or "base64:" and base64; missing bytes are zero. A value that does not
fit in its field is refused unless --cut is given. nyxctl explain TABLE shows
the fields.)";

namespace {

std::string full_name(const record_field_s &field) {
    return (field.member ? field.member->name() + "." : "") + field.field->name();
}

bool is_data(const record_field_s *place) { return place && place->part == RECORD_DATA; }

}  // namespace

// Fills one message, each field once.
class entry_columns::row {
 public:
    row(const entry_columns &columns, std::span<const std::string_view> values, pb::Message *message)
        : columns_(columns), layout_(columns.layout_), values_(values), message_(message) {}

    outcome_s fill() {
        if (outcome_s outcome = choose_action(); !outcome.ok()) {
            return outcome;
        }
        for (size_t i = 0; i < values_.size(); i++) {
            if (values_[i].data() == nullptr) continue;
            if (outcome_s outcome = put(columns_.columns_[i], values_[i]); !outcome.ok()) return outcome;
        }
        return {};
    }

 private:
    // By the column for it, by the full name of a data field, or as the only action that has data.
    outcome_s choose_action() {
        if (layout_.data.size() == 1) {
            action_ = action_of(layout_.data.front());
        }
        for (size_t i = 0; i < values_.size(); i++) {
            const auto &targets = columns_.columns_[i].targets;
            const record_field_s *place = targets.front().place;
            if (values_[i].data() == nullptr || !place) {
                continue;
            }
            if (place->part == RECORD_ACTION) {
                outcome_s outcome = set(columns_.columns_[i], targets.front(), values_[i], message_);
                action_ = static_cast<uint8_t>(targets.front().plan.number(*message_));
                gives_action_ = true;
                return outcome;
            }
            if (layout_.data.size() > 1 && is_data(place) && columns_.columns_[i].name == full_name(*place)) {
                action_ = place->action_id;
            }
        }
        return {};
    }

    outcome_s put(const column_s &column, std::string_view value) {
        const auto fits = [&](const target_s &target) {
            return !is_data(target.place) || target.place->action_id == action_;
        };
        const auto target = std::ranges::find_if(column.targets, fits);
        if (target == column.targets.end()) {
            return misplaced(column);
        }
        if (std::ranges::count(given_, target->plan.field)) {
            return usage_failure(
                fmt::format("{}: {} is given twice", column.name, target->plan.field->name()));
        }
        given_.push_back(target->plan.field);
        return set(column, *target, value, holder_of(target->place));
    }

    // A mask makes itself valid, and data brings its action, unless a column says otherwise.
    pb::Message *holder_of(const record_field_s *place) {
        if (!place || !place->member || columns_.is_key_) {
            return message_;
        }
        if (place->member == member_) {
            return holder_;
        }
        if (place->part == RECORD_MASK && !has_value("key_mask_valid")) {
            set_number("key_mask_valid", 1);
        }
        if (place->part == RECORD_DATA && !gives_action_) {
            set_number("action_id", *action_);
        }
        member_ = place->member;
        holder_ = message_->GetReflection()->MutableMessage(message_, member_);
        return holder_;
    }

    bool has_value(std::string_view name) const {
        const auto found = std::ranges::find(columns_.columns_, name, &column_s::name);
        return found != columns_.columns_.end() && values_[found - columns_.columns_.begin()].data();
    }

    void set_number(const char *name, uint32_t number) {
        message_->GetReflection()->SetUInt32(message_, layout_.spec->FindFieldByName(name), number);
    }

    outcome_s set(const column_s &column, const target_s &target, std::string_view value,
                  pb::Message *holder) const {
        if (set_plainly(target.plan, value, holder)) {
            return {};
        }
        const std::string error =
            set_from_text(holder, target.plan.field, 0, value, columns_.cut_ ? fit_e::cut : fit_e::record);
        return error.empty() ? outcome_s() : usage_failure(fmt::format("{}: {}", column.name, error));
    }

    outcome_s misplaced(const column_s &column) const {
        const record_field_s &place = *column.targets.front().place;
        if (column.name == full_name(place)) {
            return usage_failure(
                fmt::format("{}: {} goes with action {}, not with {}; the agent would ignore it", column.name,
                            place.member->name(), place.action_id, *action_));
        }
        const std::string problem = action_ ? fmt::format("action {} has no such data", *action_)
                                            : "data of several actions have this name";
        return usage_failure(
            fmt::format("{}: {}; give action={}", column.name, problem, data_actions_text(layout_)));
    }

    const entry_columns &columns_;
    const table_layout_s &layout_;
    const std::span<const std::string_view> values_;
    pb::Message *const message_;
    std::optional<uint32_t> action_;  // none: not given, and several have data
    bool gives_action_ = false;
    const pb::FieldDescriptor *member_ = nullptr;  // that holder_ is
    pb::Message *holder_ = nullptr;
    std::vector<const pb::FieldDescriptor *> given_;
};

outcome_s entry_columns::set_names(const std::vector<std::string> &names) {
    columns_.clear();
    for (const std::string &name : names) {
        columns_.push_back(find(name));
        if (columns_.back().targets.empty()) {
            return unknown(name);
        }
    }
    return {};
}

entry_columns::column_s entry_columns::find(const std::string &name) const {
    column_s column = {.name = name, .targets = {}};
    if (name == "client_tag" && !is_key_) {
        column.targets.push_back({nullptr, plan_of_field(layout_.spec->FindFieldByName(name))});
    }
    for (const record_field_s &field : layout_.fields) {
        const bool fits = !is_key_ || field.part == RECORD_KEY;
        if (fits && (name == full_name(field) || name == field.short_name())) {
            column.targets.push_back({&field, plan_of_field(field.field)});
        }
    }
    const bool is_known = !column.targets.empty();  // the contract's names win over labels
    for (const record_field_s &field : layout_.fields) {
        const bool fits = !is_known && (!is_key_ || field.part == RECORD_KEY);
        if (fits && !name.empty() && name == field.label()) {
            column.targets.push_back({&field, plan_of_field(field.field)});
        }
    }
    return column;
}

outcome_s entry_columns::unknown(const std::string &name) const {
    std::vector<std::string> names;
    for (const record_field_s &field : layout_.fields) {
        if (is_key_ && field.part != RECORD_KEY) continue;
        names.push_back(field.short_name());
        if (const std::string label = field.label(); !label.empty()) names.push_back(label);
    }
    return usage_failure(fmt::format("{}: no such field in the {} of {}{}; see nyxctl explain {}", name,
                                     is_key_ ? "key" : "entries", layout_.name,
                                     base::nearest_names_text(name, names), layout_.name));
}

outcome_s entry_columns::fill(std::span<const std::string_view> values, pb::Message *message) const {
    return row(*this, values, message).fill();
}

namespace {

outcome_s fill_words(entry_columns columns, const std::vector<std::string> &words, pb::Message *message) {
    std::vector<std::string> names;
    std::vector<std::string_view> values;
    for (const std::string_view word : words) {
        const size_t equal = word.find('=');
        if (equal == 0 || equal == word.npos) {
            return usage_failure(fmt::format("\"{}\" is not FIELD=VALUE, such as k1=7", word));
        }
        names.emplace_back(word.substr(0, equal));
        values.push_back(word.substr(equal + 1));
    }
    outcome_s outcome = columns.set_names(names);
    return outcome.ok() ? columns.fill(values, message) : outcome;
}

}  // namespace

outcome_s fill_spec(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                    pb::Message *spec) {
    return fill_words(entry_columns(layout, false, cut), words, spec);
}

outcome_s fill_key(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                   pb::Message *key) {
    return fill_words(entry_columns(layout, true, cut), words, key);
}

}  // namespace nyxctl
