// Numbers that look random and are the same in every run.

#pragma once

#include <cstdint>

namespace sim {

// The finalizer of splitmix64.
constexpr uint64_t mixed(uint64_t x) {
    x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9;
    x = (x ^ x >> 27) * 0x94d049bb133111eb;
    return x ^ x >> 31;
}

// A number for a seed, what it is for, and its place in that row.
constexpr uint64_t seeded(uint64_t seed, uint64_t row, uint64_t place) {
    return mixed(mixed(mixed(seed + 1) + row + 1) + place + 1);
}

}  // namespace sim
