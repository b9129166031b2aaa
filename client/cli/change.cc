#include "client/cli/change.h"

#include <algorithm>

#include "client/core/field_words.h"
#include "client/core/grpc_call.h"
#include "client/core/json.h"
#include "client/core/text_io.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

const pb::MethodDescriptor *method_of(const std::string &full_name) {
    return pb::DescriptorPool::generated_pool()->FindMethodByName(full_name);
}

}  // namespace

outcome_s set_fields(std::span<pb::Message *const> messages, words_t words) {
    for (const std::string &word : words) {
        if (outcome_s outcome = set_field(messages, word, fit_e::record); !outcome.ok()) {
            // Only the commands about tables have that option.
            outcome.text.resize(std::min(outcome.text.size(), outcome.text.find("; --cut")));
            return outcome;
        }
    }
    return {};
}

outcome_s set_fields(pb::Message *message, words_t words) { return set_fields({&message, 1}, words); }

outcome_s call(const global_options_s &global, const std::string &method, const pb::Message &request,
               pb::Message *response) {
    return checked_call(global, method_of(method), request, response);
}

outcome_s change(const global_options_s &global, const std::string &method, const pb::Message &request) {
    const auto response = new_message(method_of(method)->output_type());
    outcome_s outcome = call(global, method, request, response.get());
    return outcome.ok() ? write_result(global, json_text({{"status", "ok"}}), "") : outcome;
}

outcome_s with_hint(outcome_s outcome, const std::string &hint) {
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS) {
        outcome.text += "; " + hint;
    }
    return outcome;
}

}  // namespace nyxctl
