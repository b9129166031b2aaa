#include "client/table/entry_stream.h"

#include <fmt/format.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/proto_utils.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <numeric>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/interrupt.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/table/entry_batch.h"
#include "client/table/record_codec.h"
#include "client/table/table_calls.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_entries_per_request = 1000;
constexpr size_t k_text_per_request = size_t{1} << 20;
constexpr size_t k_window = 8;  // requests under way

constexpr char k_other_values[] = "the table has an entry with this key and other values";

using stub_t = grpc::TemplatedGenericStub<pb::Message, pb::Message>;

struct call_s {
    const table_method_s *method;
    grpc::ClientContext context;
    grpc::Status status;
    std::unique_ptr<grpc::ClientAsyncResponseReader<pb::Message>> reader;
};

struct batch_s : entry_batch_s {
    using entry_batch_s::entry_batch_s;

    std::unique_ptr<call_s> call;
};

bool is_zero(std::string_view record) { return record.find_first_not_of('\0') == record.npos; }

verdict_e verdict_of(step_e step) {
    return step == STEP_CREATE ? VERDICT_ADDED : step == STEP_UPDATE ? VERDICT_UPDATED : VERDICT_DELETED;
}

class stream {
 public:
    stream(const global_options_s &global, entry_source *source, const stream_options_s &options,
           totals_s *totals)
        : global_(global),
          source_(*source),
          layout_(source->layout()),
          options_(options),
          totals_(*totals),
          methods_(layout_),
          reads_only_(options.dry_run || options.operation == OPERATION_GET) {}

    ~stream() {
        queue_.Shutdown();
        void *tag = nullptr;
        bool ok = false;
        while (queue_.Next(&tag, &ok)) {
        }
    }
    stream(const stream &) = delete;
    stream &operator=(const stream &) = delete;

    outcome_s run() {
        while (start_batches() || !window_.empty()) {
            void *tag = nullptr;
            bool ok = false;
            queue_.Next(&tag, &ok);
            advance(static_cast<batch_s *>(tag));
            while (!window_.empty() && window_.front()->is_done) {
                finish_first();
            }
        }
        return end_;
    }

 private:
    bool is_ended() const { return is_at_end_ || !end_.ok(); }
    void end(const outcome_s &why) { end_ = end_.ok() ? why : end_; }

    // Returns whether anything is under way.
    bool start_batches() {
        while (!is_ended() && window_.size() < k_window) {
            if (!filling_) {
                filling_ = new_batch();
            }
            if (!fill(filling_.get()) || !connect()) {
                break;
            }
            totals_.next_line = filling_->entries.back().line + 1;
            window_.push_back(std::move(filling_));
            call(window_.back().get(), STEP_NONE, methods_.get, *window_.back()->keys,
                 window_.back()->before.get());
        }
        return !window_.empty();
    }

    std::unique_ptr<batch_s> new_batch() {
        if (unused_.empty()) {
            return std::make_unique<batch_s>(layout_, methods_, source_.is_key());
        }
        std::unique_ptr<batch_s> batch = std::move(unused_.back());
        unused_.pop_back();
        batch->clear();
        return batch;
    }

    // Goes on filling the batch. Returns whether it is to be sent now: it is full, or nothing follows, or nothing else
    // is under way while the source has to be waited for.
    bool fill(batch_s *batch) {
        end(interrupted() ? interrupted_failure() : outcome_s());
        entry_text_s entry;
        bool is_full = false;
        while (end_.ok() && !is_full && take_entry(&entry, window_.empty() && batch->entries.empty())) {
            is_full = !add(entry, batch) || batch->entries.size() == k_entries_per_request ||
                      batch->texts.size() >= k_text_per_request;
        }
        end(source_.failure());
        is_at_end_ = !is_full && source_.is_at_end();
        if (!end_.ok() || batch->entries.empty() || (!is_full && !is_at_end_ && !window_.empty())) {
            return false;
        }
        batch->copy_keys();
        return true;
    }

