#include "client/table/entry_source.h"

#include <csv.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "client/core/interrupt.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_entry_size_max = size_t{1} << 20;
constexpr std::string_view k_blanks = " \t\r\n";
constexpr std::string_view k_byte_order_mark = "\xef\xbb\xbf";

bool is_blank(char c) { return k_blanks.find(c) != k_blanks.npos; }

std::string_view trimmed(std::string_view text) {
    const size_t first = std::min(text.find_first_not_of(k_blanks), text.size());
    text.remove_prefix(first);
    return text.substr(0, text.find_last_not_of(k_blanks) + 1);
}

size_t lines_in(std::string_view text) { return static_cast<size_t>(std::ranges::count(text, '\n')); }

// For an object over several lines, none of which is one.
std::string line_hint(std::string_view line) {
    return line.starts_with('{') && line.ends_with('}')
               ? ""
               : "; give one JSON object in each line, or one JSON array of objects";
}

// Where a value of a list ends: at the ',' or ']' after it. Goes on where the text ended before.
class element_end {
 public:
    // The place, or npos when the text ends before it.
    size_t find(std::string_view text) {
        for (; at_ < text.size(); at_++) {
            const char c = text[at_];
            if (in_string_) {
                at_ += c == '\\';
                in_string_ = c != '"';
            } else if (depth_ == 0 && (c == ',' || c == ']')) {
                return at_;
            } else {
                in_string_ = c == '"';
                depth_ += c == '{' || c == '[';
                depth_ -= depth_ > 0 && (c == '}' || c == ']');
            }
        }
        return std::string_view::npos;
    }

 private:
    size_t at_ = 0;
    size_t depth_ = 0;
    bool in_string_ = false;
};

}  // namespace

// The values of one line of CSV.
class entry_source::csv_row {
 public:
    explicit csv_row(entry_columns columns) : columns_(std::move(columns)) {
        csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI | CSV_EMPTY_IS_NULL);
    }
    ~csv_row() { csv_free(&parser_); }
    csv_row(const csv_row &) = delete;
    csv_row &operator=(const csv_row &) = delete;

    outcome_s set_names(std::string_view line) {
        if (outcome_s outcome = split(line); !outcome.ok()) {
            return outcome;
        }
        outcome_s outcome = columns_.set_names({values_.begin(), values_.end()});
        outcome.text += outcome.ok() ? "" : "; without '{' or '[' the first line holds the columns of CSV";
        return outcome;
    }

    outcome_s read(std::string_view line, pb::Message *message) {
        if (outcome_s outcome = split(line); !outcome.ok()) {
            return outcome;
        }
        return values_.size() == columns_.size()
                   ? columns_.fill(values_, message)
                   : usage_failure(
                         fmt::format("found {} values under {} columns", values_.size(), columns_.size()));
    }

 private:
    outcome_s split(std::string_view line) {
        places_.clear();
        text_.clear();
        if (csv_parse(&parser_, line.data(), line.size(), add, nullptr, this) != line.size() ||
            csv_fini(&parser_, add, nullptr, this) != 0) {
            const std::string reason = csv_strerror(csv_error(&parser_));
            csv_free(&parser_);
            csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI | CSV_EMPTY_IS_NULL);
            return usage_failure("CSV: " + reason);
        }
        values_.clear();
        for (const auto &[begin, size] : places_) {
            values_.push_back(begin == text_.npos ? std::string_view()
                                                  : std::string_view(text_).substr(begin, size));
        }
        return {};
    }

    // The parser reuses the memory of a value for the next one.
    static void add(void *value, size_t size, void *self) {
        auto *row = static_cast<csv_row *>(self);
        row->places_.emplace_back(value ? row->text_.size() : std::string::npos, size);
        row->text_.append(static_cast<const char *>(value), value ? size : 0);
    }

    entry_columns columns_;
    csv_parser parser_;
    std::string text_;
    std::vector<std::pair<size_t, size_t>> places_;
    std::vector<std::string_view> values_;
};

entry_source::entry_source(const table_layout_s &layout, bool is_key, bool cut)
    : layout_(layout), is_key_(is_key), cut_(cut), json_(cut ? fit_e::cut : fit_e::record) {}
entry_source::~entry_source() = default;

outcome_s entry_source::open(const std::vector<std::string> &words, size_t from) {
    from_ = from;
    if (words.size() != 1 || (words[0] != "-" && !words[0].starts_with('@'))) {
        words_ = words;
        return {};
    }
    outcome_s outcome = open_file(words[0]);
    return outcome.ok() ? find_format() : outcome;
}

outcome_s entry_source::open_file(const std::string &argument) {
    name_ = argument == "-" ? "stdin" : argument.substr(1);
    fd_ = STDIN_FILENO;
    if (argument != "-") {
        file_.reset(::open(name_.c_str(), O_RDONLY | O_CLOEXEC));
        fd_ = file_.get();
    }
    struct stat status = {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        return local_failure(fmt::format("cannot open \"{}\": {}", name_, std::strerror(errno)));
    }
    bytes_ = S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) : 0;
    buffer_.resize(k_entry_size_max + k_json_padding);
    return {};
}

