// A fuzz input, taken apart from its front: numbers, records and byte strings, zero and short once it is used up.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace fuzz {

class input {
 public:
    explicit input(std::string_view bytes) : rest_(bytes) {}
    input(const uint8_t *data, size_t size) : input({reinterpret_cast<const char *>(data), size}) {}

    bool empty() const { return rest_.empty(); }

    // At most `size` bytes, which stay the fuzzer's.
    std::string_view take_bytes(size_t size) {
        const auto bytes = rest_.substr(0, size);
        rest_.remove_prefix(bytes.size());
        return bytes;
    }

    std::string_view take_rest() { return take_bytes(rest_.size()); }

    // Overwrites memory, or as much of its beginning as there are bytes for.
    void take_into(void *memory, size_t size) {
        const auto bytes = take_bytes(size);
        std::copy(bytes.begin(), bytes.end(), static_cast<char *>(memory));
    }

    template <class T>
    T take() {
        static_assert(std::is_trivially_copyable_v<T>);
        T value{};
        take_into(&value, sizeof(value));
        return value;
    }

 private:
    std::string_view rest_;
};

}  // namespace fuzz