    bool take_entry(entry_text_s *entry, bool may_wait) {
        if (held_) {
            *entry = {.text = held_->first, .line = held_->second};
            return true;
        }
        return source_.next(entry, may_wait);
    }

    // Returns false when the batch ends before the entry: it is wrong, or an entry with its key is under way.
    bool add(const entry_text_s &text, batch_s *batch) {
        pb::Message *message = batch->add_message();
        const outcome_s outcome = source_.at(text.line, source_.read(text, message));
        if (!outcome.ok() && !options_.keep_going) {
            end(outcome);
            return false;
        }
        batch_entry_s entry = {.line = text.line};
        if (!outcome.ok()) {
            message->Clear();
            entry.verdict = VERDICT_INVALID;
            entry.reason = batch->reasons.emplace_back(outcome.text);
        }
        const std::string key = encode_key(
            layout_,
            source_.is_key() ? *message : message->GetReflection()->GetMessage(*message, layout_.key_field));
        entry.has_zero_key = is_zero(key);
        if (outcome.ok() && !claim(key, &entry)) {
            batch->drop_message();
            return hold(text, entry.key);
        }
        batch->add(entry, text.text);
        held_.reset();
        return true;
    }

    // Two writes of one key must not be under way at once.
    bool claim(const std::string &key, batch_entry_s *entry) {
        if (reads_only_ && !options_.wants) {
            return true;
        }
        entry->key = std::hash<std::string>()(key);
        return (!options_.wants || options_.wants(entry->key)) && under_way_.insert(entry->key).second;
    }

    // Keeps the entry for a later batch, or passes over it.
    bool hold(const entry_text_s &entry, key_hash_t key) {
        if (!under_way_.contains(key)) {
            held_.reset();
            return true;
        }
        if (!held_) {
            std::string text;
            text.reserve(entry.text.size() + k_json_padding);
            held_.emplace(text.append(entry.text), entry.line);
        }
        return false;
    }

    bool connect() {
        if (!stub_) {
            std::shared_ptr<grpc::Channel> channel;
            end(connected_channel(global_, methods_.get.method, &channel));
            stub_ = std::make_unique<stub_t>(channel);
        }
        return end_.ok();
    }

    void call(batch_s *batch, step_e step, const table_method_s &method, const pb::Message &request,
              pb::Message *response) {
        batch->step = step;
        batch->call = std::make_unique<call_s>();
        batch->call->method = &method;
        batch->call->context.set_deadline(std::chrono::system_clock::now() + global_.timeout());
        batch->call->reader = stub_->PrepareUnaryCall(&batch->call->context, "/" + method_path(method.method),
                                                      request, &queue_);
        batch->call->reader->StartCall();
        batch->call->reader->Finish(response, &batch->call->status, batch);
    }

    // After an answer: judges, and takes the next step.
    void advance(batch_s *batch) {
        const grpc::Status status = batch->call->status;
        if (!status.ok()) {
            end(call_failure(global_, batch->call->method->method, status));
            is_lost_ = true;
            is_late_ = is_late_ || status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED;
        }
        if (batch->step == STEP_NONE) {
            status.ok() ? judge_before(batch) : give_up(batch);
            return write(batch, STEP_CREATE);
        }
        if (batch->step == STEP_CHECK) {
            status.ok() ? judge_after(batch) : give_up(batch);
            batch->is_done = true;
            return;
        }
        judge_write(batch, status);
        write(batch, batch->step + 1);
    }

