#include "client/table/entry_batch.h"

#include <algorithm>

#include "client/core/fields.h"
#include "client/table/record_codec.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

const pb::Message &at(const pb::Message &request, const table_method_s &method, size_t index) {
    return request.GetReflection()->GetRepeatedMessage(request, method.list, static_cast<int>(index));
}

pb::Message *append(pb::Message *request, const table_method_s &method) {
    return request->GetReflection()->AddMessage(request, method.list);
}

}  // namespace

entry_batch_s::entry_batch_s(const table_layout_s &table, const table_methods_s &table_methods,
                             bool only_keys)
    : layout(table),
      methods(table_methods),
      has_only_keys(only_keys),
      specs(new_message(methods.create.method->input_type())),
      keys(new_message(methods.get.method->input_type())),
      before(new_message(methods.get.method->output_type())),
      after(new_message(methods.get.method->output_type())),
      some_specs(new_message(methods.create.method->input_type())),
      some_keys(new_message(methods.remove.method->input_type())),
      write_answer(new_message(methods.create.method->output_type())),
      delete_answer(new_message(methods.remove.method->output_type())) {}

void entry_batch_s::clear() {
    entries.clear();
    texts.clear();
    reasons.clear();
    specs->Clear();
    keys->Clear();
    is_done = false;
}

pb::Message *entry_batch_s::add_message() {
    return has_only_keys ? append(keys.get(), methods.get) : append(specs.get(), methods.create);
}

void entry_batch_s::drop_message() {
    pb::Message *request = has_only_keys ? keys.get() : specs.get();
    request->GetReflection()->RemoveLast(request, (has_only_keys ? methods.get : methods.create).list);
}

void entry_batch_s::add(const batch_entry_s &entry, std::string_view text) {
    entries.push_back(entry);
    entries.back().text_at = texts.size();
    entries.back().text_size = text.size();
    texts += text;
    texts.reserve(texts.size() + k_json_padding);
}

void entry_batch_s::copy_keys() {
    for (size_t i = 0; !has_only_keys && i < entries.size(); i++) {
        const pb::Message &entry = at(*specs, methods.create, i);
        append(keys.get(), methods.get)->CopyFrom(entry.GetReflection()->GetMessage(entry, layout.key_field));
    }
}

const pb::Message &entry_batch_s::request_for(step_e next) {
    const bool is_delete = next == STEP_DELETE;
    const auto takes = [&](const batch_entry_s &entry) { return entry.has_to(next); };
    if (!is_delete && std::ranges::all_of(entries, takes)) {
        return *specs;
    }
    pb::Message *some = is_delete ? some_keys.get() : some_specs.get();
    some->Clear();
    for (size_t i = 0; i < entries.size(); i++) {
        if (takes(entries[i])) {
            append(some, is_delete ? methods.remove : methods.create)
                ->CopyFrom(is_delete ? key(i) : at(*specs, methods.create, i));
        }
    }
    return *some;
}

entry_text_s entry_batch_s::text_of(const batch_entry_s &entry) const {
    return {.text = std::string_view(texts).substr(entry.text_at, entry.text_size), .line = entry.line};
}

pb::Message *entry_batch_s::spec(size_t index) {
    return specs->GetReflection()->MutableRepeatedMessage(specs.get(), methods.create.list,
                                                          static_cast<int>(index));
}

const pb::Message &entry_batch_s::key(size_t index) const { return at(*keys, methods.get, index); }

// Equal messages have equal records; others may, too: by shorter bytes, or fields of another action.
bool entry_batch_s::is_right(size_t index, const pb::Message &read) const {
    const pb::Message &wanted = at(*specs, methods.create, index);
    return wanted.SerializeAsString() == read.SerializeAsString() ||
           encode_record(layout, wanted) == encode_record(layout, read);
}

void entry_batch_s::merge(size_t index, entry_source *source) {
    pb::Message *merged = spec(index);
    merged->CopyFrom(methods.get.spec(*before, index));
    (void)source->read(text_of(entries[index]), merged);  // was read without a failure already
}

}  // namespace nyxctl
