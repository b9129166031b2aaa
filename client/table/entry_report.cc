#include "client/table/entry_report.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <utility>

#include "client/core/json.h"
#include "client/core/text_io.h"
#include "client/table/record_rows.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using clock_t = std::chrono::steady_clock;

constexpr size_t k_lines_named = 10;
constexpr size_t k_reasons_named = 10;
constexpr size_t k_block = size_t{64} << 10;
constexpr char k_more_reasons[] = "other reasons";

constexpr const char *k_verdict_names[] = {"read",   "added",  "updated", "unchanged", "deleted",
                                           "absent", "failed", "invalid", "unknown"};
static_assert(std::size(k_verdict_names) == VERDICTS);

std::string verdict_text(size_t verdict, bool is_dry) {
    switch (verdict) {
        case VERDICT_ADDED:
            return is_dry ? "to add" : "added";
        case VERDICT_UPDATED:
            return is_dry ? "to update" : "updated";
        case VERDICT_DELETED:
            return is_dry ? "to delete" : "deleted";
        default:
            return k_verdict_names[verdict];
    }
}

std::string reason_text(const entry_result_s &result) {
    switch (result.verdict) {
        case VERDICT_ABSENT:
            return "no entry has this key";
        case VERDICT_UNCHANGED:
            return "the table has an entry with this key, and with these values";
        default:
            return std::string(result.reason);
    }
}

char mark_of(verdict_e verdict) {
    switch (verdict) {
        case VERDICT_ADDED:
            return '+';
        case VERDICT_UPDATED:
            return '~';
        case VERDICT_DELETED:
            return '-';
        default:
            return '!';
    }
}

const pb::Message &key_in(const pb::Message &spec) {
    return spec.GetReflection()->GetMessage(spec, spec.GetDescriptor()->FindFieldByName("key"));
}

std::string key_of(const table_layout_s &layout, const entry_result_s &result) {
    const pb::Message *spec = result.after ? result.after : result.before;
    return spec ? key_text(layout, key_in(*spec)) : "";
}

rows_s changes_of(const table_layout_s &layout, const entry_result_s &result) {
    return result.verdict == VERDICT_UPDATED && result.before && result.after
               ? change_rows(layout, *result.before, *result.after)
               : rows_s{.subject = "fields", .columns = {"field", "old", "new"}, .rows = {}};
}

std::string change_json(const table_layout_s &layout, const entry_result_s &result) {
    return rows_to_json(changes_of(layout, result), {{"change", k_verdict_names[result.verdict]},
                                                     {"line", result.entry.line},
                                                     {"key", key_of(layout, result)}});
}

std::string change_text(const table_layout_s &layout, const entry_result_s &result) {
    std::vector<std::string> changes;
    for (const row_t &row : changes_of(layout, result).rows) {
        changes.push_back(
            fmt::format("{} {} -> {}", cell_text(row[0]), cell_text(row[1]), cell_text(row[2])));
    }
    if (mark_of(result.verdict) == '!') {
        changes.push_back(reason_text(result));
    }
    const std::string key = key_of(layout, result);
    return fmt::format("{} {}{}{}", mark_of(result.verdict),
                       key.empty() ? fmt::format("line {}", result.entry.line) : key,
                       changes.empty() ? "" : ": ", fmt::join(changes, ", "));
}

bool is_to_try_again(verdict_e verdict) {
    return verdict == VERDICT_FAILED || verdict == VERDICT_INVALID || verdict == VERDICT_UNKNOWN;
}

}  // namespace

entry_report::entry_report(const global_options_s &global, const table_layout_s &layout,
                           report_options_s options)
    : global_(global),
      layout_(layout),
      options_(std::move(options)),
      shows_progress_(!global.json && isatty(STDERR_FILENO) == 1),
      start_(clock_t::now()),
      shown_(start_) {}

