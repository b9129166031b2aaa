#include "client/cli/completion_names.h"

#include <google/protobuf/descriptor.h>

#include "client/core/field_value.h"
#include "client/core/symbols.h"
#include "client/table/record_layout.h"
#include "nyx/interface.pb.h"
#include "nyx/port.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using names_t = std::vector<std::string>;

// Full names once a dot was typed, else the last part alone.
void add_symbol(const std::string &full_name, const std::string &current, names_t *found) {
    const bool wants_full = current.find('.') != current.npos;
    found->push_back(wants_full ? full_name : full_name.substr(full_name.rfind('.') + 1));
}

void add_services(const std::string &current, names_t *found) {
    for (const pb::ServiceDescriptor *service : all_services()) {
        add_symbol(service->full_name(), current, found);
    }
}

void add_methods(const std::string &current, names_t *found) {
    for (const pb::ServiceDescriptor *service : all_services()) {
        for (int i = 0; i < service->method_count(); i++) {
            const pb::MethodDescriptor *method = service->method(i);
            if (current.find('/') != current.npos) {
                found->push_back(method_path(method));
            } else {
                add_symbol(method->full_name(), current, found);
            }
        }
    }
}

void add_messages(const std::string &current, names_t *found) {
    for (const std::string &name : all_message_names()) {
        add_symbol(name, current, found);
    }
}

void add_symbols(const std::string &current, names_t *found) {
    add_services(current, found);
    add_methods(current, found);
    add_messages(current, found);
}

void add_values(const pb::FieldDescriptor *field, const std::string &path, names_t *found) {
    if (field->type() == pb::FieldDescriptor::TYPE_BOOL) {
        found->insert(found->end(), {path + "yes", path + "no"});
    }
    for (int i = 0; field->enum_type() && i < field->enum_type()->value_count(); i++) {
        found->push_back(path + enumerator_text(field->enum_type()->value(i)));
    }
}

// A message is followed by '.', a list by the index of its first element, everything else by its value.
std::string with_ending(const pb::FieldDescriptor *field) {
    const bool is_address =
        field->message_type() && (field->message_type()->full_name() == "types.IPAddress" ||
                                  field->message_type()->full_name() == "types.IPPrefix");
    if (!field->message_type() || is_address) {
        return field->name() + "=";
    }
    return field->name() + (field->is_repeated() ? "[0]." : ".");
}

// The next step of a PATH=VALUE.
void add_fields(const pb::Descriptor *type, const std::string &current, names_t *found) {
    size_t at = 0;
    while (type) {
        const size_t end = current.find_first_of(".[=", at);
        if (end == current.npos) {
            break;
        }
        const pb::FieldDescriptor *field = type->FindFieldByName(current.substr(at, end - at));
        if (!field || current[end] == '=') {
            return field ? add_values(field, current.substr(0, end + 1), found) : void();
        }
        const size_t dot = current.find('.', end);
        type = dot == current.npos ? nullptr : field->message_type();
        at = dot + 1;
    }
    for (int i = 0; type && i < type->field_count(); i++) {
        found->push_back(current.substr(0, at) + with_ending(type->field(i)));
    }
}

void add_request_fields(const std::string &name, const std::string &current, names_t *found) {
    const pb::MethodDescriptor *method = nullptr;
    if (find_method(name, &method).ok()) {
        add_fields(method->input_type(), current, found);
    }
}

void add_interface_fields(const std::string &kind, const std::string &current, names_t *found) {
    const pb::OneofDescriptor *kinds = nyx::InterfaceSpec::descriptor()->FindOneofByName("ifinfo");
    for (int i = 0; i < nyx::InterfaceSpec::descriptor()->field_count(); i++) {
        const pb::FieldDescriptor *field = nyx::InterfaceSpec::descriptor()->field(i);
        if (field->containing_oneof() != kinds) {
            add_values(field, field->name() + "=", found);
            found->push_back(with_ending(field));
        } else if (field->name().starts_with(kind + "_")) {
            add_fields(field->message_type(), current, found);
        }
    }
}

// Of an entry of a table.
void add_entry_fields(const std::string &table, bool only_key, names_t *found) {
    table_layout_s layout{};
    if (!find_table(table, &layout).ok()) {
        return;
    }
    for (const record_field_s &field : layout.fields) {
        if (!only_key || field.part == RECORD_KEY) {
            found->push_back(field.short_name() + "=");
        }
    }
}

}  // namespace

void add_names(const std::string &command, const std::string &argument, const names_t &positionals,
               const std::string &current, names_t *found) {
    if (argument == "METHOD") {
        add_methods(current, found);
    } else if (argument == "SERVICE") {
        add_services(current, found);
    } else if (argument == "SYMBOL") {
        add_symbols(current, found);
    } else if (argument == "MESSAGE" || argument == "args") {
        add_messages(current, found);
    } else if (argument == "TABLE" || (argument == "NAME" && command.ends_with(" table"))) {
        const names_t tables = table_names();
        found->insert(found->end(), tables.begin(), tables.end());
    } else if (argument == "SETTING") {
        add_fields(nyx::PortSpec::descriptor(), current, found);
    } else if (positionals.empty()) {
        return;  // all others depend on what stands before
    } else if (command == "call") {
        add_request_fields(positionals.front(), current, found);
    } else if (argument == "FIELD" && command.ends_with(" interface")) {
        add_interface_fields(positionals.front(), current, found);
    } else if (argument == "WORDS" || argument == "KEY") {
        add_entry_fields(positionals.front(), argument == "KEY", found);
    }
}

}  // namespace nyxctl
