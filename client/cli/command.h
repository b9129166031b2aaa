// The commands of nyxctl as data. command_line.cc turns the rows into a parser and its help, completion.cc into what
// the shell offers.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace nyxctl {

// What a value means: how it is checked, and what completion offers for it.
enum kind_e {
    KIND_TEXT,
    KIND_FLAG,     // an option without a value
    KIND_CHOICE,   // one of `choices`, anything else is refused
    KIND_NUMBER,   // a whole number of `least` to `most`, decimal or 0x and hex digits
    KIND_SECONDS,  // of `least` to `most`
    KIND_ID,  // of an object, or another name of it; never empty: an unset variable must not mean any object
    KIND_FILE,
    KIND_SERVICE,
    KIND_METHOD,
    KIND_MESSAGE,
    KIND_SYMBOL,  // any of these three
    KIND_TABLE,
    KIND_PORT_FIELD,       // FIELD=VALUE of nyx.PortSpec
    KIND_REQUEST_FIELD,    // these depend on the command's first argument: a method,
    KIND_INTERFACE_FIELD,  // a kind of interface,
    KIND_ENTRY_FIELD,      // a table
    KIND_KEY_FIELD,        // or a table, of which only the key counts
};

// How many values an argument takes; for an option, how many follow its name. With COUNT_EACH one, and the option may
// be given several times.
enum count_e { COUNT_ONE, COUNT_OPTIONAL, COUNT_SOME, COUNT_ANY, COUNT_TWO, COUNT_EACH };

struct argument_s {
    std::string name;  // "METHOD", or for an option "--timeout", "-o,--output"
    std::string about = {};
    kind_e kind = KIND_TEXT;
    count_e count = COUNT_ONE;
    std::string shown = {};                 // the value in the help, "PATH=VALUE"
    std::vector<std::string> choices = {};  // for completion; one that ends in '=' wants a value
    double least = 0;
    double most = UINT32_MAX;
    std::string initial = {};             // the value when none is given
    std::string variable = {};            // of the environment, in place of an option
    std::vector<std::string> needs = {};  // other options

    bool is_option() const { return name.starts_with('-'); }
    bool is_list() const { return count == COUNT_SOME || count == COUNT_ANY; }
    std::string key() const { return name.substr(name.find(',') + 1); }  // of the values in given_s
};

// What the command line gave, by the keys of the arguments. Values were checked by kind and count.
struct given_s {
    global_options_s global;
    std::map<std::string, std::vector<std::string>, std::less<>> values;

    bool has(std::string_view key) const { return !all(key).empty(); }
    const std::vector<std::string> &all(std::string_view key) const;
    std::string one(std::string_view key) const;                // "" if it was not given
    std::vector<uint32_t> numbers(std::string_view key) const;  // of KIND_NUMBER
    uint32_t number(std::string_view key) const;                // the first of these, or 0
    double seconds(std::string_view key) const;                 // of KIND_SECONDS
};

using arguments_t = std::vector<argument_s>;

struct command_s {
    std::string path;  // "set port"; the row of a group, "set", comes before its commands
    std::string summary = {};
    std::string footer = {};  // of the help: more about it, examples
    arguments_t arguments = {};
    std::function<outcome_s(const given_s &given)> run = {};  // none for a group
    bool hidden = false;

    std::string name() const { return path.substr(path.rfind(' ') + 1); }
    std::string group() const {
        return path.substr(0, path.size() - std::min(name().size() + 1, path.size()));
    }
};

using commands_t = std::vector<command_s>;

// "", or what is wrong with a value and what is allowed.
std::string complaint(const argument_s &argument, const std::string &value);

}  // namespace nyxctl
