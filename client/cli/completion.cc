#include "client/cli/completion.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <cstdlib>

#include "client/cli/commands.h"
#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/core/labels.h"
#include "client/core/symbols.h"
#include "client/table/record_layout.h"
#include "client/view/find_object.h"
#include "nyx/interface.pb.h"
#include "nyx/port.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using names_t = std::vector<std::string>;

// Full names once a dot was typed, else only the last part.
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

void add_field_values(const pb::FieldDescriptor *field, const std::string &path, names_t *found) {
    if (field->type() == pb::FieldDescriptor::TYPE_BOOL) {
        found->insert(found->end(), {path + "yes", path + "no"});
    }
    for (const auto &[number, text] :
         label_of(field) && !field->enum_type() ? label_of(field)->values : label_s().values) {
        found->push_back(path + label_word(text));
    }
    for (int i = 0; field->enum_type() && i < field->enum_type()->value_count(); i++) {
        found->push_back(path + enumerator_text(field->enum_type()->value(i)));
        const std::string label = label_word(label_text(field, field->enum_type()->value(i)));
        found->push_back(label.empty() ? found->back() : path + label);
    }
}

// A message is followed by '.', a list by the index of its first element, any other field by its value.
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
        const pb::FieldDescriptor *field = find_field(type, current.substr(at, end - at));
        if (!field || current[end] == '=') {
            return field ? add_field_values(field, current.substr(0, end + 1), found) : void();
        }
        const size_t dot = current.find('.', end);
        type = dot == current.npos ? nullptr : field->message_type();
        at = dot + 1;
    }
    for (int i = 0; type && i < type->field_count(); i++) {
        const std::string ending = with_ending(type->field(i));
        const std::string label = label_word(label_of(type->field(i)));
        found->push_back(current.substr(0, at) + ending);
        if (!label.empty()) {
            found->push_back(current.substr(0, at) + label + ending.substr(type->field(i)->name().size()));
        }
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
            add_field_values(field, field->name() + "=", found);
            found->push_back(with_ending(field));
        } else if (field->name().starts_with(kind + "_")) {
            add_fields(field->message_type(), current, found);
        }
    }
}

void add_entry_fields(const std::string &table, bool only_key, names_t *found) {
    table_layout_s layout{};
    if (!find_table(table, &layout).ok()) {
        return;
    }
    for (const record_field_s &field : layout.fields) {
        if (!only_key || field.part == RECORD_KEY) {
            found->push_back(field.short_name() + "=");
            if (const std::string label = field.label(); !label.empty()) {
                found->push_back(label + "=");
            }
        }
    }
}

// How far a command line has come.
struct place_s {
    const command_s *command;
    std::vector<std::string> arguments = {};  // of that command, without options
    const argument_s *option = nullptr;       // whose value comes next
    size_t option_values = 0;                 // that are still to come
    given_s given = {};                       // values of options
};

// A command, its group, and the program.
std::vector<const command_s *> with_groups(const commands_t &commands, const command_s &command) {
    std::vector<const command_s *> rows;
    for (const command_s &row : commands) {
        if (row.path.empty() || row.path == command.path || row.path == command.group()) {
            rows.push_back(&row);
        }
    }
    return rows;
}

// "-o" and "--output"
names_t option_names(const argument_s &option) {
    const size_t comma = option.name.find(',');
    return comma == option.name.npos ? names_t{option.name}
                                     : names_t{option.name.substr(0, comma), option.key()};
}

const argument_s *find_option(const commands_t &commands, const command_s &command, const std::string &word) {
    for (const command_s *row : with_groups(commands, command)) {
        for (const argument_s &argument : row->arguments) {
            if (argument.is_option() && std::ranges::count(option_names(argument), word)) {
                return &argument;
            }
        }
    }
    return nullptr;
}

bool is_below(const command_s &row, const command_s &group) {
    return !row.path.empty() && row.group() == group.path;
}

const command_s *find_command(const commands_t &commands, const command_s &group, const std::string &name) {
    const auto found = std::ranges::find_if(
        commands, [&](const command_s &row) { return is_below(row, group) && row.name() == name; });
    return found == commands.end() ? nullptr : &*found;
}

size_t values_of(const argument_s &option) {
    switch (option.count) {
        case COUNT_ONE:
        case COUNT_EACH:
            return option.kind == KIND_FLAG ? 0 : 1;
        case COUNT_TWO:
            return 2;
        default:
            return 0;
    }
}

