#include "tests/table_layouts.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace test {

namespace {

const FieldDescriptor *field(const Message &message, const std::string &name) {
    const auto *found = message.GetDescriptor()->FindFieldByName(name);
    if (!found) {
        throw std::runtime_error(message.GetTypeName() + " has no " + name);
    }
    return found;
}

void set_bytes(Message *message, const std::string &name, const std::string &value) {
    const auto *member = field(*message, name);
    if (member->type() != FieldDescriptor::TYPE_BYTES) {
        throw std::runtime_error(member->full_name() + " is not a bytes field");
    }
    message->GetReflection()->SetString(message, member, value);
}

Message *add_member(Message *message, const std::string &name) {
    return message->GetReflection()->AddMessage(message, field(*message, name));
}

// NAME@OFFSET:WIDTH, where b before the width means bytes and q means uint64.
field_layout_s parse_field(const std::string &word) {
    const size_t at = word.find('@');
    const size_t colon = word.find(':');
    const char type = word.at(colon + 1);
    const size_t width = colon + (type == 'b' || type == 'q' ? 2 : 1);
    return {.name = word.substr(0, at),
            .offset = std::stoul(word.substr(at + 1)),
            .width = std::stoul(word.substr(width)),
            .type = type == 'b'   ? FieldDescriptor::TYPE_BYTES
                    : type == 'q' ? FieldDescriptor::TYPE_UINT64
                                  : FieldDescriptor::TYPE_UINT32};
}

std::istringstream read_words(const std::string &path) {
    std::ifstream file(path);
    std::string words;
    for (std::string line; std::getline(file, line);) {
        words.append(line, 0, line.find('#')).append("\n");
    }
    if (words.empty()) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::istringstream(words);
}

void parse_table(std::istringstream *words, std::vector<table_layout_s> *tables) {
    table_layout_s table{};
    table.number = tables->size();
    std::string kind;
    *words >> table.name >> kind >> table.record_size >> table.key_size;
    table.ternary = kind == "ternary";
    tables->push_back(table);
}

// Returns the list that takes the fields which follow.
std::vector<field_layout_s> *parse_part(const std::string &word, std::istringstream *words,
                                        table_layout_s *table) {
    if (word == "key") {
        return &table->key;
    }
    if (word == "mask") {
        *words >> table->mask_flag_offset;
        return &table->mask;
    }
    if (word != "action") {
        throw std::runtime_error("table listing: unknown word " + word);
    }
    auto &action = table->actions.emplace_back();
    *words >> action.id >> action.member >> action.number >> action.message;
    return &action.fields;
}

std::vector<table_layout_s> parse_tables(std::istringstream words) {
    std::vector<table_layout_s> tables;
    std::vector<field_layout_s> *fields = nullptr;
    for (std::string word; words >> word;) {
        if (word == "table") {
            parse_table(&words, &tables);
        } else if (word.find('@') == word.npos) {
            fields = parse_part(word, &words, &tables.back());
        } else {
            fields->push_back(parse_field(word));
        }
    }
    return tables;
}

uint64_t little_endian(const uint8_t *bytes, size_t width) {
    uint64_t number = 0;
    for (size_t i = width; i > 0; i--) {
        number = number << 8 | bytes[i - 1];
    }
    return number;
}

void put_bytes(Message *message, const field_layout_s &layout, fit_e fit, uint8_t *rec) {
    if (fit == fit_e::FIT_TOO_SHORT) {
        std::fill(rec + layout.width / 2, rec + layout.width, 0);
    }
    std::string value(rec, rec + (fit == fit_e::FIT_TOO_SHORT ? layout.width / 2 : layout.width));
    if (fit == fit_e::FIT_TOO_WIDE) {
        value += "\xee\xed\xec\xeb";
    }
    set_bytes(message, layout.name, value);
}

void put_number(Message *message, const field_layout_s &layout, fit_e fit, const uint8_t *rec) {
    uint64_t value = little_endian(rec, layout.width);
    if (fit == fit_e::FIT_TOO_WIDE && layout.width < 4) {
        value |= uint32_t{0xfefdfcfb} << 8 * layout.width;
    }
    set_number(message, layout.name, value);
}

// Makes up values for fields, in the record and in the message.
void put_fields(Message *message, const std::vector<field_layout_s> &fields, uint8_t *next_byte, fit_e fit,
                record *rec) {
    for (const auto &layout : fields) {
        uint8_t *place = rec->data() + layout.offset;
        std::generate_n(place, layout.width, [next_byte] { return (*next_byte)++; });
        layout.type == FieldDescriptor::TYPE_BYTES ? put_bytes(message, layout, fit, place)
                                                   : put_number(message, layout, fit, place);
    }
}

void take_fields(Message *message, const std::vector<field_layout_s> &fields, const record &rec) {
    for (const auto &layout : fields) {
        const uint8_t *place = rec.data() + layout.offset;
        if (layout.type == FieldDescriptor::TYPE_BYTES) {
            set_bytes(message, layout.name, std::string(place, place + layout.width));
        } else {
            set_number(message, layout.name, little_endian(place, layout.width));
        }
    }
}

void put_data(const table_layout_s &layout, uint8_t *next_byte, fit_e fit, entry_s *entry) {
    if (layout.actions.empty()) {
        return;
    }
    const auto *action = layout.action(entry->record[0]);
    record unused(layout.record_size);
    const auto &given = action ? *action : layout.actions.front();
    put_fields(mutable_member(entry->spec.get(), given.member), given.fields, next_byte, fit,
               action ? &entry->record : &unused);
}

}  // namespace