    // Sends the next step that entries have to take, from `step` on.
    void write(batch_s *batch, int step) {
        if (is_lost_) {
            give_up(batch);
        }
        for (; step < STEP_CHECK; step++) {
            const auto next = static_cast<step_e>(step);
            if (std::ranges::any_of(batch->entries, [&](const auto &entry) { return entry.has_to(next); })) {
                const auto &method = next == STEP_CREATE   ? methods_.create
                                     : next == STEP_UPDATE ? methods_.update
                                                           : methods_.remove;
                return call(batch, next, method, batch->request_for(next), answer_of(batch, next));
            }
        }
        batch->is_done = is_late_ || std::ranges::none_of(batch->entries, &batch_entry_s::is_doubtful);
        if (!batch->is_done) {
            call(batch, STEP_CHECK, methods_.get, *batch->keys, batch->after.get());
        }
    }

    static pb::Message *answer_of(batch_s *batch, step_e step) {
        return step == STEP_DELETE ? batch->delete_answer.get() : batch->write_answer.get();
    }

    // The answer to a key of zeros is ambiguous among answers that failed.
    bool is_there(const batch_s &batch, const pb::Message &response, bool failed, size_t i) {
        if (!failed || !is_absent(methods_.get.spec(response, i))) {
            return true;
        }
        const auto alone = new_message(layout_.spec);
        return batch.entries[i].has_zero_key && get_entry(global_, layout_, batch.key(i), alone.get()).ok();
    }

    // Whether it is the answer of a read that failed: a record of zeros, which an agent always sends with the same bytes.
    bool is_absent(const pb::Message &spec) {
        std::string bytes = spec.SerializeAsString();
        if (bytes == absent_) {
            return true;
        }
        const bool is_it = is_zero(encode_record(layout_, spec));
        absent_ = is_it ? std::move(bytes) : absent_;
        return is_it;
    }

    bool answers_all(batch_s *batch, const pb::Message &response) {
        if (element_count(response, methods_.get.answers) == static_cast<int>(batch->entries.size())) {
            return true;
        }
        end(local_failure(layout_.name + ": the agent's answer does not hold an entry for each key"));
        give_up(batch);
        return false;
    }

    void judge_before(batch_s *batch) {
        const bool failed = failed_api_status(*batch->before).has_value();
        if (!answers_all(batch, *batch->before)) {
            return;
        }
        for (size_t i = 0; i < batch->entries.size(); i++) {
            batch_entry_s &entry = batch->entries[i];
            if (entry.verdict != VERDICT_INVALID) {
                entry.was_there = is_there(*batch, *batch->before, failed, i);
                plan(batch, i);
                if (options_.dry_run && entry.step != STEP_NONE) {
                    entry.verdict = entry.was_there || entry.step == STEP_CREATE ? verdict_of(entry.step)
                                                                                 : VERDICT_ABSENT;
                    entry.step = STEP_NONE;
                }
            }
        }
    }

    // Decides what to do with an entry that was read.
    void plan(batch_s *batch, size_t i) {
        batch_entry_s &entry = batch->entries[i];
        const auto settle = [&](verdict_e verdict) { entry.verdict = verdict; };
        switch (options_.operation) {
            case OPERATION_GET:
                return settle(entry.was_there ? VERDICT_READ : VERDICT_ABSENT);
            case OPERATION_DELETE:
                entry.step = STEP_DELETE;
                return;
            case OPERATION_UPDATE:
                if (!entry.was_there) return settle(VERDICT_ABSENT);
                batch->merge(i, &source_);
                break;
            default:
                break;
        }
        if (entry.was_there && batch->is_right(i, methods_.get.spec(*batch->before, i))) {
            return settle(VERDICT_UNCHANGED);
        }
        if (options_.operation == OPERATION_ADD && entry.was_there) {
            entry.reason = k_other_values;
            return settle(VERDICT_FAILED);
        }
        const bool is_new = !entry.was_there && options_.operation != OPERATION_REPLACE;
        entry.step = is_new ? STEP_CREATE : STEP_UPDATE;
    }

