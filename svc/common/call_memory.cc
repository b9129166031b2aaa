#include "svc/common/call_memory.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace svc {

namespace {

std::atomic<size_t> g_limit = SIZE_MAX, g_used = 0;

constexpr size_t k_first_block = 64 * 1024;
constexpr size_t k_largest_block = 64 * 1024;  // below what malloc maps and unmaps each time

size_t charge(size_t block) { return 2 * block; }

void *take_block(size_t size) {
    if (!call_budget::take(charge(size))) {
        throw budget_exceeded();
    }
    if (void *block = malloc(size)) {
        return block;
    }
    call_budget::give_back(charge(size));
    throw std::bad_alloc();
}

void give_block_back(void *block, size_t size) {
    free(block);
    call_budget::give_back(charge(size));
}

}  // namespace

void call_budget::set_limit(size_t bytes) { g_limit = bytes; }

size_t call_budget::used() { return g_used.load(std::memory_order_relaxed); }

bool call_budget::take(size_t bytes) {
    if (g_used.fetch_add(bytes, std::memory_order_relaxed) + bytes <= g_limit) {
        return true;
    }
    give_back(bytes);
    return false;
}

void call_budget::give_back(size_t bytes) { g_used.fetch_sub(bytes, std::memory_order_relaxed); }

void budget_share::take(size_t bytes) {
    if (!call_budget::take(bytes)) {
        throw budget_exceeded();
    }
    bytes_ += bytes;
}

void budget_share::give_back_all() {
    call_budget::give_back(bytes_);
    bytes_ = 0;
}

google::protobuf::ArenaOptions counted_arena() {
    static thread_local const std::unique_ptr<char[]> first_block(new char[k_first_block]);
    google::protobuf::ArenaOptions options;
    options.initial_block = first_block.get();
    options.initial_block_size = k_first_block;
    options.start_block_size = k_largest_block;
    options.max_block_size = k_largest_block;
    options.block_alloc = take_block;
    options.block_dealloc = give_block_back;
    return options;
}

}  // namespace svc
