// Byte strings of messages as fixed-size byte arrays of records.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace svc {

// Stores the first N bytes of `src`; a shorter one is followed by zeros.
template <size_t N>
[[gnu::always_inline]] inline void store_bytes(uint8_t (&dst)[N], std::string_view src) {
    if (src.size() >= N) {
        memcpy(dst, src.data(), N);
        return;
    }
    memset(dst, 0, N);
    src.copy(reinterpret_cast<char *>(dst), N);
}

// Fills a message's string in place: its setter would make a temporary string.
template <size_t N>
void load_bytes(std::string *dst, const uint8_t (&src)[N]) {
    dst->assign(reinterpret_cast<const char *>(src), N);
}

}  // namespace svc
