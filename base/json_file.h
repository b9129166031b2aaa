// Reading a JSON file that anybody may have written.

#pragma once

#ifndef BOOST_BIND_GLOBAL_PLACEHOLDERS
#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // the parser's own header is noisy without it
#endif

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cerrno>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "base/unique_fd.h"

namespace base {

inline constexpr size_t k_max_json_size = 1 << 20;  // bytes
inline constexpr int k_max_json_depth = 32;

// Depth of the deepest array or object, whether the text is otherwise JSON or not.
inline int json_depth(std::string_view text) {
    int depth = 0, deepest = 0;
    bool in_string = false;
    for (size_t i = 0; i < text.size(); i++) {
        const char c = text[i];
        if (in_string) {
            i += c == '\\';
            in_string = c != '"';
        } else if (c == '"') {
            in_string = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            depth--;
        }
    }
    return deepest;
}

// At most k_max_json_size bytes of a regular file. Never waits for a writer, as opening a FIFO would.
inline std::string read_file(const std::string &path) {
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status = {};
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path + ": not a regular file");
    }
    std::string text;
    for (char block[4096]; const ssize_t size = read(file.get(), block, sizeof(block));) {
        if (size < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        text.append(block, static_cast<size_t>(std::max<ssize_t>(size, 0)));
        if (text.size() > k_max_json_size) {
            throw std::system_error(EFBIG, std::generic_category(), path);
        }
    }
    return text;
}

// Throws std::system_error when the file can't be opened or read or is above k_max_json_size (EFBIG), and another
// std::exception when it is not a regular file, deeper than k_max_json_depth (the parser recurses, and would overflow the
// stack), or not JSON.
inline boost::property_tree::ptree read_json_file(const std::string &path) {
    const std::string text = read_file(path);
    if (json_depth(text) > k_max_json_depth) {
        throw std::runtime_error(path + ": nested deeper than " + std::to_string(k_max_json_depth) +
                                 " levels");
    }
    std::istringstream stream(text);
    boost::property_tree::ptree tree;
    try {
        boost::property_tree::read_json(stream, tree);
    } catch (const boost::property_tree::json_parser_error &error) {
        throw std::runtime_error(path + ": line " + std::to_string(error.line()) + ": " + error.message());
    }
    return tree;
}

}  // namespace base
