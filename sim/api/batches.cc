#include "sim/api/batches.h"

#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "sim/faults/faults.h"

namespace sim {

namespace {

using batch = std::vector<if_change>;

std::mutex g_lock;
std::map<uint64_t, batch> g_batches;
uint64_t g_last_handle = 0;
nyx_batch_params_s g_last_params = {};

std::optional<batch> close(uint64_t handle) {
    std::lock_guard guard(g_lock);
    const auto node = g_batches.extract(handle);
    return node ? std::optional(std::move(node.mapped())) : std::nullopt;
}

}  // namespace

sdk::sdk_ret_t add_change(uint64_t handle, if_change change) {
    std::lock_guard guard(g_lock);
    const auto open = g_batches.find(handle);
    if (open == g_batches.end()) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    open->second.push_back(std::move(change));
    return sdk::SDK_RET_OK;
}

size_t open_batches() {
    std::lock_guard guard(g_lock);
    return g_batches.size();
}

nyx_batch_params_s last_batch_params() {
    std::lock_guard guard(g_lock);
    return g_last_params;
}

void drop_batches() {
    std::lock_guard guard(g_lock);
    g_batches.clear();
}

}  // namespace sim

uint64_t nyx_batch_start(nyx_batch_params_s *params) {
    if (sim::fault("nyx_batch_start")) {
        return 0;
    }
    std::lock_guard guard(sim::g_lock);
    sim::g_last_params = *params;
    sim::g_batches[++sim::g_last_handle];
    return sim::g_last_handle;
}

sdk::sdk_ret_t nyx_batch_commit(uint64_t handle) {
    const auto batch = sim::close(handle);
    if (const auto ret = sim::fault("nyx_batch_commit")) {
        return ret;
    }
    return batch ? sim::change_if_records(*batch) : sdk::SDK_RET_INVALID_ARG;
}

sdk::sdk_ret_t nyx_batch_destroy(uint64_t handle) {
    const bool was_open = sim::close(handle).has_value();
    if (const auto ret = sim::fault("nyx_batch_destroy")) {
        return ret;
    }
    return was_open ? sdk::SDK_RET_OK : sdk::SDK_RET_INVALID_ARG;
}
