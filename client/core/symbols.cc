#include "client/core/symbols.h"

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <functional>

#include "client/core/nearest.h"
#include "nyx/fault.pb.h"
#include "proto/proto_files.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

template <typename DESCRIPTOR>
using list_t = std::vector<const DESCRIPTOR *>;

template <typename VISIT>
void for_each_file(VISIT visit) {
    for (const char *path : nyx::proto_files()) {
        if (const pb::FileDescriptor *file = pb::DescriptorPool::generated_pool()->FindFileByName(path)) {
            visit(file);
        }
    }
    visit(nyx::Fault::descriptor()->file());  // of the stand-in, so not in the product's library
}

template <typename VISIT>
void for_each_nested(const pb::Descriptor *message, VISIT visit) {
    if (message->options().map_entry()) {
        return;
    }
    visit(message);
    for (int i = 0; i < message->nested_type_count(); ++i) {
        for_each_nested(message->nested_type(i), visit);
    }
}

list_t<pb::MethodDescriptor> all_methods() {
    list_t<pb::MethodDescriptor> methods;
    for (const pb::ServiceDescriptor *service : all_services()) {
        for (int i = 0; i < service->method_count(); ++i) {
            methods.push_back(service->method(i));
        }
    }
    return methods;
}

list_t<pb::Descriptor> all_messages() {
    list_t<pb::Descriptor> messages;
    for_each_file([&](const pb::FileDescriptor *file) {
        for (int i = 0; i < file->message_type_count(); ++i) {
            for_each_nested(file->message_type(i), [&](auto *message) { messages.push_back(message); });
        }
    });
    return messages;
}

list_t<pb::EnumDescriptor> all_enums() {
    list_t<pb::EnumDescriptor> enums;
    for_each_file([&](const pb::FileDescriptor *file) {
        for (int i = 0; i < file->enum_type_count(); ++i) {
            enums.push_back(file->enum_type(i));
        }
    });
    for (const pb::Descriptor *message : all_messages()) {
        for (int i = 0; i < message->enum_type_count(); ++i) {
            enums.push_back(message->enum_type(i));
        }
    }
    return enums;
}

std::string dotted(std::string_view name) {
    std::string result(name);
    std::ranges::replace(result, '/', '.');
    return result.starts_with('.') ? result.substr(1) : result;
}

bool has_ending(std::string_view full_name, std::string_view ending) {
    if (!full_name.ends_with(ending)) {
        return false;
    }
    const size_t rest = full_name.size() - ending.size();
    return rest == 0 || full_name[rest - 1] == '.';
}

// Returns the position of the one name that fits.
outcome_s pick(std::string_view given, std::string_view kind, std::string_view look_with,
               const std::vector<std::string> &names, size_t *position) {
    const std::string wanted = dotted(given);
    std::string candidates;
    size_t fitting = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == wanted) {
            *position = i;
            return {};
        }
        if (!wanted.empty() && has_ending(names[i], wanted)) {
            *position = i;
            candidates += (fitting++ == 0 ? "" : ", ") + names[i];
        }
    }
    if (fitting == 1) {
        return {};
    }
    const std::string subject = std::string(kind) + " \"" + std::string(given.substr(0, 200)) + "\"";
    if (fitting > 1) {
        return usage_failure(subject + " is ambiguous; give one of: " + candidates);
    }
    return usage_failure("unknown " + subject + nearest_names_text(wanted, names) + "; see " +
                         std::string(look_with));
}

template <typename DESCRIPTOR>
std::vector<std::string> full_names(const list_t<DESCRIPTOR> &symbols) {
    std::vector<std::string> names;
    for (const DESCRIPTOR *symbol : symbols) {
        names.push_back(symbol->full_name());
    }
    return names;
}

template <typename DESCRIPTOR>
outcome_s find(std::string_view name, std::string_view kind, std::string_view look_with,
               const list_t<DESCRIPTOR> &symbols, const DESCRIPTOR **found) {
    size_t position = 0;
    outcome_s outcome = pick(name, kind, look_with, full_names(symbols), &position);
    if (outcome.ok()) {
        *found = symbols[position];
    }
    return outcome;
}

std::string describe_method(const pb::MethodDescriptor *method) {
    std::string text = "// " + method_path(method) + "\n" + method->DebugString();
    text += "\n" + method->input_type()->DebugString();
    if (method->output_type() != method->input_type()) {
        text += "\n" + method->output_type()->DebugString();
    }
    return text;
}

// One symbol of any kind, ready to be described.
struct symbol_s {
    std::string full_name;
    std::function<std::string()> text;
};

template <typename DESCRIPTOR>
void append_symbols(const list_t<DESCRIPTOR> &from, std::vector<symbol_s> *symbols) {
    for (const DESCRIPTOR *symbol : from) {
        symbols->push_back({symbol->full_name(), [symbol] { return symbol->DebugString(); }});
    }
}

std::vector<symbol_s> all_symbols() {
    std::vector<symbol_s> symbols;
    append_symbols(all_services(), &symbols);
    append_symbols(all_messages(), &symbols);
    append_symbols(all_enums(), &symbols);
    for (const pb::MethodDescriptor *method : all_methods()) {
        symbols.push_back({method->full_name(), [method] { return describe_method(method); }});
    }
    return symbols;
}

}  // namespace

std::vector<const pb::ServiceDescriptor *> all_services() {
    list_t<pb::ServiceDescriptor> services;
    for_each_file([&](const pb::FileDescriptor *file) {
        for (int i = 0; i < file->service_count(); ++i) {
            services.push_back(file->service(i));
        }
    });
    std::ranges::sort(services, {}, [](auto *service) { return service->full_name(); });
    return services;
}

std::vector<std::string> all_message_names() { return full_names(all_messages()); }

outcome_s find_service(std::string_view name, const pb::ServiceDescriptor **found) {
    return find(name, "service", "nyxctl list", all_services(), found);
}

outcome_s find_method(std::string_view name, const pb::MethodDescriptor **found) {
    return find(name, "method", "nyxctl list", all_methods(), found);
}

outcome_s find_message(std::string_view name, const pb::Descriptor **found) {
    return find(name, "message", "nyxctl debug --help", all_messages(), found);
}

outcome_s describe_symbol(std::string_view name, std::string *text) {
    const std::vector<symbol_s> symbols = all_symbols();
    std::vector<std::string> names;
    for (const symbol_s &symbol : symbols) {
        names.push_back(symbol.full_name);
    }
    size_t position = 0;
    outcome_s outcome = pick(name, "symbol", "nyxctl list", names, &position);
    if (outcome.ok()) {
        *text = symbols[position].text();
    }
    return outcome;
}

std::string method_path(const pb::MethodDescriptor *method) {
    return method->service()->full_name() + "/" + method->name();
}

}  // namespace nyxctl