outcome_s entry_report::open(const entry_source &source) {
    if (options_.failed_file.empty()) {
        return {};
    }
    std::error_code unused;
    if (std::filesystem::equivalent(options_.failed_file, source.name(), unused)) {
        return usage_failure(
            fmt::format("--failed \"{}\" is the file that is read; give another one", options_.failed_file));
    }
    failed_file_.reset(::open(options_.failed_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    return failed_file_.valid() ? outcome_s()
                                : local_failure(fmt::format("cannot open \"{}\": {}", options_.failed_file,
                                                            std::strerror(errno)));
}

outcome_s entry_report::run(entry_source *source, stream_options_s options) {
    is_dry_ = options.dry_run;
    is_get_ = options.operation == OPERATION_GET;
    one_ = source->is_file() ? "" : source->line_of("");
    list_ = is_get_ ? "entries" : options_.shows_changes ? "changes" : "";
    options.take = [&](const entry_result_s &result) { return take(*source, options, result); };
    if (shows_progress_) {
        options.progress = [&](const totals_s &totals) { show_progress(*source, totals); };
    }
    totals_s totals;
    outcome_s ended = run_stream(global_, source, options, &totals);
    for (size_t i = 0; i < VERDICTS; i++) {
        totals_.counts[i] += totals.counts[i];
    }
    totals_.next_line = totals.next_line;
    if (ended.ok() && totals.all() == 0 && !options.wants) {
        ended = usage_failure(fmt::format("\"{}\" holds no entries", source->name()));
    }
    return ended;
}

outcome_s entry_report::take(const entry_source &source, const stream_options_s &options,
                             const entry_result_s &result) {
    if (!options_.done.contains(result.verdict)) {
        add_failure(source, result);
    }
    if (is_to_try_again(result.verdict) && failed_file_.valid() && !options.wants) {
        if (outcome_s outcome = keep(source, result); !outcome.ok()) return outcome;
    }
    if (result.verdict == VERDICT_READ) {
        return print(message_json(*result.before));
    }
    if (options_.shows_changes && !is_get_ && result.verdict != VERDICT_UNCHANGED) {
        return print(global_.json ? change_json(layout_, result) : change_text(layout_, result));
    }
    return {};
}

// Adds the entry to the file for those to try again.
outcome_s entry_report::keep(const entry_source &source, const entry_result_s &result) {
    std::string text = source.line_of(result.entry.text) + "\n";
    if (failed_file_entries_++ == 0 && !source.head().empty()) {
        text.insert(0, source.head() + "\n");
    }
    for (std::string_view rest = text; !rest.empty();) {
        const ssize_t written = ::write(failed_file_.get(), rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            return local_failure(
                fmt::format("cannot write to \"{}\": {}", options_.failed_file, std::strerror(errno)));
        }
        rest.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    return {};
}

void entry_report::add_failure(const entry_source &source, const entry_result_s &result) {
    not_done_++;
    std::string reason = reason_text(result);
    if (failures_.size() >= k_reasons_named && !failures_.contains(reason)) {
        reason = k_more_reasons;
    }
    failed_s &failed = failures_[reason];
    if (failed.count++ < k_lines_named && source.is_file()) {
        failed.lines.push_back(result.entry.line);
    }
}

// A line, or with -j an element of the document.
outcome_s entry_report::print(const std::string &element) {
    out_ += !global_.json ? "" : printed_ == 0 ? "{\"" + list_ + "\": [\n" : ",\n";
    out_ += element;
    out_ += global_.json ? "" : "\n";
    printed_++;
    return flush(k_block);
}

outcome_s entry_report::flush(size_t unless_below) {
    if (out_.size() < unless_below) {
        return {};
    }
    outcome_s outcome = write_stdout(out_);
    out_.clear();
    return outcome;
}

void entry_report::show_progress(const entry_source &source, const totals_s &totals) {
    const auto now = clock_t::now();
    if (now - shown_ < std::chrono::milliseconds(200)) {
        return;
    }
    shown_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const auto rate = static_cast<double>(totals.all()) / seconds;
    std::string left;
    if (source.bytes() > 0 && source.bytes_done() > 0) {
        const auto done = static_cast<double>(source.bytes_done());
        left = fmt::format(", {:.0f} s left", seconds * (static_cast<double>(source.bytes()) / done - 1));
    }
    std::cerr << fmt::format("\r{}: {} entries, {:.0f}/s{}, {} not {}\x1b[K", layout_.name, totals.all(),
                             rate, left, not_done_, options_.word)
              << std::flush;
}

std::string entry_report::counts_text() const {
    std::vector<std::string> texts;
    for (size_t i = 0; i < VERDICTS; i++) {
        if (totals_.counts[i] > 0) {
            texts.push_back(fmt::format("{} {}", totals_.counts[i], verdict_text(i, is_dry_)));
        }
    }
    const size_t all = totals_.all();
    const char *noun = all == 1 ? "entry" : "entries";
    if (texts.size() == 1) {
        return fmt::format("{}: {} {}{}", layout_.name, all, noun,
                           texts.front().substr(texts.front().find(' ')));
    }
    return fmt::format("{}: {} {}: {}", layout_.name, all, noun, fmt::join(texts, ", "));
}

members_t entry_report::members() const {
    members_t members = {{"table", layout_.name}, {"total", totals_.all()}};
    for (size_t i = 0; i < VERDICTS; i++) {
        if (totals_.counts[i] > 0) members.emplace_back(k_verdict_names[i], totals_.counts[i]);
    }
    return members;
}

std::string entry_report::failures_text() const {
    std::vector<std::string> texts;
    for (const auto &[reason, failed] : failures_) {
        const size_t more = failed.count - failed.lines.size();
        texts.push_back(failed.lines.empty()
                            ? reason
                            : fmt::format("line{} {}{}: {}", failed.count == 1 ? "" : "s",
                                          fmt::join(failed.lines, ", "),
                                          more ? fmt::format(" and {} more", more) : "", reason));
    }
    const std::string subject =
        one_.empty() ? fmt::format("{} of {} entries", not_done_, totals_.all()) : "the entry " + one_;
    return fmt::format("{}: {} {} not {}: {}", layout_.name, subject,
                       one_.empty() && not_done_ > 1 ? "were" : "was", options_.word, fmt::join(texts, "; "));
}

// What an early end leaves, and where to go on.
std::string entry_report::rest_text(const outcome_s &ended) const {
    const auto lost = failures_.find(ended.text);
    std::string text = lost == failures_.end() ? ended.text + "; " : "";
    text += failures_.empty() ? "" : failures_text() + "; ";
    if (totals_.counts[VERDICT_UNKNOWN] > 0) {
        text += fmt::format("{} were sent, and their outcome is unknown; ", totals_.counts[VERDICT_UNKNOWN]);
    }
    const bool repeats = lost != failures_.end() && !lost->second.lines.empty() && !failed_file_.valid();
    return text +
           fmt::format("go on with --from {}", repeats ? lost->second.lines.front() : totals_.next_line);
}

outcome_s entry_report::finish(const outcome_s &ended) {
    if (shows_progress_) {
        std::cerr << "\r\x1b[K";
    }
    if (global_.json) {
        close_document();
    }
    if (outcome_s outcome = flush(0); !outcome.ok()) {
        return outcome;
    }
    if (!global_.json && totals_.all() > 0 && (one_.empty() || not_done_ == 0)) {
        std::cerr << counts_text() << std::endl;
    }
    if (!ended.ok()) {
        const bool partly = totals_.written() > 0 || totals_.counts[VERDICT_READ] > 0;
        return {partly ? NYXCTL_EXIT_PARTLY : ended.exit_code,
                one_.empty() && totals_.all() > 0 ? rest_text(ended) : ended.text};
    }
    if (not_done_ == 0) {
        return {};
    }
    return {totals_.counts[VERDICT_INVALID] > 0 ? NYXCTL_EXIT_PARTLY : NYXCTL_EXIT_API_STATUS,
            failures_text()};
}

void entry_report::close_document() {
    const std::string totals = json_text(members());
    if (list_.empty()) {
        out_ += indented(totals) + "\n";
        return;
    }
    out_ += printed_ == 0 ? "{\"" + list_ + "\": [" : "";
    out_ += is_get_ ? "\n]}\n" : "\n], " + totals.substr(1) + "\n";
}

}  // namespace nyxctl
