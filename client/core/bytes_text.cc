#include "client/core/bytes_text.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <google/protobuf/stubs/strutil.h>

#include <algorithm>
#include <vector>

namespace nyxctl {
namespace {

constexpr std::string_view k_base64_prefix = "base64:";
constexpr size_t k_mac_size = 6;
constexpr size_t k_ipv4_size = 4;
constexpr size_t k_address_size = 16;
constexpr size_t k_shown_text_max = 80;

std::string quoted(std::string_view text) {
    return fmt::format("\"{}\"{}", text.substr(0, k_shown_text_max),
                       text.size() > k_shown_text_max ? "..." : "");
}

std::string allowed_text(types::BytesText form) {
    const std::string hex = R"(pairs of hex digits ("00a1ff", "00:a1:ff") or "base64:" and base64)";
    switch (form) {
        case types::BYTES_TEXT_MAC:
            return R"(a MAC address ("00:1a:2b:3c:4d:5e", "001a.2b3c.4d5e"), )" + hex;
        case types::BYTES_TEXT_IPV6:
            return R"(an IPv6 address ("2001:db8::1"), an IPv4 address ("10.0.0.1", 4 bytes), )" + hex;
        case types::BYTES_TEXT_UUID:
            return R"(a UUID ("00112233-4455-6677-8899-aabbccddeeff"), )" + hex;
        default:
            return hex;
    }
}

int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> groups;
    size_t begin = 0;
    for (size_t end; (end = text.find(separator, begin)) != text.npos; begin = end + 1) {
        groups.push_back(text.substr(begin, end - begin));
    }
    groups.push_back(text.substr(begin));
    return groups;
}

// Returns what is wrong with the group, or nothing.
std::string append_hex(std::string_view digits, std::string *bytes) {
    if (digits.empty()) {
        return "a group has no digits";
    }
    const auto bad = std::ranges::find_if(digits, [](char c) { return digit_value(c) < 0; });
    if (bad != digits.end()) {
        return fmt::format("'{}' is not a hex digit", *bad);
    }
    if (digits.size() % 2 != 0) {
        return quoted(digits) + " has an odd number of hex digits";
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes->push_back(static_cast<char>(digit_value(digits[i]) * 16 + digit_value(digits[i + 1])));
    }
    return {};
}

std::string hex_groups(std::string_view text, std::string *bytes) {
    const size_t at = text.find_first_of(":.-");
    const char separator = at == text.npos ? ':' : text[at];
    const auto groups = split(text, separator);
    for (const std::string_view group : groups) {
        if (std::string reason = append_hex(group, bytes); !reason.empty()) {
            return reason;
        }
        // The dashes of a UUID divide it unevenly; any other uneven text is a typing mistake.
        if (separator != '-' && group.size() != groups.front().size()) {
            return "its groups differ in size";
        }
    }
    return {};
}

bool parse_address(int family, std::string_view text, std::string *bytes) {
    char address[k_address_size];
    char terminated[INET6_ADDRSTRLEN + 1] = {};
    if (text.size() > INET6_ADDRSTRLEN) {
        return false;
    }
    text.copy(terminated, text.size());
    if (inet_pton(family, terminated, address) != 1) {
        return false;
    }
    bytes->assign(address, family == AF_INET ? k_ipv4_size : k_address_size);
    return true;
}

// Returns what is wrong with the text, or nothing.
std::string parse(std::string_view text, types::BytesText form, std::string *bytes) {
    bytes->clear();
    if (text.empty()) {
        return {};
    }
    if (text.starts_with(k_base64_prefix)) {
        return google::protobuf::Base64Unescape(std::string(text.substr(k_base64_prefix.size())), bytes)
                   ? ""
                   : "invalid base64";
    }
    if (text.find('\0') != text.npos) {
        return "it contains a NUL character";
    }
    const bool is_ipv4 = parse_address(AF_INET, text, bytes);
    if (form == types::BYTES_TEXT_IPV6) {
        if (is_ipv4 || parse_address(AF_INET6, text, bytes)) {
            return {};
        }
        const auto colons = std::ranges::count(text, ':');
        if (colons != 0 && colons != k_address_size - 1) {
            return "invalid IPv6 address";
        }
    } else if (is_ipv4) {
        return "it looks like an IPv4 address";
    }
    bytes->clear();
    const bool has_0x = text.starts_with("0x") || text.starts_with("0X");
    return hex_groups(has_0x ? text.substr(2) : text, bytes);
}

std::string to_hex(std::string_view bytes, std::string_view separator = "") {
    constexpr char k_digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += text.empty() ? "" : separator;
        text += k_digits[byte >> 4];
        text += k_digits[byte & 15];
    }
    return text;
}

