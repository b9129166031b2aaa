#include "client/table/table_calls.h"

#include <fmt/format.h>

#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/status_fields.h"
#include "client/table/record_rows.h"

namespace pb = google::protobuf;

namespace nyxctl {

table_method_s::table_method_s(const table_layout_s &layout, const std::string &operation)
    : method(
          pb::DescriptorPool::generated_pool()->FindMethodByName("nyx.NyxTblSvc." + layout.name + operation)),
      list(method->input_type()->field(0)),
      answers(method->output_type()->FindFieldByName("response")) {}

const pb::Message &table_method_s::spec(const pb::Message &response, size_t index) const {
    const pb::Message &answer =
        response.GetReflection()->GetRepeatedMessage(response, answers, static_cast<int>(index));
    return answer.GetReflection()->GetMessage(answer, answer.GetDescriptor()->field(0));
}

outcome_s get_entry(const global_options_s &global, const table_layout_s &layout, const pb::Message &key,
                    pb::Message *spec) {
    const table_method_s get(layout, "Get");
    const auto request = new_message(get.method->input_type());
    request->GetReflection()->AddMessage(request.get(), get.list)->CopyFrom(key);
    const auto response = new_message(get.method->output_type());
    if (outcome_s outcome = grpc_call(global, get.method, *request, response.get()); !outcome.ok()) {
        return outcome;
    }
    if (const auto failed = failed_api_status(*response)) {
        return {NYXCTL_EXIT_API_STATUS,
                fmt::format("{}: no entry with {} could be read: {}; most likely no such entry exists, the "
                            "service does not say why",
                            layout.name, key_text(layout, key), *failed)};
    }
    if (element_count(*response, get.answers) == 0) {
        return local_failure(layout.name + ": the agent's answer holds no entry");
    }
    spec->CopyFrom(get.spec(*response, 0));
    return {};
}

}  // namespace nyxctl
