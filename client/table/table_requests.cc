#include "client/table/table_requests.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/status_fields.h"
#include "client/table/record_codec.h"
#include "client/table/record_rows.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_named_max = 10;  // in a text for people

const pb::MethodDescriptor *method_of(const table_layout_s &layout, const std::string &operation) {
    const auto *service = pb::DescriptorPool::generated_pool()->FindServiceByName("nyx.NyxTblSvc");
    return service->FindMethodByName(layout.name + operation);
}

std::unique_ptr<pb::Message> make_request(const pb::MethodDescriptor *method, entries_t entries) {
    auto request = new_message(method->input_type());
    const pb::FieldDescriptor *list = method->input_type()->field(0);
    for (const auto &entry : entries) {
        request->GetReflection()->AddMessage(request.get(), list)->CopyFrom(*entry);
    }
    return request;
}

// The Spec of each answer of a Get, empty where the read failed.
message_list_t take_specs(const pb::Message &response) {
    message_list_t specs;
    const pb::Reflection &get = *response.GetReflection();
    const auto *list = response.GetDescriptor()->FindFieldByName("response");
    for (int i = 0; i < get.FieldSize(response, list); i++) {
        const pb::Message &answer = get.GetRepeatedMessage(response, list, i);
        const auto *field = answer.GetDescriptor()->FindFieldByName("spec");
        const pb::Message &spec = answer.GetReflection()->GetMessage(answer, field);
        specs.emplace_back(spec.New())->CopyFrom(spec);
    }
    return specs;
}

std::string range_text(size_t first, size_t last) {
    return first == last ? fmt::format("entry {}", first) : fmt::format("entries {} to {}", first, last);
}

// Sends requests one after the other and keeps their results.
class requests {
 public:
    requests(const global_options_s &global, const table_layout_s &layout, const std::string &operation,
             size_t all)
        : global_(global),
          layout_(layout),
          method_(method_of(layout, operation)),
          get_(operation == "Get"),
          all_(all) {}

    // The entries from `first` on, counted from 1.
    outcome_s send(entries_t entries, size_t first, rows_s *rows, message_list_t *specs) {
        const auto request = make_request(method_, entries);
        const auto response = new_message(method_->output_type());
        outcome_s outcome = grpc_call(global_, method_, *request, response.get());
        if (!outcome.ok()) {
            outcome.text += all_ > k_entries_per_request ? rest_text(first, first + entries.size() - 1) : "";
            return outcome;
        }
        const auto failed = failed_api_status(*response);
        rows->rows.push_back({first, first + entries.size() - 1, failed.value_or("API_STATUS_OK")});
        if (get_) {
            add_specs(*response, failed.has_value(), first, specs);
        }
        if (failed) {
            add_failure(first, entries.size(), *failed);
        }
        return {};
    }

    outcome_s result() const {
        if (failures_ == 0) {
            return {};
        }
        const std::string text = missing_.empty() ? failures_text() : missing_text();
        return {NYXCTL_EXIT_API_STATUS, fmt::format("{}: {}", layout_.name, text)};
    }

 private:
    std::string rest_text(size_t first, size_t last) const {
        return fmt::format("; this was the request with {}, none was sent after it{}",
                           range_text(first, last), failures_ ? "; before it " + failures_text() : "");
    }

    std::string failures_text() const {
        const size_t more = failures_ - std::min(failures_, k_named_max);
        return fmt::format("{}{}; the service does not say {}", fmt::join(failed_, ", "),
                           more ? fmt::format(", and {} more requests", more) : "",
                           several_ ? "which" : "why");
    }

    std::string missing_text() const {
        const auto named = std::span(missing_).first(std::min(missing_.size(), k_named_max));
        return fmt::format(
            "{} {} could not be read, most likely because no entry has the key: number {}{} of those "
            "asked for",
            missing_.size(), missing_.size() == 1 ? "entry" : "entries", fmt::join(named, ", "),
            missing_.size() > k_named_max ? ", ..." : "");
    }

    // Without a failure, an entry of zeros is a real entry.
    void add_specs(const pb::Message &response, bool failed, size_t first, message_list_t *specs) {
        for (auto &spec : take_specs(response)) {
            const bool read =
                !failed || encode_record(layout_, *spec).find_first_not_of('\0') != std::string::npos;
            if (read) {
                specs->push_back(std::move(spec));
            } else {
                missing_.push_back(first);
            }
            first++;
        }
    }

    void add_failure(size_t first, size_t count, const std::string &status) {
        if (failures_++ < k_named_max) {
            failed_.push_back(fmt::format("{}: {}", range_text(first, first + count - 1), status));
        }
        several_ = several_ || count > 1;
    }

    const global_options_s &global_;
    const table_layout_s &layout_;
    const pb::MethodDescriptor *method_;
    const bool get_;
    const size_t all_;
    size_t failures_ = 0;
    bool several_ = false;
    std::vector<std::string> failed_;
    std::vector<size_t> missing_;
};

}  // namespace

outcome_s get_entry(const global_options_s &global, const table_layout_s &layout, const pb::Message &key,
                    pb::Message *spec) {
    message_list_t keys;
    keys.emplace_back(key.New())->CopyFrom(key);
    rows_s rows;
    message_list_t specs;
    outcome_s outcome = send_entries(global, layout, "Get", keys, {}, &rows, &specs);
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS) {
        return {outcome.exit_code,
                fmt::format("{}: no entry with {} could be read: {}; most likely no such entry exists, the "
                            "service does not "
                            "say why",
                            layout.name, key_text(layout, key), cell_text(rows.rows.back().back()))};
    }
    if (outcome.ok() && specs.empty()) {
        return local_failure(layout.name + ": the agent's answer holds no entry");
    }
    if (outcome.ok()) {
        spec->CopyFrom(*specs.front());
    }
    return outcome;
}

outcome_s send_entries(const global_options_s &global, const table_layout_s &layout,
                       const std::string &operation, entries_t entries, const progress_t &progress,
                       rows_s *rows, message_list_t *specs) {
    *rows = {.subject = "requests", .columns = {"first", "last", "api_status"}, .rows = {}};
    requests all(global, layout, operation, entries.size());
    for (size_t at = 0; at < entries.size(); at += k_entries_per_request) {
        const size_t count = std::min(k_entries_per_request, entries.size() - at);
        outcome_s outcome = all.send(entries.subspan(at, count), at + 1, rows, specs);
        if (!outcome.ok()) {
            return outcome;
        }
        if (progress) {
            progress(at + count);
        }
    }
    return all.result();
}

}  // namespace nyxctl
