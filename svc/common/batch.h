// The configuration batch of one request.

#pragma once

#include <cstdint>
#include <utility>

#include "agent_api/agent_state.h"
#include "agent_api/batch.h"
#include "agent_api/sdk_ret.h"

namespace svc {

// The batch that the caller names by a cookie, which stays the caller's; or, for cookie 0, one of the request's own,
// opened here with the next epoch and never left open. For one thread.
class batch {
 public:
    explicit batch(uint64_t cookie) : handle_(cookie ? cookie : open()), own_(!cookie) {}
    batch(const batch &) = delete;
    batch &operator=(const batch &) = delete;
    ~batch() {
        if (own_ && handle_) {
            (void)nyx_batch_destroy(handle_);
        }
    }

    // False when there was none to be had.
    bool is_open() const { return handle_ != 0; }
    bool is_own() const { return own_; }
    uint64_t handle() const { return handle_; }

    // Ends the request with the outcome of its entries: an own batch is committed after success and destroyed after a
    // failure. Returns the request's outcome.
    sdk::sdk_ret_t finish(sdk::sdk_ret_t ret) {
        if (!own_) {
            return ret;
        }
        const uint64_t handle = std::exchange(handle_, 0);
        if (ret == sdk::SDK_RET_OK) {
            return nyx_batch_commit(handle);
        }
        (void)nyx_batch_destroy(handle);
        return ret;
    }

 private:
    static uint64_t open() {
        nyx_batch_params_s params = {.epoch = ++core::agent_state::state()->epoch, .async = 0};
        return nyx_batch_start(&params);
    }

    uint64_t handle_;
    const bool own_;
};

}  // namespace svc
