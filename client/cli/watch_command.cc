#include "client/cli/watch_command.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <mutex>
#include <thread>

#include "client/core/text_io.h"
#include "client/view/rates.h"

namespace nyxctl {
namespace {

using steady_t = std::chrono::steady_clock;

constexpr char k_clear[] = "\x1b[H\x1b[2J";
constexpr auto k_patience = std::chrono::seconds(1);

struct round_s {
    shown_s shown;
    steady_t::time_point at;
};

std::string local_time() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char text[32];
    localtime_r(&now, &parts);
    return {text, std::strftime(text, sizeof text, "%F %T %z", &parts)};
}

// Ends the program with 0 on SIGINT, whatever it is waiting for, but not while a block is being written: whoever
// writes holds the mutex. The signal is blocked in this thread and in those that it starts from now on.
std::timed_mutex &end_on_interrupt() {
    static std::timed_mutex writing;
    static sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    std::thread([] {
        int number = 0;
        sigwait(&interrupt, &number);
        (void)writing.try_lock_for(k_patience);
        _exit(NYXCTL_EXIT_OK);
    }).detach();
    return writing;
}

// Leaves as many rows as the terminal has lines for: those that changed since `before` in preference to others.
void cut_to_screen(const shown_s &before, shown_s *now) {
    constexpr size_t k_other_lines = 4;  // time, titles, what was left out, and where the cursor stays
    const size_t height = stdout_height();
    if (height > k_other_lines && now->rows.rows.size() > height - k_other_lines) {
        keep_changed(before, height - k_other_lines, now);
    }
}

class watcher {
 public:
    watcher(const given_s &given, const std::string &title, const read_view_t &read)
        : given_(given), title_(title), read_(read), writing_(end_on_interrupt()) {}

    outcome_s run() {
        outcome_s first;
        auto next = steady_t::now();
        const uint32_t count = given_.number("--count");
        for (uint64_t done = 0; count == 0 || done < count; done++) {
            if (done > 0) {
                next = std::max(next + interval(), steady_t::now());
                std::this_thread::sleep_until(next);
            }
            const outcome_s outcome = one_round();
            const bool hopeless =
                outcome.exit_code == NYXCTL_EXIT_LOCAL || outcome.exit_code == NYXCTL_EXIT_USAGE;
            if (hopeless || (!outcome.ok() && before_.shown.rows.columns.empty())) {
                return outcome;
            }
            print_failure(outcome, given_.global.json);
            first = first.ok() ? outcome : first;
        }
        return first;
    }

 private:
    steady_t::duration interval() const {
        return std::chrono::duration_cast<steady_t::duration>(
            std::chrono::duration<double>(given_.seconds("--interval")));
    }

    outcome_s one_round() {
        round_s now;
        outcome_s outcome = read_(given_, &now.shown);
        now.at = steady_t::now();
        if (now.shown.rows.columns.empty()) {
            return outcome;
        }
        const outcome_s written = write(now);
        if (outcome.ok()) {
            before_ = std::move(now);  // rates count from what was read whole
        }
        return written.ok() ? outcome : written;
    }

    outcome_s write(const round_s &now) {
        const double seconds = std::chrono::duration<double>(now.at - before_.at).count();
        shown_s shown = now.shown;
        if (!given_.global.json) {
            cut_to_screen(before_.shown, &shown);
        }
        if (given_.has("--rates")) {
            shown = with_rates(before_.shown, shown, seconds);
        }
        const std::lock_guard lock(writing_);
        return write_stdout(block_of(std::move(shown)));
    }

    std::string block_of(shown_s shown) const {
        if (given_.global.json) {
            return rows_to_json(shown.rows, {{"time", local_time()}}, given_.global.json_texts) + "\n";
        }
        const bool wide = given_.has("--wide");
        const size_t width = wide ? 0 : stdout_width();
        const std::string head = local_time() + "  " + title_;
        return fmt::format("{}{}\n{}", isatty(STDOUT_FILENO) ? k_clear : "",
                           width > 0 ? head.substr(0, width) : head,
                           text_for_people(std::move(shown), width, wide));
    }

    const given_s &given_;
    const std::string &title_;
    const read_view_t &read_;
    std::timed_mutex &writing_;
    round_s before_;
};

}  // namespace

arguments_t watch_options() {
    return {{"-n,--interval", "From one round to the next", KIND_SECONDS, COUNT_ONE, "", {}, 0.1, 86400, "2"},
            {"--count", "End after so many rounds", KIND_NUMBER, COUNT_ONE, "", {}, 1},
            {"--rates", "Changes of counters per second", KIND_FLAG}};
}

outcome_s watch(const given_s &given, const std::string &title, const read_view_t &read) {
    return watcher(given, title, read).run();
}

}  // namespace nyxctl
