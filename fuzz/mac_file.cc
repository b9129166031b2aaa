// A MAC file with anything in it, and one update of it, which must make of it what Boost.PropertyTree's reader and
// writer would.

#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // the parser's own header is noisy without it

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <fstream>
#include <sstream>
#include <string>

#include "base/text.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/quiet.h"
#include "sim/card/host_interfaces.h"
#include "sim/card/if_records.h"
#include "svc/common/converters.h"
#include "svc/host_if_mac.h"
#include "tests/temporary_folder.h"

namespace {

using boost::property_tree::ptree;
using fuzz::check;

struct update_s {
    std::string name;
    mac_addr_s mac;
    std::string content;

    sdk::sdk_ret_t run() { return host_if_mac_update(name.data(), mac.bytes); }
    bool removes() const { return std::ranges::count(mac.bytes, 0) == 6; }
    std::string stored_name() const { return base::to_utf8(base::without_cut_character(name)); }
};

update_s update_of(fuzz::input &in) {
    const auto size = in.take<uint8_t>();
    const auto name = in.take_bytes(size % 32);
    update_s update = {
        .name = std::string(name.substr(0, name.find('\0'))), .mac = in.take<mac_addr_s>(), .content = {}};
    update.content = in.take_rest();
    return update;
}

// Boost's parser recurses, and takes any two bytes after the first one for the rest of a byte order mark.
bool is_for_boost(const std::string &text) {
    return std::ranges::count(text, '[') + std::ranges::count(text, '{') < 1000 &&
           (!text.starts_with('\xef') || text.starts_with("\xef\xbb\xbf"));
}

ptree list_in(const std::string &content) {
    try {
        std::istringstream stream(content);
        ptree file;
        boost::property_tree::read_json(stream, file);
        return file.get_child("host-interface");
    } catch (const boost::property_tree::ptree_error &) {
        return {};
    }
}

std::string text_of(const ptree &element, const char *member, const char *if_missing) {
    const auto found = element.find(member);
    return found == element.not_found() ? if_missing : found->second.data();
}

std::string expected_content(const update_s &update) {
    ptree file, list;
    bool found = false;
    const auto append = [&](const std::string &name, const std::string &mac) {
        auto &element = list.push_back({"", {}})->second;
        element.push_back({"name", ptree(name)});
        element.push_back({"mac", ptree(mac)});
    };
    const std::string mac = macaddr2str(update.mac.bytes, false);
    for (const auto &[key, element] : list_in(update.content)) {
        const auto name = text_of(element, "name", "default");
        const bool changes = name == update.stored_name();
        found = found || changes;
        if (!changes || !update.removes()) {
            append(name, changes ? mac : text_of(element, "mac", "00:00:00:00:00:00"));
        }
    }
    if (!found && !update.removes()) {
        append(update.stored_name(), mac);
    }
    file.add_child("host-interface", list);
    std::ostringstream text;
    boost::property_tree::write_json(text, file);
    return text.str();
}

// An agent that takes the file keeps what it has taken.
void reset_interfaces() {
    (void)sim::change_if_records([](sim::if_records_s &records) {
        records = {};
        return sdk::SDK_RET_OK;
    });
}

void write_file(const std::string &content) {
    std::ofstream(g_host_if_mac_file, std::ios::binary | std::ios::trunc) << content;
}

std::string read_back() {
    std::ostringstream content;
    content << std::ifstream(g_host_if_mac_file, std::ios::binary).rdbuf();
    return content.str();
}

void check_update(update_s &update) {
    check(update.run() == sdk::SDK_RET_OK, "any file can be updated");
    const std::string content = read_back();
    check(!is_for_boost(update.content) || content == expected_content(update),
          "Boost reads and writes the same");
    std::string error;
    check(sim::load_host_interfaces(g_host_if_mac_file, &error), "an agent takes the file");
    check(update.run() == sdk::SDK_RET_OK && read_back() == content, "the same update changes no more");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const test::temporary_folder folder;
    g_host_if_mac_file = folder / "mac.json";
    fuzz::be_quiet();
    reset_interfaces();
    fuzz::input in(data, size);
    update_s update = update_of(in);
    write_file(update.content);
    if (!update.stored_name().empty()) {
        check_update(update);
    } else {
        check(update.run() == sdk::SDK_RET_INVALID_ARG && read_back() == update.content,
              "no name, no update");
    }
    return 0;
}
