// A defect on demand: a sanitizer that does not tell of it could not be trusted with the other tests either.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace {

volatile int g_sink;
int g_shared = 0;

struct packed_s {
    uint8_t one;
    uint32_t four;
} __attribute__((packed));

void overflow_heap() {
    const std::unique_ptr<char[]> bytes(new char[8]);
    volatile size_t behind = 8;
    g_sink = bytes[behind];
}

void leak() {
    char *bytes = new char[8];
    memset(bytes, g_sink, 8);
    g_sink = bytes[0];
    bytes = nullptr;
}

void overflow_integer() {
    volatile int largest = INT32_MAX;
    g_sink = largest + 1;
}

void read_misaligned() {
    packed_s packed = {};
    char *const address = reinterpret_cast<char *>(&packed) + offsetof(packed_s, four);
    volatile uintptr_t hidden = reinterpret_cast<uintptr_t>(address);
    const uint32_t &four = *reinterpret_cast<uint32_t *>(hidden);
    g_sink = static_cast<int>(four);
}

void race() {
    std::thread other([] { g_shared++; });
    g_shared++;
    other.join();
}

}  // namespace

int main(int argc, char **argv) {
    const std::map<std::string, std::function<void()>> defects = {{"heap", overflow_heap},
                                                                  {"leak", leak},
                                                                  {"integer", overflow_integer},
                                                                  {"misaligned", read_misaligned},
                                                                  {"race", race}};
    const auto defect = defects.find(argc == 2 ? argv[1] : "");
    if (defect == defects.end()) {
        fprintf(stderr, "usage: eyesight heap|leak|integer|misaligned|race\n");
        return 2;
    }
    defect->second();
    printf("%s: nothing seen\n", argv[1]);
    return 0;
}
