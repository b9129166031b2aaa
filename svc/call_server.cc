#include "svc/call_server.h"

#include <google/protobuf/descriptor.h>
#include <grpcpp/alarm.h>
#include <grpcpp/support/proto_buffer_reader.h>
#include <grpcpp/support/proto_buffer_writer.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <mutex>
#include <new>
#include <optional>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <vector>

#include "svc/common/call_memory.h"
#include "svc/common/trace.h"
#include "svc/method_counters.h"
#include "svc/served.h"

namespace svc {

namespace {

using clock = std::chrono::steady_clock;
using google::protobuf::Message;

call_server::state *g_current = nullptr;

// What comes out of the completion queue: something that happened to one of these.
class event {
 public:
    // Before it is handed to gRPC, and after it came back, on another thread. The queue orders these two as well, but by
    // locks that ThreadSanitizer does not see.
    void hand_over() { handed_over_.store(true, std::memory_order_release); }
    void take_back() const { (void)handed_over_.load(std::memory_order_acquire); }

    virtual void happened(bool ok) = 0;
    virtual bool takes_long(bool) const { return false; }

 protected:
    ~event() = default;

 private:
    std::atomic<bool> handed_over_ = false;
};

// A method and its calls. `awaited` calls are asked of the server, `running` ones run.
struct served_method_s {
    callable *service = nullptr;
    grpc::Service *object = nullptr;
    const method_s *method = nullptr;  // none: UNIMPLEMENTED
    const google::protobuf::MethodDescriptor *descriptor = nullptr;
    int index = 0;
    method_counters counters = {};
    std::mutex mutex = {};
    unsigned awaited = 0, running = 0;
};

const char *const k_too_much =
    "This call needs more memory than the agent has left for calls: ask for less at a time, or try again "
    "later";

grpc::Status no_memory() { return {grpc::RESOURCE_EXHAUSTED, "Out of memory"}; }

// Evaluates `work`; an exception becomes a status.
template <class Work>
grpc::Status status_of(const Work &work) {
    try {
        return work();
    } catch (const budget_exceeded &) {
    } catch (const std::bad_alloc &) {
        return no_memory();
    } catch (const std::exception &) {
        return {grpc::INTERNAL, "Failed"};
    }
    try {
        return {grpc::RESOURCE_EXHAUSTED, k_too_much};
    } catch (const std::bad_alloc &) {
        return no_memory();
    }
}

}  // namespace

class call_server::state {
 public:
    state(const call_limits_s &limits, const call_host_s &host);
    ~state() { g_current = nullptr; }

    int add(const char *service_name, grpc::Service *service, callable *calls,
            std::span<const method_s> methods);
    void attach(grpc::ServerBuilder *builder) { queue_ = builder->AddCompletionQueue(); }
    void run();
    void shutdown();
    void set_instance_id(const std::string &id) {
        const std::lock_guard lock(instance_mutex_);
        instance_id_ = id;
    }
    std::string instance_id() const {
        const std::lock_guard lock(instance_mutex_);
        return instance_id_;
    }
    std::vector<method_counts_s> counts() const;
    call_memory_s memory() const { return {.used = call_budget::used(), .limit = limits_.memory}; }

 private:
    class call;
    class tick;

    // While it lives, shutdown() leaves the queue open. Whoever adds to the queue takes one, and then asks for stopping_.
    class open_count {
     public:
        explicit open_count(state *server) : server_(server) { server_->open_++; }
        open_count(const open_count &) = delete;
        open_count &operator=(const open_count &) = delete;
        ~open_count() {
            server_->open_--;
            server_->open_.notify_all();
        }

     private:
        state *server_;
    };

    void begin();
    bool poll();
    bool begin_polling();
    void await_calls(served_method_s *method);
    bool arrived(served_method_s *method);
    void did_not_begin(served_method_s *method);
    void has_run(served_method_s *method);

    void begin_sending(call *sent, size_t bytes);
    void end_sending(call *sent);
    void unlist(call *sent);
    call *largest_sending() const;
    void cancel(call *sent);
    void look_after_calls();

