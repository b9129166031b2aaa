#include "client/cli/watch_command.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <mutex>
#include <thread>

#include "client/cli/show_commands.h"
#include "client/core/text_io.h"
#include "client/view/rates.h"

namespace nyxctl {
namespace {

using steady_t = std::chrono::steady_clock;

constexpr double k_seconds_max = 86400;
constexpr char k_clear[] = "\x1b[H\x1b[2J";
constexpr auto k_patience = std::chrono::seconds(1);

constexpr char k_footer[] =
    R"(Shows any view of nyxctl show every few seconds: on a terminal in place, else one block behind a line
with the local time, and with -j one JSON document per line. Ctrl-C ends it with exit code 0.
With --rates every counter gets a second column, its change per second since the round before. A counter
that went down and did not wrap around at its width says "reset". Nothing is cleared on the device.
A round that fails is told on stderr, and the next one tries again; when the first one fails, that is all.
With --count the exit code is that of the first failure.

Examples:
  nyxctl watch ports
  nyxctl watch port 1 --rates -n 5
  nyxctl watch pipeline --rates --count 2 -j)";

struct watch_s {
    double seconds = 2;
    uint64_t count = 0;  // 0: for ever
    bool rates = false;
};

struct round_s {
    shown_s shown;
    steady_t::time_point at;
};

std::string local_time() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char text[32];
    localtime_r(&now, &parts);
    return {text, std::strftime(text, sizeof text, "%F %T", &parts)};
}

// Ends the program with 0 on SIGINT, whatever it waits for, but not in the middle of a block that is being written.
// Lives as long as the process; the signal is blocked in this thread and in those that it starts from now on.
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

std::string block_of(const rows_s &rows, const std::string &title, bool json) {
    if (json) {
        return rows_to_json(rows, {{"time", local_time()}}) + "\n";
    }
    return (isatty(STDOUT_FILENO) ? k_clear : "") + local_time() + "  " + title + "\n" +
           rows_to_text(rows_for_people(rows));
}

class watcher_c {
 public:
    watcher_c(const global_options_s &global, const view_request_s &request, const watch_s &watch)
        : global_(global), request_(request), watch_(watch), writing_(end_on_interrupt()) {}

    outcome_s run() {
        outcome_s first;
        auto next = steady_t::now();
        for (uint64_t done = 0; watch_.count == 0 || done < watch_.count; done++) {
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
            print_failure(outcome, global_.json);
            first = first.ok() ? outcome : first;
        }
        return first;
    }

 private:
    steady_t::duration interval() const {
        return std::chrono::duration_cast<steady_t::duration>(std::chrono::duration<double>(watch_.seconds));
    }

    outcome_s one_round() {
        round_s now;
        outcome_s outcome = request_.read(global_, &now.shown);
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
        const rows_s rows =
            watch_.rates ? with_rates(before_.shown, now.shown, seconds).rows : now.shown.rows;
        const std::lock_guard lock(writing_);
        return write_stdout(block_of(rows, request_.words, global_.json));
    }

    const global_options_s &global_;
    const view_request_s &request_;
    const watch_s &watch_;
    std::timed_mutex &writing_;
    round_s before_;
};

std::string check_seconds(const std::string &text) {
    double seconds = 0;
    const bool fits = CLI::detail::lexical_cast(text, seconds) && seconds >= 0.1 && seconds <= k_seconds_max;
    return fits ? "" : "\"" + text + "\" is no interval; give seconds from 0.1 to 86400";
}

}  // namespace

void add_watch_command(CLI::App *app, context_s *context) {
    const auto request = std::make_shared<view_request_s>();
    const auto watch = std::make_shared<watch_s>();
    CLI::App *command = add_command(app, "watch", "Show a view again and again, with rates", k_footer);
    command->add_option("-n,--interval", watch->seconds, "From one round to the next")
        ->type_name("SECONDS")
        ->check(check_seconds)
        ->capture_default_str();
    command->add_option("--count", watch->count, "End after so many rounds")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command->add_flag("--rates", watch->rates, "Changes of counters per second");
    add_views(command, context, request,
              [context, request, watch] { return watcher_c(context->global, *request, *watch).run(); });
}

}  // namespace nyxctl
