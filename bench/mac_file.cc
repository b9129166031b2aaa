// An update of the host interface MAC file, compared with Boost's parse of it and an fsynced write in place.

#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // the parser's own header is noisy without it

#include <fcntl.h>
#include <unistd.h>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "base/unique_fd.h"
#include "bench/figures.h"
#include "bench/service_thread.h"
#include "svc/host_if_mac.h"

namespace bench {

namespace {

constexpr int k_host_interfaces = 64;

void update(int number) {
    std::string name = "host" + std::to_string(number);
    unsigned char mac[] = {2, 0, 0, 0, 0, static_cast<unsigned char>(number + 1)};
    if (host_if_mac_update(name.data(), mac) != sdk::SDK_RET_OK) {
        fail("the MAC file can't be updated");
    }
}

void parse_and_write(const std::string &path, const std::string &text) {
    std::ifstream file(path);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(file, tree);
    const base::unique_fd fd(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(fd.get()) != 0) {
        fail("the MAC file can't be written");
    }
}

}  // namespace

void add_mac_file(ratio_table *table) {
    const auto folder = std::make_shared<temporary_folder>();
    g_host_if_mac_file = folder->path() + "/hostif_mac.json";
    std::ofstream(g_host_if_mac_file) << R"({"host-interface": ""})";  // without one, stderr gets a line
    for (int i = 0; i < k_host_interfaces; i++) {
        update(i);
    }
    std::ifstream file(g_host_if_mac_file);
    const std::string other = folder->path() + "/in_place.json",
                      text(std::istreambuf_iterator<char>(file), {});
    std::filesystem::copy_file(g_host_if_mac_file, other);
    table->time_at_most(
        1.3, "MAC file update / parse and fsynced write",
        [folder](nanoseconds slice) { return cost_of(slice, 1, [] { update(7); }); },
        [folder, other, text](nanoseconds slice) {
            return cost_of(slice, 1, [&] { parse_and_write(other, text); });
        });
}

}  // namespace bench