    const call_limits_s limits_;
    const call_host_s host_;
    mutable std::mutex instance_mutex_;
    std::string instance_id_;  // under it
    const std::unique_ptr<tick> tick_;
    std::vector<std::unique_ptr<served_method_s>> methods_;
    std::unique_ptr<grpc::ServerCompletionQueue> queue_;
    std::once_flag begun_;
    // So many workers wait for events, more only wake each other. Others wait for one of these to run a call.
    static constexpr int k_pollers = 4;
    std::atomic<int> polling_ = 0;
    std::atomic<bool> ended_ = false;
    std::counting_semaphore<> spare_{0};

    std::atomic<bool> stopping_ = false;
    std::atomic<size_t> open_ =
        0;  // events that are still to come out of the queue belong to so many objects

    std::mutex sending_mutex_;                                 // guards what follows
    call *first_sending_ = nullptr, *last_sending_ = nullptr;  // the one that waits longest first
    size_t sending_bytes_ = 0;
};

// A call, from being awaited to its end. Its own event is its arrival, and then the end of its answer. `left_` is the
// event that gRPC is done with it, because it was answered or its client has left. It is deleted after both.
class call_server::state::call final : event {
 public:
    call(state *server, served_method_s *method) : server_(server), method_(method), open_(server) {
        context_.AsyncNotifyWhenDone(static_cast<event *>(&left_));
    }

    // After the operation: an id that changed meanwhile must reach the client, because what it wrote may be lost.
    void name_instance() {
        try {
            if (const std::string id = server_->instance_id(); !id.empty()) {
                context_.AddInitialMetadata("nyx-instance-id", id);
            }
        } catch (const std::bad_alloc &) {  // the client learns it from a later response
        }
    }

    void await() {
        left_.hand_over();
        hand_over();
        method_->service->await_call(method_->index, &context_, &request_, &answer_, server_->queue_.get(),
                                     static_cast<event *>(this));
    }

 private:
    friend class state;

    // What a call needs while it runs.
    struct memory_s {
        grpc::ByteBuffer bytes;  // of the request
        budget_share share;      // for the request as a message, and the texts that parsing puts on the heap
        std::optional<google::protobuf::Arena> arena;

        void free_if_large() {
            constexpr size_t k_large = 4 * 1024 * 1024;
            if (bytes.Length() > k_large || (arena && arena->SpaceAllocated() > k_large)) {
                bytes.Clear();
                arena.reset();
                share.give_back_all();
            }
        }
    };

    class left final : public event {
     public:
        explicit left(call *of) : of_(of) {}
        void happened(bool) final { of_->release(); }

     private:
        call *of_;
    };

    void happened(bool ok) final {
        if (answered_) {
            server_->end_sending(this);
            release();
        } else if (waits_for_left_) {
            serve();
        } else if (ok) {
            arrive();
        } else {
            server_->did_not_begin(method_);
            delete this;  // gRPC announces no end of a call that never began
        }
    }

    bool takes_long(bool ok) const final { return !answered_ && (ok || waits_for_left_); }

    // A call that had to wait for others may be of a client that has left: gRPC announces that by an event which is in the
    // queue by now, before the alarm's.
    void arrive() {
        arrived_ = clock::now();
        if (server_->arrived(method_)) {
            serve();
            return;
        }
        waits_for_left_ = true;
        hand_over();
        alarm_.Set(server_->queue_.get(), std::chrono::system_clock::now(), static_cast<event *>(this));
    }

    // The answer is sent as early as it can be: the next call is awaited after it, and memory is freed. A client that has
    // its answer finds the budget as it was, but for a small amount.
    void serve() {
        state *const server = server_;
        served_method_s *const method = method_;
        memory_s memory;
        memory.bytes.Swap(&request_);
        grpc::ByteBuffer bytes;
        const grpc::Status status = run_and_report(&memory, &bytes);
        memory.free_if_large();
        name_instance();
        answered_ = true;
        hand_over();
        try {
            finish(bytes, status);
        } catch (const std::bad_alloc &) {
            finish(bytes, no_memory());  // its text needs no memory
        }
        // From here on, another thread may have deleted this call.
        server->has_run(method);
    }

