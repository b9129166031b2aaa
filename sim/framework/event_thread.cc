#include "sim/framework/event_thread.h"

#include <ev.h>
#include <pthread.h>

#include <atomic>
#include <mutex>
#include <new>
#include <unordered_set>
#include <vector>

#include "agent_api/event_thread.h"
#include "sim/framework/watchdog.h"

namespace sim {

namespace {

std::atomic<double> g_time_scale = 1.0;

}  // namespace

void set_time_scale(double scale) { g_time_scale = scale; }

double time_scale() { return g_time_scale; }

// The loop of one event thread, and the functions that other threads want to run on it.
class event_loop {
 public:
    event_loop() : loop_(ev_loop_new(EVFLAG_AUTO)) {
        ev_async_init(&wake_up_, [](struct ev_loop *, ev_async *async, int) {
            static_cast<event_loop *>(async->data)->run_posted();
        });
        wake_up_.data = this;
        ev_async_start(loop_, &wake_up_);
    }
    ~event_loop() { ev_loop_destroy(loop_); }

    void run() { ev_run(loop_, 0); }
    void leave() { ev_break(loop_, EVBREAK_ALL); }

    void post(std::function<void()> function) {
        std::lock_guard guard(lock_);
        posted_.push_back(std::move(function));
        ev_async_send(loop_, &wake_up_);
    }

    struct ev_loop *get() {
        return loop_;
    }
    std::unordered_set<sdk::event_thread::timer_ *> running_timers;

 private:
    void run_posted() {
        std::vector<std::function<void()>> posted;
        {
            std::lock_guard guard(lock_);
            posted.swap(posted_);
        }
        for (const auto &function : posted) {
            function();
        }
    }

    struct ev_loop *loop_;
    ev_async wake_up_;
    std::mutex lock_;
    std::vector<std::function<void()>> posted_;
};

namespace {

thread_local event_loop *t_loop = nullptr;

}  // namespace

event_thread::event_thread(std::string name, event_thread_entries_s entries, void *ctxt)
    : name_(std::move(name)), entries_(entries), ctxt_(ctxt) {}

event_thread::~event_thread() { stop(); }

sdk::sdk_ret_t event_thread::start() {
    loop_ = std::make_unique<event_loop>();
    std::promise<sdk::sdk_ret_t> started;
    thread_ = std::thread([this, &started] { run(&started); });
    const sdk::sdk_ret_t ret = started.get_future().get();
    if (ret != sdk::SDK_RET_OK) {
        thread_.join();
    }
    return ret;
}

void event_thread::run(std::promise<sdk::sdk_ret_t> *started) {
    pthread_setname_np(pthread_self(), name_.substr(0, 15).c_str());
    t_loop = loop_.get();
    watched_thread watched(name_);
    const sdk::sdk_ret_t ret = entries_.init(ctxt_);
    started->set_value(ret);
    if (ret == sdk::SDK_RET_OK) {
        loop_->run();
        entries_.exit(ctxt_);
    }
    t_loop = nullptr;
}

sdk::sdk_ret_t event_thread::call(std::function<sdk::sdk_ret_t()> entry) {
    std::promise<sdk::sdk_ret_t> result;
    loop_->post([&] { result.set_value(entry()); });
    return result.get_future().get();
}

sdk::sdk_ret_t event_thread::suspend() {
    return call([this] { return entries_.suspend(ctxt_); });
}

sdk::sdk_ret_t event_thread::resume() {
    return call([this] { return entries_.resume(ctxt_); });
}

void event_thread::stop() {
    if (thread_.joinable()) {
        loop_->post([this] { loop_->leave(); });
        thread_.join();
    }
}

}  // namespace sim

namespace sdk::event_thread {

namespace {

static_assert(sizeof(ev_io) <= k_watcher_size && sizeof(ev_timer) <= k_watcher_size);

ev_io *watcher_of(io_ *io) { return std::launder(reinterpret_cast<ev_io *>(io->watcher)); }
ev_timer *watcher_of(timer_ *timer) { return std::launder(reinterpret_cast<ev_timer *>(timer->watcher)); }

void on_io(struct ev_loop *, ev_io *watcher, int) {
    auto *io = static_cast<io_ *>(watcher->data);
    io->callback(io, watcher->fd, k_io_readable);
}

void on_timer(struct ev_loop *, ev_timer *watcher, int) {
    auto *timer = static_cast<timer_ *>(watcher->data);
    timer->callback(timer);
}

}  // namespace

void io_init(io_ *io, io_callback callback, int fd, int) {
    io->callback = callback;
    ev_io *watcher = new (io->watcher) ev_io{};
    ev_io_init(watcher, on_io, fd, EV_READ);
    watcher->data = io;
}

void io_start(io_ *io) { ev_io_start(sim::t_loop->get(), watcher_of(io)); }

void io_stop(io_ *io) {
    if (sim::t_loop) {
        ev_io_stop(sim::t_loop->get(), watcher_of(io));
    }
}

void timer_init(timer_ *timer, timer_callback callback, double initial, double repeat) {
    if (sim::t_loop->running_timers.erase(timer)) {
        ev_timer_stop(sim::t_loop->get(), watcher_of(timer));
    }
    timer->callback = callback;
    ev_timer *watcher = new (timer->watcher) ev_timer{};
    ev_timer_init(watcher, on_timer, initial * sim::time_scale(), repeat * sim::time_scale());
    watcher->data = timer;
}

void timer_start(timer_ *timer) {
    sim::t_loop->running_timers.insert(timer);
    ev_timer_start(sim::t_loop->get(), watcher_of(timer));
}

}  // namespace sdk::event_thread
