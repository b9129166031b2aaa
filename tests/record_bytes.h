// Packed records as bytes at offsets, independent of the names of their members.

#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace test {

// An integer's bytes in a record.
inline std::string le(uint64_t number, size_t width) {
    std::string bytes;
    for (size_t i = 0; i < width; i++) {
        bytes.push_back(static_cast<char>(number >> 8 * i));
    }
    return bytes;
}

struct bytes_at_s {
    size_t offset;
    std::string bytes;
};
using record_bytes = std::vector<bytes_at_s>;

// A record that is zero except for these bytes; later ones replace earlier ones.
template <class Record>
Record make_record(const record_bytes &parts) {
    std::string bytes(sizeof(Record), '\0');
    for (const auto &part : parts) {
        bytes.replace(part.offset, part.bytes.size(), part.bytes);
    }
    Record record;
    memcpy(&record, bytes.data(), sizeof(record));
    return record;
}

// The bytes of a record that are not zero, "17=04 21=02", to compare and to read.
template <class Record>
std::string nonzero_bytes(const Record &record) {
    std::string bytes(sizeof(record), '\0');
    memcpy(bytes.data(), &record, sizeof(record));
    std::string text;
    for (size_t i = 0; i < bytes.size(); i++) {
        if (bytes[i]) {
            char digits[3];
            snprintf(digits, sizeof(digits), "%02x", static_cast<uint8_t>(bytes[i]));
            text += " " + std::to_string(i) + "=" + digits;
        }
    }
    return text;
}

}  // namespace test
