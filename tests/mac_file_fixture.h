// A MAC file in a folder of its own, its content as text, and updates of it.

#pragma once

#ifndef BOOST_BIND_GLOBAL_PLACEHOLDERS
#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // the parser's own header is noisy without it
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "svc/host_if_mac.h"
#include "tests/temporary_folder.h"
#include "tests/trace_capture.h"

namespace test {

using element = std::pair<std::string, std::string>;  // name and MAC address
using elements = std::vector<element>;

inline std::string mac_text(uint8_t last) {
    char text[18];
    snprintf(text, sizeof(text), "00:ae:cd:01:02:%02x", last);
    return text;
}

inline std::string text_of(const elements &all) {
    std::string text;
    for (const auto &[name, mac] : all) {
        text += std::string(text.empty() ? "" : ",\n") + "        {\n            \"name\": \"" + name +
                "\",\n            \"mac\": \"" + mac + "\"\n        }";
    }
    return "{\n    \"host-interface\": " + (all.empty() ? "\"\"" : "[\n" + text + "\n    ]") + "\n}\n";
}

class mac_file : public testing::Test {
 protected:
    mac_file() { g_host_if_mac_file = path_; }
    ~mac_file() override { g_host_if_mac_file = before_; }

    static sdk::sdk_ret_t update(std::string name, uint8_t last = 1) {
        unsigned char mac[] = {0, 0xae, 0xcd, 1, 2, last};
        return host_if_mac_update(name.data(), mac);
    }
    static sdk::sdk_ret_t remove(std::string name) {
        unsigned char mac[6] = {};
        return host_if_mac_update(name.data(), mac);
    }

    void put(const std::string &text) const { std::ofstream(path_, std::ios::binary) << text; }
    std::string text() const { return text(path_); }
    static std::string text(const std::string &path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // The elements as an agent finds them at its next start; throws when the file is not JSON.
    static elements read(const std::string &path) {
        elements all;
        boost::property_tree::ptree tree;
        boost::property_tree::read_json(path, tree);
        for (const auto &[key, child] : tree.get_child("host-interface")) {
            all.emplace_back(child.get<std::string>("name"), child.get<std::string>("mac"));
        }
        return all;
    }

    static struct stat status_of(const std::string &path) {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status;
    }

    static size_t entries_of(const std::string &folder) {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }

    temporary_folder folder_;
    const std::string path_ = folder_ / "hostif_mac.json";
    const std::string new_path_ = path_ + ".new";
    trace_capture trace_{1};

 private:
    const std::string before_ = g_host_if_mac_file;
};

}  // namespace test