    void finish(const grpc::ByteBuffer &bytes, const grpc::Status &status) {
        if (status.ok()) {
            answer_.Finish(bytes, status, static_cast<event *>(this));
        } else {
            answer_.FinishWithError(status, static_cast<event *>(this));
        }
    }

    grpc::Status run_and_report(memory_s *memory, grpc::ByteBuffer *bytes) {
        call_facts_s facts = {.method = method_->descriptor,
                              .context = &context_,
                              .request = nullptr,
                              .status = {},
                              .api_status = types::API_STATUS_OK,
                              .duration = {}};
        facts.status = status_of([&] { return run(memory, &facts, bytes); });
        facts.duration = clock::now() - arrived_;
        method_->counters.count(facts);
        SVC_TRACE_DEBUG("{}: gRPC status {}, {}, {} us", method_->descriptor->full_name(),
                        int{facts.status.error_code()}, types::ApiStatus_Name(facts.api_status),
                        facts.duration / std::chrono::microseconds(1));
        if (server_->host_.observer) {
            server_->host_.observer->finished(facts);
        }
        return std::move(facts.status);
    }

    grpc::Status run(memory_s *memory, call_facts_s *facts, grpc::ByteBuffer *bytes) {
        if (server_->host_.observer) {
            auto status = server_->host_.observer->admit(*method_->descriptor, context_);
            if (!status.ok()) {
                return status;
            }
        }
        if (!method_->method) {
            return {grpc::UNIMPLEMENTED, ""};
        }
        if (context_.IsCancelled()) {
            return grpc::Status::CANCELLED;
        }
        if (const size_t length = memory->bytes.Length(); length > k_small_request) {
            memory->share.take(2 * length);
        }
        auto *arena = &memory->arena.emplace(counted_arena());
        auto *request = method_->method->request().New(arena);
        grpc::ProtoBufferReader reader(&memory->bytes);
        if (!reader.status().ok() || !request->ParseFromZeroCopyStream(&reader)) {
            return {grpc::INTERNAL, "The request can't be parsed as " + request->GetTypeName()};
        }
        facts->request = request;
        auto *response = method_->method->response().New(arena);
        grpc::Status status = method_->method->run(method_->object, &context_, *request, response);
        facts->api_status = api_status_of(*response);
        return status.ok() ? write(*response, bytes) : status;
    }

    grpc::Status write(const Message &response, grpc::ByteBuffer *bytes) {
        constexpr size_t k_one_slice = 64 * 1024;
        constexpr int k_block = 1024 * 1024;
        const size_t size = response.ByteSizeLong();
        if (size > INT_MAX) {
            return {grpc::RESOURCE_EXHAUSTED,
                    "The response would be longer than 2 GiB: ask for less at a time"};
        }
        server_->begin_sending(this, size);
        if (size <= k_one_slice) {
            const grpc::Slice slice(size);
            response.SerializeWithCachedSizesToArray(const_cast<uint8_t *>(slice.begin()));
            *bytes = grpc::ByteBuffer(&slice, 1);
            return grpc::Status::OK;
        }
        grpc::ProtoBufferWriter writer(bytes, k_block, static_cast<int>(size));
        google::protobuf::io::CodedOutputStream stream(&writer);
        response.SerializeWithCachedSizes(&stream);
        return grpc::Status::OK;
    }

    void release() {
        if (--references_ == 0) {
            delete this;
        }
    }

    static constexpr size_t k_small_request = 16 * 1024;

    state *server_;
    served_method_s *method_;
    const open_count open_;
    grpc::ServerContext context_;
    grpc::ByteBuffer request_;
    grpc::ServerAsyncResponseWriter<grpc::ByteBuffer> answer_{&context_};
    left left_{this};
    grpc::Alarm alarm_;
    clock::time_point arrived_;
    bool waits_for_left_ = false, answered_ = false;
    std::atomic<int> references_ = 2;