void step(const commands_t &commands, const std::string &word, place_s *place) {
    if (place->option_values > 0) {
        place->option_values--;
        place->given.values[place->option->key()].push_back(word);
    } else if (word.size() > 1 && word.starts_with('-')) {
        place->option = find_option(commands, *place->command, word);
        place->option_values = place->option ? values_of(*place->option) : 0;
    } else if (const command_s *command = find_command(commands, *place->command, word)) {
        *place = {.command = command, .given = std::move(place->given)};
    } else {
        place->arguments.push_back(word);
    }
}

const argument_s *next_argument(const place_s &place) {
    if (place.option_values > 0) {
        return place.option;
    }
    size_t left = place.arguments.size();
    for (const argument_s &argument : place.command->arguments) {
        if (argument.is_option()) {
            continue;
        }
        if (left == 0 || argument.is_list()) {
            return &argument;
        }
        left--;
    }
    return nullptr;
}

// Asks the agent that the command line and the environment name; a shell does not wait for long.
void add_objects(const commands_t &commands, const argument_s &argument, given_s given,
                 const std::string &current, names_t *found) {
    constexpr double k_patience_seconds = 0.3;
    for (const argument_s &option : commands.front().arguments) {
        const char *variable = option.variable.empty() ? nullptr : std::getenv(option.variable.c_str());
        std::vector<std::string> &values = given.values[option.key()];
        if (values.empty() && (variable || !option.initial.empty())) {
            values = {variable ? variable : option.initial};
        }
    }
    global_options_s global = global_options(given);
    global.timeout_seconds = k_patience_seconds;
    for (const std::string &kind : argument.choices) {
        const names_t names = object_names(global, kind, current);
        found->insert(found->end(), names.begin(), names.end());
    }
}

void add_names(const argument_s &argument, const names_t &before, const std::string &current,
               names_t *found) {
    const std::string first = before.empty() ? "" : before.front();
    found->insert(found->end(), argument.choices.begin(), argument.choices.end());
    switch (argument.kind) {
        case KIND_FILE:
            return found->push_back(k_files);
        case KIND_SERVICE:
            return add_services(current, found);
        case KIND_METHOD:
            return add_methods(current, found);
        case KIND_MESSAGE:
            return add_messages(current, found);
        case KIND_SYMBOL:
            return add_symbols(current, found);
        case KIND_TABLE: {
            const names_t tables = table_names();
            found->insert(found->end(), tables.begin(), tables.end());
            return;
        }
        case KIND_PORT_FIELD:
            return add_fields(nyx::PortSpec::descriptor(), current, found);
        case KIND_REQUEST_FIELD:
            return add_request_fields(first, current, found);
        case KIND_INTERFACE_FIELD:
            return add_interface_fields(first, current, found);
        case KIND_ENTRY_FIELD:
        case KIND_KEY_FIELD:
            return add_entry_fields(first, argument.kind == KIND_KEY_FIELD, found);
        case KIND_TEXT:
        case KIND_ID:
        case KIND_FLAG:
        case KIND_CHOICE:
        case KIND_NUMBER:
        case KIND_SECONDS:
            return;
    }
}

void add_options(const commands_t &commands, const command_s &command, names_t *found) {
    found->insert(found->end(), {"-h", "--help", "--version"});
    for (const command_s *row : with_groups(commands, command)) {
        for (const argument_s &argument : row->arguments) {
            const names_t names = argument.is_option() ? option_names(argument) : names_t();
            found->insert(found->end(), names.begin(), names.end());
        }
    }
}

void add_commands(const commands_t &commands, const command_s &group, names_t *found) {
    for (const command_s &row : commands) {
        if (is_below(row, group) && !row.hidden) {
            found->push_back(row.name());
        }
    }
}

names_t all_names(const commands_t &commands, const place_s &place, const std::string &current) {
    names_t found;
    if (place.option_values == 0 && current.starts_with('-')) {
        add_options(commands, *place.command, &found);
        return found;
    }
    if (place.option_values == 0 && place.arguments.empty()) {
        add_commands(commands, *place.command, &found);
    }
    const argument_s *argument = next_argument(place);
    if (argument && argument->kind == KIND_ID) {
        add_objects(commands, *argument, place.given, current, &found);
    } else if (argument) {
        add_names(*argument, place.arguments, current, &found);
    }
    return found;
}

}  // namespace

std::vector<std::string> completions(const commands_t &commands, std::span<const std::string> words) {
    const std::string current = words.empty() ? "" : words.back();
    place_s place{.command = &commands.front()};
    for (size_t i = 0; i + 1 < words.size(); i++) {
        step(commands, words[i], &place);
    }
    names_t found = all_names(commands, place, current);
    std::erase_if(found,
                  [&](const std::string &name) { return name != k_files && !name.starts_with(current); });
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

}  // namespace nyxctl
