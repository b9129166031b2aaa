#include "host/agent_log.h"

#include <spdlog/async_logger.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "base/text.h"

namespace host {

namespace {

using clock = std::chrono::steady_clock;

constexpr const char *k_name = "nyx-agent";
constexpr size_t k_queue_lines = 2048, k_max_line_size = 1024, k_max_call_sites = 256;

std::string_view call_site_of(std::string_view line) {
    const size_t end = line.starts_with('[') ? line.find("] ") : line.npos;
    return end == line.npos ? std::string_view() : line.substr(0, end + 2);
}

}  // namespace

// At the front: on the threads that log. Has a lock of its own, because ThreadSanitizer does not see that of spdlog's
// base_sink.
class limiting_sink : public spdlog::sinks::sink {
 public:
    limiting_sink(std::shared_ptr<spdlog::async_logger> queue, unsigned lines_a_second)
        : queue_(std::move(queue)), lines_a_second_(lines_a_second) {}

    void log(const spdlog::details::log_msg &line) override {
        const std::lock_guard guard(mutex_);
        if (takes(line)) {
            const std::string_view text(line.payload.data(), std::min(line.payload.size(), k_max_line_size));
            const auto whole = base::without_cut_character(text);
            queue_->log(line.time, line.source, line.level, {whole.data(), whole.size()});
        }
    }

    // The writer flushes after each line. A request to flush would take the place of a line in the queue.
    void flush() override {}

    // The format is that of the sink at the back.
    void set_pattern(const std::string &) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

    void report_all() {
        const std::lock_guard guard(mutex_);
        report_sites(clock::time_point::max());
    }

 private:
    struct call_site_s {
        clock::time_point second_begin;
        unsigned lines = 0;
        uint64_t left_out = 0;
        spdlog::level::level_enum level = spdlog::level::err;
    };

    bool takes(const spdlog::details::log_msg &line) {
        if (lines_a_second_ == 0) {
            return true;
        }
        const auto now = clock::now();
        if (any_left_out_) {
            report_sites(now);
        }
        call_site_s &site = site_of({line.payload.data(), line.payload.size()});
        if (now - site.second_begin >= std::chrono::seconds(1)) {
            site = {.second_begin = now};
        }
        if (site.lines < lines_a_second_) {
            site.lines++;
            return true;
        }
        site.left_out++;
        site.level = line.level;
        any_left_out_ = true;
        return false;
    }

    call_site_s &site_of(std::string_view line) {
        const auto name = call_site_of(line);
        const auto found = sites_.find(name);
        if (found != sites_.end()) {
            return found->second;
        }
        return sites_[std::string(sites_.size() < k_max_call_sites ? name : "")];
    }

    // Of the sites whose second is over.
    void report_sites(clock::time_point now) {
        any_left_out_ = false;
        for (auto &[name, site] : sites_) {
            if (site.left_out > 0 && now - site.second_begin >= std::chrono::seconds(1)) {
                queue_->log(site.level, "{}{} more lines from here were left out", name, site.left_out);
                site.left_out = 0;
            }
            any_left_out_ = any_left_out_ || site.left_out > 0;
        }
    }

    const std::shared_ptr<spdlog::async_logger> queue_;
    const unsigned lines_a_second_;
    std::mutex mutex_;
    std::map<std::string, call_site_s, std::less<>> sites_;
    bool any_left_out_ = false;
};

// At the back: on the writer, but for what waits for it.
class reporting_sink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
    reporting_sink(spdlog::sink_ptr target, spdlog::details::thread_pool *queue)
        : target_(std::move(target)), queue_(queue) {}

    uint64_t flushes() {
        const std::lock_guard guard(flush_lock_);
        return flushes_;
    }

    bool wait_for_flush_after(uint64_t flushes, std::chrono::milliseconds patience) {
        std::unique_lock guard(flush_lock_);
        return flushed_.wait_for(guard, patience, [&] { return flushes_ > flushes; });
    }

 private:
    void sink_it_(const spdlog::details::log_msg &line) override {
        target_->log(line);
        const size_t overruns = queue_->overrun_counter();
        if (overruns != reported_) {
            const std::string text = std::to_string(overruns - reported_) +
                                     " lines were left out: whoever reads this log was too slow";
            target_->log({k_name, spdlog::level::warn, text});
            reported_ = overruns;
        }
    }

    void flush_() override {
        target_->flush();
        const std::lock_guard guard(flush_lock_);
        flushes_++;
        flushed_.notify_all();
    }

    const spdlog::sink_ptr target_;
    spdlog::details::thread_pool *const queue_;
    size_t reported_ = 0;
    std::mutex flush_lock_;
    std::condition_variable flushed_;
    uint64_t flushes_ = 0;
};

agent_log::agent_log(spdlog::sink_ptr target, unsigned lines_a_second)
    : writer_(std::make_shared<spdlog::details::thread_pool>(k_queue_lines, 1)),
      reporting_(std::make_shared<reporting_sink>(std::move(target), writer_.get())),
      queue_(std::make_shared<spdlog::async_logger>(k_name, reporting_, writer_,
                                                    spdlog::async_overflow_policy::overrun_oldest)),
      limiting_(std::make_shared<limiting_sink>(queue_, lines_a_second)),
      logger_(std::make_shared<spdlog::logger>(k_name, limiting_)) {
    queue_->set_level(spdlog::level::trace);  // the logger in front decides
}

agent_log::~agent_log() = default;

bool agent_log::drain(std::chrono::milliseconds patience) {
    limiting_->report_all();
    const uint64_t before = reporting_->flushes();
    queue_->flush();
    return reporting_->wait_for_flush_after(before, patience);
}

}  // namespace host
