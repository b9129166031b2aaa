#include "client/core/text_io.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "base/text.h"
#include "base/unique_fd.h"

namespace nyxctl {
namespace {

constexpr size_t k_usual_width = 80;
constexpr size_t k_width_max = 10'000;
constexpr size_t k_input_size_max = size_t{64} << 20;

std::string errno_text() { return std::strerror(errno); }

outcome_s read_all(int fd, const std::string &name, std::string *text) {
    char buffer[1 << 16];
    text->clear();
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got == 0) {
            return {};
        }
        if (got > 0) {
            text->append(buffer, got);
        } else if (errno != EINTR) {
            return local_failure(fmt::format("cannot read {}: {}", name, errno_text()));
        }
        if (text->size() > k_input_size_max) {
            return local_failure(name + " is longer than 64 MiB; split it into several calls");
        }
    }
}

outcome_s cannot_write(const std::string &path) {
    return local_failure(fmt::format("cannot write \"{}\": {}", path, errno_text()));
}

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(written);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

outcome_s read_file(const std::string &path, std::string *text) {
    const base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        return local_failure(fmt::format("cannot open \"{}\": {}", path, errno_text()));
    }
    return read_all(fd.get(), "\"" + path + "\"", text);
}

outcome_s read_argument(const std::string &argument, std::string *text) {
    if (argument == "-") {
        return read_all(STDIN_FILENO, "stdin", text);
    }
    if (argument.starts_with('@')) {
        return read_file(argument.substr(1), text);
    }
    *text = argument;
    return {};
}

outcome_s replace_file(const std::string &path, std::string_view text) {
    constexpr mode_t k_anybody_may_read = 0644;
    struct stat old;
    if (stat(path.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) {  // /dev/stdout: not to be replaced
        const base::unique_fd device(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        const bool written = device.valid() && write_all(device.get(), text);
        return written ? outcome_s() : cannot_write(path);
    }
    std::string new_path = path + ".XXXXXX";
    const base::unique_fd fd(mkostemp(new_path.data(), O_CLOEXEC));
    const bool replaced = fd.valid() && fchmod(fd.get(), k_anybody_may_read) == 0 &&
                          write_all(fd.get(), text) && rename(new_path.c_str(), path.c_str()) == 0;
    if (replaced) {
        return {};
    }
    outcome_s outcome = cannot_write(path);
    if (fd.valid()) {
        unlink(new_path.c_str());
    }
    return outcome;
}

outcome_s write_stdout(std::string_view text) {
    if (write_all(STDOUT_FILENO, text)) {
        return {};
    }
    return local_failure(errno == EPIPE ? "" : "cannot write to stdout: " + errno_text());
}

size_t stdout_width() {
    const char *columns = std::getenv("COLUMNS");
    const size_t given = columns ? std::min(std::strtoul(columns, nullptr, 10), k_width_max) : 0;
    winsize size{};
    const bool is_terminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return given > 0 ? given : !is_terminal ? 0 : size.ws_col > 0 ? size.ws_col : k_usual_width;
}

size_t stdout_height() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_row : 0;
}

outcome_s write_result(const global_options_s &global, std::string_view json, std::string_view text) {
    return write_stdout(global.json ? indented(json) + "\n" : std::string(text));
}

outcome_s write_rows(const global_options_s &global, const rows_s &rows) {
    return write_result(global, rows_to_json(rows, {}, global.json_texts),
                        rows_to_text(rows, {.width = stdout_width()}));
}

void print_failure(const outcome_s &outcome, bool json) {
    if (!outcome.ok() && json) {
        const members_t members = {{"exit_code", outcome.exit_code}, {"error", outcome.text}};
        std::cerr << json_text(members) << std::endl;
    } else if (!outcome.text.empty()) {
        std::cerr << "nyxctl: " << base::without_controls(outcome.text) << std::endl;
    }
}

}  // namespace nyxctl