    // In the list of answers that are being sent.
    call *before_ = nullptr, *after_ = nullptr;
    budget_share bytes_;  // none: not in the list
    clock::time_point since_;
};

// Looks after calls once a second.
class call_server::state::tick final : event {
 public:
    explicit tick(state *server) : server_(server) {}
    void start() {
        server_->open_++;
        hand_over();
        alarm_.Set(server_->queue_.get(), std::chrono::system_clock::now() + std::chrono::seconds(1),
                   static_cast<event *>(this));
    }
    void stop() { alarm_.Cancel(); }

 private:
    void happened(bool) final {
        server_->look_after_calls();
        if (!server_->stopping_) {
            start();
        }
        server_->open_--;
        server_->open_.notify_all();
    }

    state *server_;
    grpc::Alarm alarm_;
};

call_server::state::state(const call_limits_s &limits, const call_host_s &host)
    : limits_(limits), host_(host), instance_id_(host.instance_id), tick_(std::make_unique<tick>(this)) {
    if (g_current) {
        throw std::logic_error("there is a call server already");
    }
    call_budget::set_limit(limits.memory);
    g_current = this;
}

int call_server::state::add(const char *service_name, grpc::Service *service, callable *calls,
                            std::span<const method_s> methods) {
    const auto *descriptor =
        google::protobuf::DescriptorPool::generated_pool()->FindServiceByName(service_name);
    for (int i = 0; i < descriptor->method_count(); i++) {
        auto &method = *methods_.emplace_back(std::make_unique<served_method_s>());
        const auto found = std::ranges::find(methods, descriptor->method(i)->name(), &method_s::name);
        method.service = calls;
        method.object = service;
        method.method = found == methods.end() ? nullptr : &*found;
        method.descriptor = descriptor->method(i);
        method.index = i;
    }
    return descriptor->method_count();
}

void call_server::state::run() {
    std::call_once(begun_, [this] { begin(); });
    do {
        while (!begin_polling()) {
            spare_.acquire();
        }
    } while (poll());
    spare_.release();  // and so on: each worker lets another one see that the queue has ended
}

// False once the queue has ended.
bool call_server::state::poll() {
    void *tag = nullptr;
    bool ok = false;
    while (queue_->Next(&tag, &ok)) {
        auto *happened = static_cast<event *>(tag);
        happened->take_back();
        if (!happened->takes_long(ok)) {
            happened->happened(ok);
            continue;
        }
        if (polling_.fetch_sub(1) == 1) {
            spare_.release();
        }
        happened->happened(ok);
        if (!begin_polling()) {
            return true;
        }
    }
    ended_ = true;
    return false;
}

bool call_server::state::begin_polling() {
    for (int polling = polling_; polling < k_pollers || ended_;) {
        if (polling_.compare_exchange_weak(polling, polling + 1)) {
            return true;
        }
    }
    return false;
}

void call_server::state::begin() {
    for (const auto &method : methods_) {
        await_calls(method.get());
    }
    const open_count open(this);
    if (!stopping_) {
        tick_->start();
    }
}

// Two at a time, so that the second of two clients need not wait until the first one's call is replaced.
void call_server::state::await_calls(served_method_s *method) {
    constexpr unsigned k_awaited = 2;
    const open_count open(this);
    const std::lock_guard lock(method->mutex);
    while (!stopping_ && method->awaited < k_awaited &&
           method->awaited + method->running < limits_.calls_of_a_method) {
        try {
            auto next = std::make_unique<call>(this, method);
            next->await();
            next.release();  // it owns itself until its last event
            method->awaited++;
        } catch (const std::bad_alloc &) {
            return;  // tried again in a second
        }
    }
}

// False when as many calls of the method run as may, so that this one may have waited. While another call is awaited,
// the next one can wait until this one is answered.
bool call_server::state::arrived(served_method_s *method) {
    bool has_room = true, is_last = true;
    {
        const std::lock_guard lock(method->mutex);
        method->awaited--;
        method->running++;
        has_room = method->running + 1 < limits_.calls_of_a_method;
        is_last = method->awaited == 0;
    }
    if (is_last) {
        await_calls(method);
    }
    return has_room;
}

// The server stops, or the client left before its request was read.
void call_server::state::did_not_begin(served_method_s *method) {
    {
        const std::lock_guard lock(method->mutex);
        method->awaited--;
    }
    await_calls(method);
}

void call_server::state::has_run(served_method_s *method) {
    {
        const std::lock_guard lock(method->mutex);
        method->running--;
    }
    await_calls(method);
}

// Throws budget_exceeded.
void call_server::state::begin_sending(call *sent, size_t bytes) {
    constexpr size_t k_call = 4096;  // what gRPC and this file keep for a call
    const size_t all = bytes + k_call, most = limits_.memory / 2;
    const std::lock_guard lock(sending_mutex_);
    if (all > most) {
        throw budget_exceeded();
    }
    while (sending_bytes_ + all > most) {
        cancel(largest_sending());
    }
    sent->bytes_.take(all);
    sending_bytes_ += all;
    sent->since_ = clock::now();
    sent->before_ = last_sending_;
    (last_sending_ ? last_sending_->after_ : first_sending_) = sent;
    last_sending_ = sent;
}

void call_server::state::end_sending(call *sent) {
    const std::lock_guard lock(sending_mutex_);
    if (sent->bytes_.bytes()) {
        unlist(sent);
    }
}

void call_server::state::unlist(call *sent) {
    (sent->before_ ? sent->before_->after_ : first_sending_) = sent->after_;
    (sent->after_ ? sent->after_->before_ : last_sending_) = sent->before_;
    sent->before_ = sent->after_ = nullptr;
    sending_bytes_ -= sent->bytes_.bytes();
    sent->bytes_.give_back_all();
}

// Of equals, the one that waits longest.
call_server::state::call *call_server::state::largest_sending() const {
    call *largest = first_sending_;
    for (call *each = first_sending_; each; each = each->after_) {
        largest = each->bytes_.bytes() > largest->bytes_.bytes() ? each : largest;
    }
    return largest;
}

// gRPC frees its memory as soon as it has cancelled the stream.
void call_server::state::cancel(call *sent) {
    unlist(sent);
    sent->context_.TryCancel();
}

void call_server::state::look_after_calls() {
    for (const auto &method : methods_) {
        await_calls(method.get());
    }
    const std::lock_guard lock(sending_mutex_);
    const auto since = clock::now() - limits_.send_time;
    while (first_sending_ && first_sending_->since_ < since) {
        cancel(first_sending_);
    }
}

void call_server::state::shutdown() {
    stopping_ = true;
    tick_->stop();
    for (size_t open = open_; open > 0; open = open_) {
        open_.wait(open);
    }
    if (queue_) {
        queue_->Shutdown();
    }
}

std::vector<method_counts_s> call_server::state::counts() const {
    std::vector<method_counts_s> counts;
    for (const auto &method : methods_) {
        counts.push_back(method->counters.counts(method->descriptor));
    }
    return counts;
}

call_server::call_server(const call_limits_s &limits) : call_server(limits, {}) {}

call_server::call_server(const call_limits_s &limits, const call_host_s &host)
    : state_(std::make_unique<state>(limits, host)) {}

call_server::~call_server() = default;

void call_server::attach(grpc::ServerBuilder *builder) { state_->attach(builder); }

void call_server::run() { state_->run(); }

void call_server::shutdown() { state_->shutdown(); }

std::vector<method_counts_s> call_server::counts() const { return state_->counts(); }

void call_server::set_instance_id(const std::string &id) { state_->set_instance_id(id); }

call_memory_s call_server::memory() const { return state_->memory(); }

int hand_to_call_server(const char *service_name, grpc::Service *service, callable *calls,
                        std::span<const method_s> methods) {
    return g_current ? g_current->add(service_name, service, calls, methods) : 0;
}

}  // namespace svc
