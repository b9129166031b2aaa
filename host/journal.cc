#include "host/journal.h"

#include <fmt/format.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

#include "host/audit.h"

namespace host {

namespace {

int priority_of(spdlog::level::level_enum level) {
    switch (level) {
        case spdlog::level::critical:
            return LOG_CRIT;
        case spdlog::level::err:
            return LOG_ERR;
        case spdlog::level::warn:
            return LOG_WARNING;
        case spdlog::level::info:
            return LOG_INFO;
        default:
            return LOG_DEBUG;
    }
}

class journal_sink final : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg &line) override {
        const std::string_view text(line.payload.data(), line.payload.size());
        auto fields = journal_fields(text);
        fields.push_back(fmt::format("MESSAGE={}", text));
        fields.push_back(fmt::format("PRIORITY={}", priority_of(line.level)));
        fields.push_back("SYSLOG_IDENTIFIER=nyx-agent");
        std::vector<iovec> parts;
        for (std::string &field : fields) {
            parts.push_back({.iov_base = field.data(), .iov_len = field.size()});
        }
        sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
    }
    void flush_() override {}
};

// JOURNAL_STREAM is inherited by what has another stderr, too; see systemd.exec(5).
bool stderr_is_the_journal() {
    const char *journal = getenv("JOURNAL_STREAM");
    struct stat status;
    return journal && fstat(STDERR_FILENO, &status) == 0 &&
           fmt::format("{}:{}", status.st_dev, status.st_ino) == journal;
}

}  // namespace

spdlog::sink_ptr make_log_target() {
    if (stderr_is_the_journal()) {
        return std::make_shared<journal_sink>();
    }
    return std::make_shared<spdlog::sinks::stderr_sink_mt>();
}

std::vector<std::string> journal_fields(std::string_view line) {
    std::vector<std::string> fields;
    if (!line.starts_with(k_audit)) {
        return fields;
    }
    while (!line.empty()) {
        const auto word = line.substr(0, line.find(' '));
        line.remove_prefix(std::min(word.size() + 1, line.size()));
        if (const size_t equals = word.find('='); equals != word.npos) {
            std::string name(word.substr(0, equals));
            std::ranges::transform(name, name.begin(), [](unsigned char c) { return toupper(c); });
            fields.push_back(fmt::format("NYX_{}={}", name, word.substr(equals + 1)));
        }
    }
    return fields;
}

}  // namespace host
