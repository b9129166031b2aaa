// Makes the agent's trace logger collect its lines.

#pragma once

#include <spdlog/sinks/base_sink.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent_api/trace_logger.h"

namespace test {

class collecting_sink : public spdlog::sinks::base_sink<std::mutex> {
 public:
    std::vector<std::string> lines() {
        std::lock_guard guard(mutex_);
        return lines_;
    }
    int flushes() {
        std::lock_guard guard(mutex_);
        return flushes_;
    }
    void throw_from_now_on() { throws_ = true; }

 protected:
    void sink_it_(const spdlog::details::log_msg &line) override {
        if (throws_) {
            throw std::runtime_error("the sink is broken");
        }
        lines_.emplace_back(line.payload.begin(), line.payload.end());
    }

 private:
    void flush_() override { flushes_++; }

    std::vector<std::string> lines_;
    int flushes_ = 0;
    std::atomic<bool> throws_ = false;
};

// While this lives, it is the agent's trace logger.
class trace_capture {
 public:
    explicit trace_capture(int32_t level = 3) : log_(std::make_shared<spdlog::logger>("test", sink_), level) {
        core::g_trace_logger = &log_;
    }
    ~trace_capture() { core::g_trace_logger = nullptr; }

    utils::log &log() { return log_; }
    collecting_sink &sink() { return *sink_; }

    // The lines without the "[function:line] " that each starts with.
    std::vector<std::string> messages() {
        std::vector<std::string> messages;
        for (const auto &line : sink_->lines()) {
            messages.push_back(line.substr(line.find("] ") + 2));
        }
        return messages;
    }

 private:
    std::shared_ptr<collecting_sink> sink_ = std::make_shared<collecting_sink>();
    utils::log log_;
};

}  // namespace test
