#include "client/core/labels.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <utility>

#include "base/text.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_file_size_max = size_t{16} << 20;

struct dictionary_s {
    std::once_flag loaded;
    std::vector<std::string> sources;
    std::vector<std::string> problems;
    label_book book;
};

dictionary_s &dictionary() {
    static dictionary_s only;
    return only;
}

// A folder that does not exist is empty.
std::vector<std::string> files_at(const std::string &source) {
    std::error_code error;
    if (!source.ends_with('/') && !std::filesystem::is_directory(source, error)) {
        return {source};
    }
    std::vector<std::string> files;
    for (const auto &file : std::filesystem::directory_iterator(source, error)) {
        if (file.path().extension() == ".toml") {
            files.push_back(file.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

std::vector<std::string> add_file(const std::string &path, label_book *book) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char part[1 << 14];
    while (file.read(part, sizeof part), file.gcount() > 0) {
        text.append(part, file.gcount());
        if (text.size() > k_file_size_max) {
            return {path + ": longer than 16 MiB"};
        }
    }
    return file.eof() ? book->add(text, path) : std::vector{path + ": cannot be read"};
}

void load(dictionary_s *all) {
    for (const std::string &source : all->sources) {
        for (const std::string &file : files_at(source)) {
            const auto wrong = add_file(file, &all->book);
            all->problems.insert(all->problems.end(), wrong.begin(), wrong.end());
        }
    }
}

// "spec" is the table's, `rest` "k1", "mask.k1", "d1" or "MEMBER.d1".
std::vector<std::string> table_targets(const pb::Descriptor *spec, std::string_view rest) {
    const size_t dot = rest.find('.');
    const std::string member(rest.substr(0, dot == rest.npos ? 0 : dot));
    const std::string name(rest.substr(dot == rest.npos ? 0 : dot + 1));
    std::vector<std::string> targets;
    for (int i = 0; i < spec->field_count(); i++) {
        const pb::FieldDescriptor *field = spec->field(i);
        const bool is_mask = field->name() == "key_mask";
        const bool is_meant = member.empty() || member == field->name() || (is_mask && member == "mask");
        const auto *below = field->message_type() ? field->message_type()->FindFieldByName(name) : nullptr;
        if (below && is_meant) {
            targets.push_back(below->full_name());
        }
    }
    if (const auto *own = spec->FindFieldByName(name); own && member.empty()) {
        targets.push_back(own->full_name());
    }
    return targets;
}

// " core temperature [°C]: 1 up, 2 down; what else there is to know"
std::string summary(const label_s &label) {
    std::string text = label.name.empty() ? "" : " " + label.name;
    text += label.unit.empty() ? "" : fmt::format(" [{}]", label.unit);
    const char *gap = ": ";
    for (const auto &[number, shown] : label.values) {
        text += fmt::format("{}{} {}", std::exchange(gap, ", "), number, shown);
    }
    return text + (label.help.empty() ? "" : "; " + label.help);
}

}  // namespace

std::vector<std::string> label_targets(const std::string &key) {
    const std::string table = key.substr(0, key.find('.'));
    const auto *spec =
        table.size() < key.size() && table != "nyx"
            ? pb::DescriptorPool::generated_pool()->FindMessageTypeByName("nyx." + table + "Spec")
            : nullptr;
    std::vector<std::string> targets;
    if (spec) {
        targets = table_targets(spec, std::string_view(key).substr(table.size() + 1));
    }
    return targets.empty() ? std::vector{key} : targets;
}

const label_s *label_book::find(const std::string &full_name) const {
    const auto found = labels_.find(full_name);
    return found == labels_.end() ? nullptr : &found->second;
}

void use_labels(std::vector<std::string> folders_and_files) {
    dictionary().sources = std::move(folders_and_files);
}

const label_book &labels() {
    dictionary_s &all = dictionary();
    std::call_once(all.loaded, load, &all);
    return all.book;
}

std::vector<std::string> labels_problems() { return dictionary().problems; }

const label_s *label_of(const pb::FieldDescriptor *field) {
    return labels().empty() ? nullptr : labels().find(field->full_name());
}

const label_s *label_of(const pb::FieldDescriptor *field, uint64_t element) {
    return labels().empty() ? nullptr : labels().find(fmt::format("{}[{}]", field->full_name(), element));
}

std::string label_text(const label_s &label, const value_s &value) {
    const bool *truth = value.as<bool>();
    const std::string plain = truth ? (*truth ? "1" : "0") : cell_text(value);
    if (const auto text = label.values.find(plain); text != label.values.end()) {
        return text->second;
    }
    if (!value.is_number() || (label.unit.empty() && !label.scale)) {
        return {};
    }
    const std::string number = label.scale ? fmt::format("{:.6g}", label.shown(std::stod(plain))) : plain;
    return label.unit.empty() ? number : fmt::format("{} {}", number, label.unit);
}

std::string label_text(const pb::FieldDescriptor *field, const pb::EnumValueDescriptor *enumerator) {
    if (labels().empty()) {
        return {};
    }
    for (const std::string *type : {&field->full_name(), &enumerator->type()->full_name()}) {
        const label_s *label = labels().find(*type);
        for (const std::string &name : {enumerator->name(), std::to_string(enumerator->number())}) {
            if (label && label->values.contains(name)) {
                return label->values.find(name)->second;
            }
        }
    }
    const label_s *own = labels().find(enumerator->type()->full_name() + "." + enumerator->name());
    return own ? own->name : "";
}

value_s labelled(value_s value, const pb::FieldDescriptor *field, std::optional<uint64_t> element) {
    if (labels().empty()) {
        return value;
    }
    if (const auto *list = value.as<value_s::list_t>()) {
        value_s::list_t texts;
        for (const value_s &one : *list) {
            texts.push_back(labelled(one, field, texts.size()));
        }
        return texts;
    }
    if (const auto *enumerator = value.as<enumerator_s>()) {
        const auto *known = field->enum_type()->FindValueByName(enumerator->name);
        return known ? value.shown_as(label_text(field, known)) : value;
    }
    const label_s *own = element ? label_of(field, *element) : nullptr;
    const label_s *label = own ? own : label_of(field);
    if (!label) {
        return value;
    }
    const std::string text = label_text(*label, value);
    const auto *number = value.as<uint64_t>();
    const bool is_narrow = field->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT32;
    return (number && label->counter.value_or(false) ? counter_s{*number, is_narrow ? 32U : 64U} : value)
        .shown_as(text);
}

const pb::FieldDescriptor *labelled_field(const pb::Descriptor *type, std::string_view word) {
    for (int i = 0; !labels().empty() && !word.empty() && i < type->field_count(); i++) {
        if (label_word(label_of(type->field(i))) == word) {
            return type->field(i);
        }
    }
    return nullptr;
}

std::string label_comments(const std::string &full_name) {
    std::set<std::string> targets;
    for (const auto &[key, place] : labels().keys()) {
        for (const std::string &target : label_targets(key)) {
            if (target == full_name || target.starts_with(full_name + ".")) {
                targets.insert(target);
            }
        }
    }
    std::string text;
    for (const std::string &target : targets) {
        const std::string field = target.substr(std::min(full_name.size() + 1, target.size()));
        const std::string line = field + summary(*labels().find(target));
        text += line == field ? "" : base::without_controls("//   " + line) + "\n";
    }
    return text.empty() ? "" : "// Labels:\n" + text;
}

std::vector<std::string> field_labels(const pb::Descriptor *type) {
    std::vector<std::string> words;
    for (int i = 0; !labels().empty() && i < type->field_count(); i++) {
        const std::string word = label_word(label_of(type->field(i)));
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return words;
}

std::string labelled_number(const pb::FieldDescriptor *field, std::string_view text) {
    const label_s *label = label_of(field);
    for (const auto &[number, shown] : label ? label->values : label_s().values) {
        if (!text.empty() && label_word(shown) == label_word(text)) {
            return number;
        }
    }
    return std::string(text);
}

std::string label_name(const pb::FieldDescriptor *field) {
    const label_s *label = label_of(field);
    return label && !label->name.empty() ? label->name : field->name();
}

std::string label_word(const label_s *label) { return label ? label_word(label->name) : ""; }

std::string label_word(std::string_view name) {
    std::string word;
    for (const unsigned char c : name) {
        const bool is_part = std::isalnum(c) || c >= 0x80;
        if (is_part || (!word.empty() && !word.ends_with('_'))) {
            word += is_part ? static_cast<char>(std::tolower(c)) : '_';
        }
    }
    word.erase(word.find_last_not_of('_') + 1);
    return word;
}

}  // namespace nyxctl
