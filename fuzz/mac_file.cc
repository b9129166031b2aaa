// A MAC file with anything in it, and one update of it.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "base/json_file.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/quiet.h"
#include "sim/card/host_interfaces.h"
#include "sim/card/if_records.h"
#include "svc/common/converters.h"
#include "base/text.h"
#include "svc/host_if_mac.h"
#include "tests/temporary_folder.h"

namespace {

using fuzz::check;
using nlohmann::json;

// Contents up to this size can't grow beyond what may be read, however they are laid out anew.
constexpr size_t k_small = base::k_max_json_size / 64;

struct update_s {
    std::string name;
    mac_addr_s mac;
    std::string content;

    sdk::sdk_ret_t run() { return host_if_mac_update(name.data(), mac.bytes); }
    bool removes() const { return std::ranges::count(mac.bytes, 0) == 6; }
};

update_s update_of(fuzz::input &in) {
    const auto size = in.take<uint8_t>();
    const auto name = in.take_bytes(size % 32);
    update_s update = {
        .name = std::string(name.substr(0, name.find('\0'))), .mac = in.take<mac_addr_s>(), .content = {}};
    update.content = in.take_rest();
    if (size == 0xff) {
        update.content.resize(base::k_max_json_size + 1, ' ');
    }
    return update;
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

// Whatever its size.
std::string read_back() {
    std::ostringstream content;
    content << std::ifstream(g_host_if_mac_file, std::ios::binary).rdbuf();
    return content.str();
}

void check_records(const update_s &update, const std::string &content) {
    const json file = json::parse(content, nullptr, false);
    if (file.is_discarded()) {
        check(json::parse(update.content, nullptr, false).is_discarded(), "JSON in UTF-8 stays so");
        return;
    }
    const std::string name = base::to_utf8(base::without_cut_character(update.name));
    bool found = false;
    for (const json &record : file.at("host-interface")) {
        if (record.is_object() && record.at("name") == name) {
            found = true;
            check(record.at("mac") == macaddr2str(update.mac.bytes, false), "a record has the new address");
        }
    }
    check(found != update.removes(), "an update adds its record, or removes it");
}

void check_success(update_s &update) {
    const std::string content = read_back();
    std::string error;
    check(sim::load_host_interfaces(g_host_if_mac_file, &error), "an agent takes the file");
    check_records(update, content);
    check(update.run() == sdk::SDK_RET_OK && read_back() == content, "the same update changes no more");
}

void check_failure(const update_s &update, sdk::sdk_ret_t ret) {
    check(read_back() == update.content, "a file that can't be updated stays as it is");
    check(update.name.empty() ? ret == sdk::SDK_RET_INVALID_ARG : update.content.size() > k_small,
          "an update fails for a reason");
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
    const auto ret = update.run();
    if (ret == sdk::SDK_RET_OK) {
        check_success(update);
    } else {
        check_failure(update, ret);
    }
    return 0;
}
