// The configuration batch of one request.

#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "agent_api/agent_state.h"
#include "agent_api/batch.h"
#include "agent_api/sdk_ret.h"
#include "nyx/types/object.pb.h"
#include "svc/common/ret_code.h"

namespace svc {

// The caller's batch, named by a cookie, which is neither committed nor destroyed here; or, for cookie 0, a batch of the
// request's own, opened with the next epoch and never left open. For one thread.
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

    // False when no batch could be started.
    bool is_open() const { return handle_ != 0; }
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

// Runs `write`, sdk_ret_t(uint64_t batch), in the batch of a request. Returns the request's outcome; nothing when no batch
// could be started.
template <class Write>
std::optional<sdk::sdk_ret_t> in_batch(const types::BatchCtxt &context, Write write) {
    batch request_batch(context.batch_cookie());
    if (!request_batch.is_open()) {
        return std::nullopt;
    }
    return request_batch.finish(write(request_batch.handle()));
}

// Puts the outcome of in_batch() into a response; without a batch it is SDK_RET_GENERIC_ERROR. Returns its code.
template <class Response>
sdk::sdk_ret_t report(std::optional<sdk::sdk_ret_t> outcome, Response *rsp) {
    const auto ret = outcome.value_or(sdk::SDK_RET_GENERIC_ERROR);
    rsp->set_api_status(sdk_ret_to_api_status(ret));
    return ret;
}

}  // namespace svc