std::string to_uuid(std::string_view bytes) {
    std::string text = to_hex(bytes);
    for (const size_t at : {20, 16, 12, 8}) {
        text.insert(at, 1, '-');
    }
    return text;
}

std::string to_ipv6(std::string_view bytes) {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
}

std::string to_bytes(uint64_t number, size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; i++) {
        bytes[i] = static_cast<char>(number >> 8 * (size - 1 - i));
    }
    return bytes;
}

uint64_t to_number(std::string_view bytes) {
    uint64_t number = 0;
    for (const unsigned char byte : bytes) {
        number = number << 8 | byte;
    }
    return number;
}

std::string ipv4_text(const std::string &bytes) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, bytes.data(), text, sizeof text);
}

}  // namespace

bool bytes_from_text(std::string_view text, types::BytesText form, std::string *bytes, std::string *error) {
    const std::string reason = parse(text, form, bytes);
    if (reason.empty()) {
        return true;
    }
    *error = fmt::format("{} is not accepted: {}; give {}", quoted(text), reason, allowed_text(form));
    return false;
}

std::string bytes_to_text(std::string_view bytes, types::BytesText form) {
    if (form == types::BYTES_TEXT_MAC && bytes.size() == k_mac_size) return to_hex(bytes, ":");
    if (form == types::BYTES_TEXT_IPV6 && bytes.size() == k_address_size) return to_ipv6(bytes);
    if (form == types::BYTES_TEXT_UUID && bytes.size() == k_address_size) return to_uuid(bytes);
    return to_hex(bytes);
}

bool is_number_text(std::string_view text, types::NumberText form) {
    return form != types::NUMBER_TEXT_DECIMAL && text.find_first_of(":.-", 1) != text.npos;
}

bool number_from_text(std::string_view text, types::NumberText form, uint64_t *number, std::string *error) {
    const bool is_mac = form == types::NUMBER_TEXT_MAC;
    const size_t size = is_mac ? k_mac_size : k_ipv4_size;
    std::string bytes;
    if (!bytes_from_text(text, is_mac ? types::BYTES_TEXT_MAC : types::BYTES_TEXT_IPV6, &bytes, error) ||
        bytes.size() != size) {
        *error = fmt::format("{} is not accepted: give {} or a number", quoted(text),
                             is_mac ? R"(a MAC address ("00:1a:2b:3c:4d:5e", "001a.2b3c.4d5e"))"
                                    : R"(an IPv4 address ("10.0.0.1"))");
        return false;
    }
    *number = to_number(bytes);
    return true;
}

std::optional<std::string> number_to_text(uint64_t number, types::NumberText form) {
    if (form == types::NUMBER_TEXT_MAC && number >> 8 * k_mac_size == 0) {
        return bytes_to_text(to_bytes(number, k_mac_size), types::BYTES_TEXT_MAC);
    }
    if (form == types::NUMBER_TEXT_IPV4 && number >> 8 * k_ipv4_size == 0) {
        return ipv4_text(to_bytes(number, k_ipv4_size));
    }
    return {};
}

}  // namespace nyxctl
