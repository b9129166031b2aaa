// Updates the MAC file of host interfaces over and over, to be killed at any moment.
//
// usage: mac_file_writer FILE PREFIX NAMES FIRST [LAST]
//
// Update number n, from FIRST to LAST or for ever, gives the interface PREFIX<n modulo NAMES> the MAC address n. Its
// number is printed when it is done, on a line of its own.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "svc/host_if_mac.h"

namespace {

bool update(const std::string &prefix, uint64_t names, uint64_t n) {
    std::string name = prefix + std::to_string(n % names);
    unsigned char mac[6];
    for (int i = 0; i < 6; i++) {
        mac[i] = static_cast<unsigned char>(n >> (40 - 8 * i));
    }
    const std::string line = std::to_string(n) + "\n";
    return host_if_mac_update(name.data(), mac) == sdk::SDK_RET_OK &&
           write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

}  // namespace

int main(int argc, char **argv) {
    const uint64_t names = argc > 3 ? strtoull(argv[3], nullptr, 10) : 0;
    if (argc < 5 || argc > 6 || names == 0) {
        return 2;
    }
    g_host_if_mac_file = argv[1];
    const uint64_t last = argc > 5 ? strtoull(argv[5], nullptr, 10) : UINT64_MAX;
    for (uint64_t n = strtoull(argv[4], nullptr, 10); n <= last; n++) {
        if (!update(argv[2], names, n)) {
            return 1;
        }
    }
    return 0;
}
