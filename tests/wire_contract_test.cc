// The messages, enumerations and services of the message library, against data/wire_contract.txt.

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "proto/proto_files.h"
#include "tests/table_layouts.h"

namespace {

namespace pb = google::protobuf;

// "message nyx.Port" and the like, with what it consists of: " spec=1:nyx.PortSpec status=2:nyx.PortStatus".
using contract_s = std::map<std::string, std::string>;

std::string type_of(const pb::FieldDescriptor &field) {
    return field.message_type() ? field.message_type()->full_name()
           : field.enum_type()  ? field.enum_type()->full_name()
                                : field.type_name();
}

std::string text_of(const pb::FieldDescriptor &field) {
    std::string text = " " + field.name() + "=" + std::to_string(field.number()) + ":" + type_of(field);
    text += field.is_repeated() ? "*" : field.has_optional_keyword() ? "?" : "";
    return field.real_containing_oneof() ? text + "|" + field.real_containing_oneof()->name() : text;
}

void add(const pb::EnumDescriptor &type, contract_s *contract) {
    auto &text = (*contract)["enum " + type.full_name()];
    for (int i = 0; i < type.value_count(); i++) {
        text += " " + type.value(i)->name() + "=" + std::to_string(type.value(i)->number());
    }
}

void add(const pb::Descriptor &type, contract_s *contract) {
    auto &text = (*contract)["message " + type.full_name()];
    for (int i = 0; i < type.field_count(); i++) {
        text += text_of(*type.field(i));
    }
    for (int i = 0; i < type.nested_type_count(); i++) {
        add(*type.nested_type(i), contract);
    }
    for (int i = 0; i < type.enum_type_count(); i++) {
        add(*type.enum_type(i), contract);
    }
}

void add(const pb::ServiceDescriptor &service, contract_s *contract) {
    auto &text = (*contract)["service " + service.full_name()];
    for (int i = 0; i < service.method_count(); i++) {
        const auto &method = *service.method(i);
        text += " " + method.name() + ":" + method.input_type()->full_name() + ":" +
                method.output_type()->full_name();
    }
}

void add(const pb::FileDescriptor &file, contract_s *contract) {
    for (int i = 0; i < file.message_type_count(); i++) {
        add(*file.message_type(i), contract);
    }
    for (int i = 0; i < file.enum_type_count(); i++) {
        add(*file.enum_type(i), contract);
    }
    for (int i = 0; i < file.service_count(); i++) {
        add(*file.service(i), contract);
    }
    for (int i = 0; i < file.extension_count(); i++) {
        const auto &extension = *file.extension(i);
        (*contract)["extend " + extension.containing_type()->full_name()] += text_of(extension);
    }
}

// What the message library holds, apart from gRPC's health service.
contract_s library_contract() {
    contract_s contract;
    for (const std::string path : nyx::proto_files()) {
        if (path.starts_with("nyx/")) {
            add(*pb::DescriptorPool::generated_pool()->FindFileByName(path), &contract);
        }
    }
    return contract;
}

std::string for_table(std::string text, const std::string &table) {
    const std::string placeholder = "TABLE";
    for (size_t at = 0; (at = text.find(placeholder, at)) != text.npos; at += table.size()) {
        text.replace(at, placeholder.size(), table);
    }
    return text;
}

std::string record_fields(const std::vector<test::field_layout_s> &fields) {
    std::string text;
    for (size_t i = 0; i < fields.size(); i++) {
        const auto *type = pb::FieldDescriptor::TypeName(fields[i].type);
        text += " " + fields[i].name + "=" + std::to_string(i + 1) + ":" + type;
    }
    return text;
}

// Messages of one table that follow from its layout.
void add(const test::table_layout_s &layout, contract_s *contract) {
    const auto table = "message nyx." + layout.name;
    (*contract)[table + "_key_t"] = record_fields(layout.key);
    if (layout.ternary) {
        (*contract)[table + "_key_mask_t"] = record_fields(layout.mask);
    }
    for (const auto &action : layout.actions) {
        (*contract)["message nyx." + action.message] = record_fields(action.fields);
        (*contract)[table + "Spec"] +=
            " " + action.member + "=" + std::to_string(action.number) + ":nyx." + action.message + "|Data";
    }
}

struct entry_s {
    std::string tables;  // "table", "exact", "ternary": written for each of these tables; empty: itself
    std::string name;    // "message nyx.Port"
    std::string items;
};

std::vector<entry_s> read_entries() {
    static const std::set<std::string> k_kinds = {"message", "extend", "enum", "service"};
    static const std::set<std::string> k_tables = {"table", "exact", "ternary"};
    std::vector<entry_s> entries;
    std::ifstream file(NYX_TEST_DATA "/wire_contract.txt");
    for (std::string line, tables; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string word, name; words >> word;) {
            if (k_tables.contains(word)) {
                tables = word;
            } else if (k_kinds.contains(word)) {
                words >> name;
                entries.push_back({std::exchange(tables, ""), word + " " + name, ""});
            } else {
                entries.back().items += " " + word;
            }
        }
    }
    return entries;
}

contract_s expected_contract() {
    contract_s contract;
    for (const auto &entry : read_entries()) {
        for (const auto &layout : test::table_layouts()) {
            if (entry.tables == "table" || entry.tables == (layout.ternary ? "ternary" : "exact")) {
                contract[for_table(entry.name, layout.name)] += for_table(entry.items, layout.name);
            }
        }
        if (entry.tables.empty()) {
            contract[entry.name] = entry.items;
        }
    }
    for (const auto &layout : test::table_layouts()) {
        add(layout, &contract);
    }
    return contract;
}

TEST(wire_contract, HoldsForAllMessagesEnumerationsAndServices) {
    const auto library = library_contract();
    const auto expected = expected_contract();
    ASSERT_EQ(test::table_layouts().size(), 37U);
    for (const auto &[name, items] : expected) {
        const auto found = library.find(name);
        EXPECT_TRUE(found != library.end()) << name << " is gone: clients use it";
        EXPECT_TRUE(found == library.end() || found->second == items)
            << name << "\n  contract:" << items << "\n  library: " << found->second;
    }
    for (const auto &[name, items] : library) {
        EXPECT_TRUE(expected.contains(name))
            << name << items << " is missing in tests/data/wire_contract.txt";
    }
}

}  // namespace
