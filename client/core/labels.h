// What users call the things of the contract: names, units and limits of fields, texts of their values. The contract
// leaves these meanings to the platform, whose maker writes them into TOML files:
//
//   ["nyx.SystemTemperature.value_1"]     a field
//   name = "core temperature"
//   unit = "°C"
//   critical = 105
//   ["nyx.PortStats.mac_stats[17]"]       an element of a list: of numbers with values by its number, else by its index
//   name = "rx frames"
//   ["nyx.PortLinkState"]                 an enumeration, whose enumerators are nyx.PortLinkState.PORT_LINK_STATE_2
//   values = { "1" = "down", "2" = "up" }
//   ["flow.k1"]                           a field of a table: of its key and mask; also flow.mask.k1, and flow.d1 or
//   name = "source"                       flow.MEMBER.d1 for the data of all actions or of one
//
// Nothing is opened before the first lookup. Lookups may come from any thread.

#pragma once

#include <google/protobuf/descriptor.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/core/value.h"

namespace nyxctl {

// In the units that people see. A plain number in the file is `above`.
struct limit_s {
    std::optional<double> above;
    std::optional<double> below;

    bool passed(double shown) const { return (above && shown > *above) || (below && shown < *below); }
};

// What an entry says; all of it is optional.
struct label_s {
    std::string name;
    std::string unit;
    std::string help;
    std::optional<double> scale;  // what people see is the number times this
    std::optional<bool> counter;  // whether it counts events
    std::optional<bool>
        is_short;  // whether views show it in preference to others, or only when asked for more
    limit_s warn;
    limit_s critical;
    std::map<std::string, std::string, std::less<>> values;  // texts by number, or by the enumerator's name

    double shown(double number) const { return number * scale.value_or(1); }
};

// The entries of some files.
class label_book {
 public:
    struct key_s {
        std::string key;    // as the file has it
        std::string place;  // "FILE:LINE"
    };

    // Adds the entries of a TOML text. What an entry says replaces what others said of the same thing, member by member.
    // Returns what is wrong, as "FILE:LINE: what"; the rest is added, but nothing of a text that is not TOML.
    std::vector<std::string> add(std::string_view toml, const std::string &file);

    // By the full name of a field ("[17]" after it for an element), an enumeration or an enumerator; null without one.
    const label_s *find(const std::string &full_name) const;

    bool empty() const { return labels_.empty(); }
    const std::vector<key_s> &keys() const { return keys_; }

 private:
    std::unordered_map<std::string, label_s> labels_;
    std::vector<key_s> keys_;
};

// The full names that the key of an entry means: those of the fields for "flow.k1", any other key itself.
std::vector<std::string> label_targets(const std::string &key);

// Where labels() looks: the *.toml of folders, in alphabetical order, and files. Later ones win. To be called before the
// first lookup.
void use_labels(std::vector<std::string> folders_and_files);

// The dictionary of this program, empty without use_labels(). What could not be read is reported by labels_problems().
const label_book &labels();
std::vector<std::string> labels_problems();

// The label of a field, or of the element of a list with that number or index; null without one.
const label_s *label_of(const google::protobuf::FieldDescriptor *field);
const label_s *label_of(const google::protobuf::FieldDescriptor *field, uint64_t element);

// The text of a value by the label's values, or with its scale and unit: "up", "58 °C". "" when it has none of these.
std::string label_text(const label_s &label, const value_s &value);

// What the dictionary calls an enumerator as a value of the field; "" without one.
std::string label_text(const google::protobuf::FieldDescriptor *field,
                       const google::protobuf::EnumValueDescriptor *enumerator);

// The value of a field, or of the element of a list with that number, with what its label says: its text, and that it
// counts. Without a label, the value itself.
value_s labelled(value_s value, const google::protobuf::FieldDescriptor *field,
                 std::optional<uint64_t> element = {});

// The other way, for what people write: the field of the type whose label is that word, or null; and the number or
// enumerator whose text that is, or else the text itself.
const google::protobuf::FieldDescriptor *labelled_field(const google::protobuf::Descriptor *type,
                                                        std::string_view word);
std::string labelled_number(const google::protobuf::FieldDescriptor *field, std::string_view text);

// What the dictionary says of the fields of a message or the values of an enumeration, as comments for its definition;
// "" if it says nothing.
std::string label_comments(const std::string &full_name);

// The labels of a type's fields, as words.
std::vector<std::string> field_labels(const google::protobuf::Descriptor *type);

// The name that people read: of the label, or else of the contract.
std::string label_name(const google::protobuf::FieldDescriptor *field);

// The name as one word, which command lines and JSON take in place of the contract's: "rx_frames". "" without a name.
std::string label_word(const label_s *label);
std::string label_word(std::string_view name);

}  // namespace nyxctl
