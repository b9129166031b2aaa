#include "client/core/number_text.h"

#include <arpa/inet.h>

#include "client/core/bytes_text.h"

namespace nyxctl {
namespace {

constexpr size_t k_mac_size = 6;
constexpr size_t k_ipv4_size = 4;

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

bool is_number_text(std::string_view text, types::NumberText form) {
    return form != types::NUMBER_TEXT_DECIMAL && text.find_first_of(":.-", 1) != text.npos;
}

bool number_from_text(std::string_view text, types::NumberText form, uint64_t *number, std::string *error) {
    const bool is_mac = form == types::NUMBER_TEXT_MAC;
    const size_t size = is_mac ? k_mac_size : k_ipv4_size;
    std::string bytes;
    if (!bytes_from_text(text, is_mac ? types::BYTES_TEXT_MAC : types::BYTES_TEXT_IPV6, &bytes, error) ||
        bytes.size() != size) {
        *error = '"' + std::string(text) + "\" is not accepted: give " +
                 (is_mac ? R"(a MAC address ("00:1a:2b:3c:4d:5e", "001a.2b3c.4d5e"))"
                         : R"(an IPv4 address ("10.0.0.1"))") +
                 " or a number";
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