outcome_s entry_source::find_format() {
    while (end_ < k_byte_order_mark.size() && fill()) {
    }
    if (std::string_view(buffer_.data(), end_).starts_with(k_byte_order_mark)) {
        begin_ = k_byte_order_mark.size();
    }
    if (!skip_blanks()) {
        return failure_.ok() ? usage_failure(fmt::format("\"{}\" holds no entries", name_)) : failure_;
    }
    const char first = buffer_[begin_];
    format_ = first == '[' ? ENTRY_JSON_ARRAY : first == '{' ? ENTRY_JSON_LINES : ENTRY_CSV;
    begin_ += format_ == ENTRY_JSON_ARRAY;
    if (format_ != ENTRY_CSV) {
        return {};
    }
    entry_text_s names;
    if (!next_line(&names)) {
        return failure_;
    }
    head_ = names.text;
    row_ = std::make_unique<csv_row>(entry_columns(layout_, is_key_, cut_));
    return at(names.line, row_->set_names(head_));
}

// Reads more after what is left. Returns false at the end of the file, after a failure, and for want of data.
bool entry_source::fill() {
    if (is_at_end_ || !failure_.ok()) {
        return false;
    }
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        bytes_before_ += begin_;
        end_ -= begin_;
        begin_ = 0;
    }
    if (end_ == k_entry_size_max) {
        return stop(at(line_, usage_failure("longer than 1 MiB")));
    }
    for (;;) {
        if (!may_wait_ && !is_readable(fd_)) {
            return false;
        }
        if (!wait_to_read(fd_)) {
            return stop(interrupted_failure());
        }
        const ssize_t got = ::read(fd_, buffer_.data() + end_, k_entry_size_max - end_);
        if (got >= 0) {
            end_ += static_cast<size_t>(got);
            is_at_end_ = got == 0;
            return got > 0;
        }
        if (errno != EINTR) {
            return stop(local_failure(fmt::format("cannot read \"{}\": {}", name_, std::strerror(errno))));
        }
    }
}

bool entry_source::stop(const outcome_s &failure) {
    failure_ = failure;
    is_at_end_ = true;
    begin_ = end_;
    return false;
}

bool entry_source::next(entry_text_s *entry, bool may_wait) {
    may_wait_ = may_wait;
    if (format_ == ENTRY_WORDS) {
        *entry = {.text = "", .line = 1};
        return !std::exchange(is_at_end_, true);
    }
    do {
        if (!(format_ == ENTRY_JSON_ARRAY ? next_element(entry) : next_line(entry))) {
            return false;
        }
    } while (entry->line < from_);
    return true;
}

bool entry_source::next_line(entry_text_s *entry) {
    size_t scanned = 0;
    for (;;) {
        const std::string_view rest(buffer_.data() + begin_, end_ - begin_);
        const size_t found = rest.find('\n', scanned);
        if (found == rest.npos && !is_at_end_) {
            scanned = rest.size();
            if (fill() || is_at_end_) continue;
            return false;
        }
        if (begin_ == end_) {
            return false;
        }
        const size_t size = std::min(found, rest.size());
        begin_ += std::min(size + 1, rest.size());
        *entry = {.text = trimmed(rest.substr(0, size)), .line = line_++};
        if (!entry->text.empty()) {
            return true;
        }
        scanned = 0;
    }
}

// Passes over blanks. Returns false at the end.
bool entry_source::skip_blanks() {
    for (;;) {
        for (; begin_ < end_; begin_++) {
            if (!is_blank(buffer_[begin_])) {
                return true;
            }
            line_ += buffer_[begin_] == '\n';
        }
        if (!fill()) {
            return false;
        }
    }
}

// The next character that is no blank, without taking it; 0 at the end.
char entry_source::next_mark() { return skip_blanks() ? buffer_[begin_] : '\0'; }

bool entry_source::next_element(entry_text_s *entry) {
    if (!is_closed_ && next_mark() == ']') {
        is_closed_ = true;
        begin_++;
    }
    if (is_closed_) {
        return next_mark() != '\0' && stop(at(line_, usage_failure("text after the end of the JSON array")));
    }
    element_end end;
    size_t size = 0;
    while ((size = end.find({buffer_.data() + begin_, end_ - begin_})) == std::string_view::npos) {
        if (!fill()) {
            return is_at_end_ && failure_.ok() && stop(at(line_, usage_failure("the JSON array has no end")));
        }
    }
    const std::string_view text(buffer_.data() + begin_, size);
    *entry = {.text = trimmed(text), .line = line_};
    line_ += lines_in(text);
    begin_ += size + (buffer_[begin_ + size] == ',');
    return true;
}

outcome_s entry_source::read(const entry_text_s &entry, pb::Message *message) {
    switch (format_) {
        case ENTRY_WORDS:
            return (is_key_ ? fill_key : fill_spec)(layout_, words_, cut_, message);
        case ENTRY_CSV:
            return row_->read(entry.text, message);
        default:
            break;
    }
    outcome_s outcome = json_.read(entry.text, message);
    outcome.text += outcome.ok() || format_ == ENTRY_JSON_ARRAY ? "" : line_hint(entry.text);
    return outcome;
}

outcome_s entry_source::at(size_t line, const outcome_s &outcome) const {
    return outcome.ok() || !is_file()
               ? outcome
               : outcome_s{outcome.exit_code, fmt::format("\"{}\" line {}: {}", name_, line, outcome.text)};
}

std::string entry_source::line_of(std::string_view text) const {
    std::string line;
    for (const std::string &word : words_) {
        line += (line.empty() ? "" : " ") + word;
    }
    line += text;
    std::ranges::replace(line, '\n', ' ');  // between the values of an object in an array
    return line;
}

}  // namespace nyxctl
