#include "client/core/json.h"

#include <google/protobuf/util/json_util.h>

#include "client/core/json_dom.h"
#include "client/core/json_texts.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::string status_text(const pb::util::Status &status) {
    return std::string(status.message().data(), status.message().size());
}

}  // namespace

std::unique_ptr<pb::Message> new_message(const pb::Descriptor *type) {
    return std::unique_ptr<pb::Message>(pb::MessageFactory::generated_factory()->GetPrototype(type)->New());
}

outcome_s json_to_message(std::string_view json, pb::Message *message, json_style_e style) {
    const pb::Descriptor *type = message->GetDescriptor();
    const std::string subject = "JSON of " + type->full_name() + ": ";
    json_t dom;
    std::string error;
    if (!parse_json(json, &dom, &error) ||
        (style == json_style_e::people && !texts_to_canonical(&dom, type, &error))) {
        return usage_failure(subject + error);
    }
    const pb::util::Status status = pb::util::JsonStringToMessage(dump_json(dom), message);
    if (!status.ok()) {
        return usage_failure(subject + status_text(status) + "; see nyxctl describe " + type->full_name());
    }
    return {};
}

outcome_s message_to_json(const pb::Message &message, std::string *json, json_style_e style) {
    const pb::Descriptor *type = message.GetDescriptor();
    pb::util::JsonPrintOptions options;
    options.always_print_primitive_fields = true;
    options.preserve_proto_field_names = style == json_style_e::people;
    std::string canonical;
    const pb::util::Status status = pb::util::MessageToJsonString(message, &canonical, options);
    if (!status.ok()) {
        return local_failure("cannot show " + type->full_name() + " as JSON: " + status_text(status));
    }
    json_t dom;
    std::string error;
    if (!parse_json(canonical, &dom, &error)) {
        return local_failure("cannot show " + type->full_name() + " as JSON: " + error);
    }
    if (style == json_style_e::people) {
        canonical_to_texts(&dom, type);
    }
    *json = dump_json(dom, 2);
    return {};
}

}  // namespace nyxctl
