#include "host/worker_pool.h"

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace host {

struct worker_pool::state_s {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> work;  // never more than there are idle threads
    size_t threads = 0, idle = 0;
    bool is_stopped = false;
};

worker_pool::worker_pool(size_t max_threads)
    : max_threads_(max_threads), state_(std::make_shared<state_s>()) {}

worker_pool::~worker_pool() { stop(); }

bool worker_pool::run(std::function<void()> work) {
    std::unique_lock lock(state_->mutex);
    if (state_->is_stopped || (state_->idle <= state_->work.size() && state_->threads >= max_threads_)) {
        return false;
    }
    if (state_->idle <= state_->work.size()) {
        try {
            std::thread([state = state_] { serve(state); }).detach();
        } catch (const std::system_error &) {
            return false;
        }
        state_->threads++;
        state_->idle++;
    }
    state_->work.push_back(std::move(work));
    lock.unlock();
    state_->changed.notify_all();
    return true;
}

void worker_pool::serve(const std::shared_ptr<state_s> &state) {
    constexpr auto k_patience = std::chrono::seconds(5);
    pthread_setname_np(pthread_self(), "peer_worker");
    std::unique_lock lock(state->mutex);
    const auto has_news = [&state] { return !state->work.empty() || state->is_stopped; };
    while (state->changed.wait_for(lock, k_patience, has_news) && !state->work.empty()) {
        {
            const auto work = std::move(state->work.front());
            state->work.pop_front();
            state->idle--;
            lock.unlock();
            work();
        }
        lock.lock();
        state->idle++;
    }
    state->idle--;
    state->threads--;
    state->changed.notify_all();
}

void worker_pool::stop() {
    std::unique_lock lock(state_->mutex);
    state_->is_stopped = true;
    state_->changed.notify_all();
    state_->changed.wait(lock, [this] { return state_->threads == 0; });
}

}  // namespace host