const action_layout_s *table_layout_s::action(uint32_t id) const {
    const auto found = std::ranges::find(actions, id, &action_layout_s::id);
    return found == actions.end() ? nullptr : &*found;
}

const std::vector<table_layout_s> &table_layouts() {
    static const auto tables = parse_tables(read_words(NYX_TEST_DATA "/table_layouts.txt"));
    return tables;
}

const table_layout_s &table_layout(const std::string &name) {
    const auto found = std::ranges::find(table_layouts(), name, &table_layout_s::name);
    if (found == table_layouts().end()) {
        throw std::runtime_error("no layout of table " + name);
    }
    return *found;
}

entry_s make_entry(const table_layout_s &layout, uint32_t action_id, uint8_t key_byte, uint8_t data_byte,
                   fit_e fit) {
    entry_s entry{new_message(layout.name + "Spec"), record(layout.record_size)};
    set_number(entry.spec.get(), "action_id", fit == fit_e::FIT_TOO_WIDE ? 256 + action_id : action_id);
    entry.record[0] = static_cast<uint8_t>(action_id);
    put_fields(mutable_member(entry.spec.get(), "key"), layout.key, &key_byte, fit, &entry.record);
    if (layout.ternary) {
        set_number(entry.spec.get(), "key_mask_valid", 1);
        entry.record[layout.mask_flag_offset] = 1;
        put_fields(mutable_member(entry.spec.get(), "key_mask"), layout.mask, &data_byte, fit, &entry.record);
    }
    put_data(layout, &data_byte, fit, &entry);
    return entry;
}

std::shared_ptr<Message> read_record(const table_layout_s &layout, const record &rec) {
    auto spec = new_message(layout.name + "Spec");
    set_number(spec.get(), "action_id", rec[0]);
    take_fields(mutable_member(spec.get(), "key"), layout.key, rec);
    if (layout.ternary && rec[layout.mask_flag_offset]) {
        set_number(spec.get(), "key_mask_valid", 1);
        take_fields(mutable_member(spec.get(), "key_mask"), layout.mask, rec);
    }
    if (const auto *action = layout.action(rec[0])) {
        take_fields(mutable_member(spec.get(), action->member), action->fields, rec);
    }
    return spec;
}

std::shared_ptr<Message> write_request(const table_layout_s &layout, const std::vector<entry_s> &entries) {
    auto req = new_message(layout.name + "Request");
    for (const auto &entry : entries) {
        add_member(req.get(), "request")->CopyFrom(*entry.spec);
    }
    return req;
}

std::shared_ptr<Message> keys_request(const table_layout_s &layout, const std::string &operation,
                                      const std::vector<entry_s> &entries) {
    auto req = new_message(layout.name + operation + "Request");
    for (const auto &entry : entries) {
        add_member(req.get(), "key")->CopyFrom(*mutable_member(entry.spec.get(), "key"));
    }
    return req;
}

std::shared_ptr<Message> response(const table_layout_s &layout, const std::string &operation,
                                  int api_status) {
    auto rsp = new_message(layout.name + operation + "Response");
    rsp->GetReflection()->SetEnumValue(rsp.get(), field(*rsp, "api_status"), api_status);
    return rsp;
}

std::shared_ptr<Message> get_response(const table_layout_s &layout, const std::vector<entry_s> &entries,
                                      int api_status) {
    auto rsp = response(layout, "Get", api_status);
    for (const auto &entry : entries) {
        auto *answer = add_member(rsp.get(), "response");
        mutable_member(answer, "spec")->CopyFrom(*read_record(layout, entry.record));
    }
    return rsp;
}

std::shared_ptr<Message> new_message(const std::string &name) {
    const auto *type =
        google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName("nyx." + name);
    if (!type) {
        throw std::runtime_error("no message nyx." + name);
    }
    auto *factory = google::protobuf::MessageFactory::generated_factory();
    return std::shared_ptr<Message>(factory->GetPrototype(type)->New());
}

Message *mutable_member(Message *message, const std::string &name) {
    return message->GetReflection()->MutableMessage(message, field(*message, name));
}

void set_number(Message *message, const std::string &name, uint64_t value) {
    const auto *reflection = message->GetReflection();
    const auto *member = field(*message, name);
    if (member->type() == FieldDescriptor::TYPE_UINT64) {
        reflection->SetUInt64(message, member, value);
    } else if (member->type() == FieldDescriptor::TYPE_UINT32) {
        reflection->SetUInt32(message, member, static_cast<uint32_t>(value));
    } else {
        throw std::runtime_error(member->full_name() + " is not an unsigned number");
    }
}

}  // namespace test
