#include "client/core/symbols.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/descriptor_database.h>

#include <algorithm>
#include <variant>

#include "base/nearest_names.h"
#include "client/core/contract_comments.h"
#include "client/core/labels.h"
#include "nyx/fault.pb.h"
#include "proto/proto_files.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using symbol_t = std::variant<const pb::ServiceDescriptor *, const pb::MethodDescriptor *,
                              const pb::Descriptor *, const pb::EnumDescriptor *>;

template <typename Holder>
void add_enums(const Holder *holder, std::vector<symbol_t> *symbols) {
    for (int i = 0; i < holder->enum_type_count(); i++) {
        symbols->emplace_back(holder->enum_type(i));
    }
}

void add_message(const pb::Descriptor *message, std::vector<symbol_t> *symbols) {
    symbols->emplace_back(message);
    add_enums(message, symbols);
    for (int i = 0; i < message->nested_type_count(); i++) {
        add_message(message->nested_type(i), symbols);
    }
}

void add_service(const pb::ServiceDescriptor *service, std::vector<symbol_t> *symbols) {
    symbols->emplace_back(service);
    for (int i = 0; i < service->method_count(); i++) {
        symbols->emplace_back(service->method(i));
    }
}

void add_file(const pb::FileDescriptor *file, std::vector<symbol_t> *symbols) {
    for (int i = 0; i < file->service_count(); i++) {
        add_service(file->service(i), symbols);
    }
    for (int i = 0; i < file->message_type_count(); i++) {
        add_message(file->message_type(i), symbols);
    }
    add_enums(file, symbols);
}

std::vector<symbol_t> all_symbols() {
    std::vector<symbol_t> symbols;
    for (const char *path : nyx::proto_files()) {
        if (const auto *file = pb::DescriptorPool::generated_pool()->FindFileByName(path)) {
            add_file(file, &symbols);
        }
    }
    add_file(nyx::Fault::descriptor()->file(), &symbols);  // of the stand-in, so not in the product's library
    return symbols;
}

template <typename Symbol>
std::vector<const Symbol *> all_of_kind() {
    std::vector<const Symbol *> found;
    for (const symbol_t &symbol : all_symbols()) {
        if (const auto *of_kind = std::get_if<const Symbol *>(&symbol)) {
            found.push_back(*of_kind);
        }
    }
    return found;
}

std::string full_name(const symbol_t &symbol) {
    return std::visit([](const auto *any) { return any->full_name(); }, symbol);
}

std::string dotted(std::string_view name) {
    std::string result(name);
    std::ranges::replace(result, '/', '.');
    return result.starts_with('.') ? result.substr(1) : result;
}

bool has_ending(const std::string &full_name, const std::string &ending) {
    return !ending.empty() && ("." + full_name).ends_with("." + ending);
}

// Sets `found` to the one of `symbols` that fits.
template <typename Symbol>
outcome_s find(std::string_view given, std::string_view kind, std::string_view look_with,
               const std::vector<Symbol> &symbols, Symbol *found) {
    const std::string wanted = dotted(given);
    std::vector<std::string> names;
    std::vector<std::string> candidates;
    Symbol candidate{};
    for (const Symbol &symbol : symbols) {
        names.push_back(full_name(symbol));
        if (names.back() == wanted) {
            *found = symbol;
            return {};
        }
        if (has_ending(names.back(), wanted)) {
            candidates.push_back(names.back());
            candidate = symbol;
        }
    }
    if (candidates.size() == 1) {
        *found = candidate;
        return {};
    }
    const std::string subject = fmt::format("{} \"{}\"", kind, given.substr(0, 200));
    return usage_failure(
        candidates.empty()
            ? fmt::format("unknown {}{}; see {}", subject, base::nearest_names_text(wanted, names), look_with)
            : fmt::format("{} is ambiguous; give one of: {}", subject, fmt::join(candidates, ", ")));
}

// The files of generated code with the comments that it lacks.
class commented_files final : public pb::DescriptorDatabase {
 public:
    commented_files() {
        comments_.ParseFromArray(k_contract_comments.data(), static_cast<int>(k_contract_comments.size()));
    }

