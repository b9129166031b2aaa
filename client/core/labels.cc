#include "client/core/labels.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <mutex>

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
        const bool is_meant =
            member.empty() ? !is_mask : member == field->name() || (is_mask && member == "mask");
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

std::string label_text(const label_s &label, uint64_t number) {
    const auto text = label.values.find(std::to_string(number));
    if (text != label.values.end()) {
        return text->second;
    }
    if (label.unit.empty() && !label.scale) {
        return {};
    }
    const auto shown =
        label.scale ? fmt::format("{}", label.shown(static_cast<double>(number))) : std::to_string(number);
    return label.unit.empty() ? shown : fmt::format("{} {}", shown, label.unit);
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

std::string label_word(const label_s *label) {
    std::string word;
    for (const unsigned char c : label ? label->name : "") {
        const bool is_part = std::isalnum(c) || c >= 0x80;
        if (is_part || (!word.empty() && !word.ends_with('_'))) {
            word += is_part ? static_cast<char>(std::tolower(c)) : '_';
        }
    }
    word.erase(word.find_last_not_of('_') + 1);
    return word;
}

}  // namespace nyxctl
