// What the files of the platform offer each other and main.

#pragma once

#include <cstdint>
#include <mutex>
#include <new>

#include "agent_api/sdk_ret.h"
#include "agent_api/thread.h"

namespace platform {

// Runs the watchers of the calling thread until one of their callbacks calls stop_events.
void run_events();
void stop_events();

// The one thread that serves requests, and how often it reported that it is alive. Any thread.
extern sdk::lib::thread g_service_thread;
uint32_t num_heartbeats();

// Runs the body of an operation that needs memory: operations return a code and throw nothing.
template <typename body_t>
sdk::sdk_ret_t guarded(body_t body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return sdk::SDK_RET_OUT_OF_MEMORY;
    }
}

template <typename body_t>
sdk::sdk_ret_t guarded(std::mutex &mutex, body_t body) noexcept {
    const std::lock_guard lock(mutex);
    return guarded(body);
}

}  // namespace platform