    bool FindFileByName(const std::string &name, pb::FileDescriptorProto *file) override {
        return copy(generated()->FindFileByName(name), file);
    }
    bool FindFileContainingSymbol(const std::string &symbol, pb::FileDescriptorProto *file) override {
        return copy(generated()->FindFileContainingSymbol(symbol), file);
    }
    bool FindFileContainingExtension(const std::string &, int, pb::FileDescriptorProto *) override {
        return false;  // found in the imports of the files that use them
    }

 private:
    static const pb::DescriptorPool *generated() { return pb::DescriptorPool::generated_pool(); }

    bool copy(const pb::FileDescriptor *found, pb::FileDescriptorProto *file) const {
        if (!found) {
            return false;
        }
        found->CopyTo(file);
        for (const pb::FileDescriptorProto &commented : comments_.file()) {
            if (commented.name() == file->name()) {
                *file->mutable_source_code_info() = commented.source_code_info();
            }
        }
        return true;
    }

    pb::FileDescriptorSet comments_;
};

// The same descriptor of another pool.
const pb::ServiceDescriptor *same(const pb::DescriptorPool &pool, const pb::ServiceDescriptor *service) {
    return pool.FindServiceByName(service->full_name());
}
const pb::MethodDescriptor *same(const pb::DescriptorPool &pool, const pb::MethodDescriptor *method) {
    return pool.FindMethodByName(method->full_name());
}
const pb::Descriptor *same(const pb::DescriptorPool &pool, const pb::Descriptor *message) {
    return pool.FindMessageTypeByName(message->full_name());
}
const pb::EnumDescriptor *same(const pb::DescriptorPool &pool, const pb::EnumDescriptor *enumeration) {
    return pool.FindEnumTypeByName(enumeration->full_name());
}

std::string definition(const symbol_t &symbol) {
    commented_files files;
    const pb::DescriptorPool pool(&files);
    const auto text = [&](const auto *any) {
        pb::DebugStringOptions options;
        options.include_comments = true;
        return same(pool, any)->DebugStringWithOptions(options) + label_comments(any->full_name());
    };
    const auto *method = std::get_if<const pb::MethodDescriptor *>(&symbol);
    if (!method) {
        return std::visit(text, symbol);
    }
    const pb::Descriptor *input = (*method)->input_type();
    const pb::Descriptor *output = (*method)->output_type();
    return fmt::format("// {}\n{}\n{}{}", method_path(*method), text(*method), text(input),
                       input == output ? "" : "\n" + text(output));
}

}  // namespace

std::vector<const pb::ServiceDescriptor *> all_services() {
    auto services = all_of_kind<pb::ServiceDescriptor>();
    std::ranges::sort(services, {}, [](auto *service) { return service->full_name(); });
    return services;
}

std::vector<std::string> all_message_names() {
    std::vector<std::string> names;
    for (const auto *message : all_of_kind<pb::Descriptor>()) {
        names.push_back(message->full_name());
    }
    return names;
}

outcome_s find_service(std::string_view name, const pb::ServiceDescriptor **found) {
    return find(name, "service", "nyxctl list", all_of_kind<pb::ServiceDescriptor>(), found);
}

outcome_s find_method(std::string_view name, const pb::MethodDescriptor **found) {
    return find(name, "method", "nyxctl list", all_of_kind<pb::MethodDescriptor>(), found);
}

outcome_s find_message(std::string_view name, const pb::Descriptor **found) {
    return find(name, "message", "nyxctl debug --help", all_of_kind<pb::Descriptor>(), found);
}

outcome_s describe_symbol(std::string_view name, std::string *text) {
    symbol_t found;
    outcome_s outcome = find(name, "symbol", "nyxctl list", all_symbols(), &found);
    if (outcome.ok()) {
        *text = definition(found);
    }
    return outcome;
}

std::string method_path(const pb::MethodDescriptor *method) {
    return fmt::format("{}/{}", method->service()->full_name(), method->name());
}

}  // namespace nyxctl
