// Converts an entry of every table to its record, and back as a check. tests/instruction_count_test.py runs this under
// callgrind, which counts the instructions of to_record(). Two passes: in the first, the dynamic linker binds symbols.

#include <google/protobuf/message.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "nyx/types/options.pb.h"
#include "svc/nyx_tbl_flow.h"
#include "svc/nyx_tbl_mapping.h"
#include "svc/nyx_tbl_rewrite.h"
#include "svc/nyx_tbl_stats.h"
#include "svc/nyx_tbl_tunnel.h"
#include "svc/table_operations.h"

namespace bench {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

template <class Binding, class Spec>
[[gnu::noinline]] void to_record(typename Binding::spec_s &rec, const Spec &spec) {
    nyx_tbl::spec_to_record<Binding>(rec, spec);
}

namespace {

void fill(Message *message);

void fill_field(Message *message, const FieldDescriptor *field) {
    const auto *reflection = message->GetReflection();
    const auto width = field->options().GetExtension(types::record_width);
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection->SetUInt32(message, field, ~0u >> (32 - 8 * width));
        case FieldDescriptor::CPPTYPE_UINT64:
            return reflection->SetUInt64(message, field, ~uint64_t{0});
        case FieldDescriptor::CPPTYPE_STRING:
            return reflection->SetString(message, field, std::string(width, '\xff'));
        default:
            return fill(reflection->MutableMessage(message, field));
    }
}

// Sets all fields that a record holds; of a oneof, the first member.
void fill(Message *message) {
    for (int i = 0; i < message->GetDescriptor()->field_count(); i++) {
        const auto *field = message->GetDescriptor()->field(i);
        const auto *oneof = field->containing_oneof();
        if (field->name() != "client_tag" && (!oneof || oneof->field(0) == field)) {
            fill_field(message, field);
        }
    }
}

template <class Spec>
uint32_t first_action() {
    const auto *data = Spec::descriptor()->FindOneofByName("Data");
    return data ? data->field(0)->options().GetExtension(types::action_id) : 0;
}

template <class Spec>
Spec full_entry() {
    Spec spec;
    fill(&spec);
    spec.set_action_id(first_action<Spec>());
    if constexpr (requires { spec.key_mask_valid(); }) {
        spec.set_key_mask_valid(1);
    }
    return spec;
}

template <class Binding, class Spec>
bool there_and_back() {
    const auto spec = full_entry<Spec>();
    Spec copy;
    typename Binding::spec_s rec{};
    to_record<Binding>(rec, spec);
    nyx_tbl::record_to_spec<Binding>(&copy, rec);
    return copy.SerializeAsString() == spec.SerializeAsString();
}

constexpr struct {
    const char *name;
    bool (*there_and_back)();
} k_tables[] = {
#define TABLE(name) {#name, there_and_back<nyx_tbl::name##_binding, nyx::name##Spec>},
#include "fuzz/tables.inc"
#undef TABLE
};

}  // namespace

}  // namespace bench

int main() {
    for (int pass = 0; pass < 2; pass++) {
        for (const auto &table : bench::k_tables) {
            if (!table.there_and_back()) {
                std::fprintf(stderr, "nyx_instructions: an entry of %s comes back as another\n", table.name);
                return 1;
            }
        }
    }
    return 0;
}