    void judge_write(batch_s *batch, const grpc::Status &status) {
        const auto failed = status.ok() ? failed_api_status(*answer_of(batch, batch->step)) : end_.text;
        const std::string_view reason = failed ? batch->reasons.emplace_back(*failed) : std::string_view();
        for (batch_entry_s &entry : batch->entries) {
            if (entry.step == batch->step && failed) {
                entry.reason = reason;
            } else if (entry.step == batch->step) {
                entry.verdict = verdict_of(batch->step);
            }
        }
    }

    void judge_after(batch_s *batch) {
        const bool failed = failed_api_status(*batch->after).has_value();
        if (!answers_all(batch, *batch->after)) {
            return;
        }
        for (size_t i = 0; i < batch->entries.size(); i++) {
            batch_entry_s &entry = batch->entries[i];
            if (entry.verdict != VERDICT_UNKNOWN) {
                continue;
            }
            const bool is_left = is_there(*batch, *batch->after, failed, i);
            if (entry.step == STEP_DELETE) {
                entry.verdict = is_left ? VERDICT_FAILED : entry.was_there ? VERDICT_DELETED : VERDICT_ABSENT;
            } else {
                const bool is_right = is_left && batch->is_right(i, methods_.get.spec(*batch->after, i));
                entry.verdict = is_right                                ? verdict_of(entry.step)
                                : !is_left && entry.step == STEP_UPDATE ? VERDICT_ABSENT
                                                                        : VERDICT_FAILED;
            }
        }
    }

    // Entries that were sent stay unknown, the others will not be sent.
    void give_up(batch_s *batch) {
        const std::string_view reason = batch->reasons.emplace_back(end_.text);
        for (batch_entry_s &entry : batch->entries) {
            if (entry.verdict == VERDICT_UNKNOWN && entry.reason.empty()) {
                entry.verdict = VERDICT_FAILED;
                entry.reason = reason;
            }
        }
    }

    void finish_first() {
        batch_s &batch = *window_.front();
        for (size_t i = 0; i < batch.entries.size(); i++) {
            const batch_entry_s &entry = batch.entries[i];
            totals_.counts[entry.verdict]++;
            under_way_.erase(entry.key);
            if (options_.take) {
                const bool has_after = !source_.is_key() && options_.operation != OPERATION_DELETE;
                end(options_.take({.verdict = entry.verdict,
                                   .entry = batch.text_of(entry),
                                   .reason = entry.reason,
                                   .before = entry.was_there ? &methods_.get.spec(*batch.before, i) : nullptr,
                                   .after = has_after ? batch.spec(i) : nullptr}));
            }
        }
        if (options_.progress) {
            options_.progress(totals_);
        }
        unused_.push_back(std::move(window_.front()));
        window_.pop_front();
    }

    const global_options_s &global_;
    entry_source &source_;
    const table_layout_s &layout_;
    const stream_options_s &options_;
    totals_s &totals_;
    const table_methods_s methods_;
    const bool reads_only_;
    grpc::CompletionQueue queue_;
    std::unique_ptr<stub_t> stub_;
    std::unique_ptr<batch_s> filling_;  // the next one
    std::deque<std::unique_ptr<batch_s>> window_;
    std::vector<std::unique_ptr<batch_s>> unused_;
    std::unordered_set<key_hash_t> under_way_;
    std::string absent_;  // the bytes of an entry that could not be read
    std::optional<std::pair<std::string, size_t>> held_;
    bool is_at_end_ = false;
    bool is_lost_ = false;  // nothing more is sent
    bool is_late_ = false;  // a write may still go on at the agent
    outcome_s end_;         // why it ends early
};

}  // namespace

size_t totals_s::all() const { return std::accumulate(counts.begin(), counts.end(), size_t{0}); }

size_t totals_s::written() const {
    return counts[VERDICT_ADDED] + counts[VERDICT_UPDATED] + counts[VERDICT_DELETED] +
           counts[VERDICT_UNKNOWN];
}

outcome_s run_stream(const global_options_s &global, entry_source *source, const stream_options_s &options,
                     totals_s *totals) {
    return stream(global, source, options, totals).run();
}

}  // namespace nyxctl
