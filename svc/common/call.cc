#include "svc/common/call.h"

#include <fmt/format.h>
#include <time.h>

#include <climits>
#include <new>

#include "svc/common/call_memory.h"

namespace svc {

namespace {

using google::protobuf::Message;

// A call that runs on this thread.
struct running_call_s {
    grpc::ServerContext *context;
    int64_t next_look_ms = 0;
};

thread_local running_call_s *t_call = nullptr;

class call_scope {
 public:
    explicit call_scope(grpc::ServerContext *context) : call_{.context = context} { t_call = &call_; }
    call_scope(const call_scope &) = delete;
    call_scope &operator=(const call_scope &) = delete;
    ~call_scope() { t_call = nullptr; }

 private:
    running_call_s call_;
};

// The coarse clock costs a few nanoseconds, which an entry of a table can spare; its steps are 1 to 4 ms.
int64_t now_ms() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * int64_t{1000} + time.tv_nsec / 1'000'000;
}

size_t elements_of_lists(const Message &message) {
    const auto *type = message.GetDescriptor();
    size_t count = 0;
    for (int i = 0; i < type->field_count(); i++) {
        if (type->field(i)->is_repeated()) {
            count += static_cast<size_t>(message.GetReflection()->FieldSize(message, type->field(i)));
        }
    }
    return count;
}

// Computing the exact size costs as much as a tenth of the call, and only long lists can come near the limit.
bool exceeds_protobuf(const Message &response) {
    constexpr size_t k_surely_short = 10'000;
    return elements_of_lists(response) > k_surely_short && response.ByteSizeLong() > INT_MAX;
}

grpc::Status exhausted(const std::string &text) { return {grpc::RESOURCE_EXHAUSTED, text}; }

}  // namespace

bool client_has_left() {
    constexpr int64_t k_between_looks_ms = 10;
    if (!t_call || !t_call->context) {
        return false;
    }
    const int64_t now = now_ms();
    if (now < t_call->next_look_ms) {
        return false;
    }
    t_call->next_look_ms = now + k_between_looks_ms;
    return t_call->context->IsCancelled();
}

grpc::Status run_call(grpc::ServerContext *context, const Message *request, Message *response,
                      size_t max_entries, const std::function<grpc::Status()> &work) {
    try {
        if (const size_t entries = request ? elements_of_lists(*request) : 0; entries > max_entries) {
            return exhausted(
                fmt::format("The request has {} entries, the maximum is {}: send several requests", entries,
                            max_entries));
        }
        const call_scope scope(context);
        grpc::Status status = work();
        if (exceeds_protobuf(*response)) {
            return exhausted("The response would be longer than 2 GiB: ask for less at a time");
        }
        return status;
    } catch (const budget_exceeded &) {
        throw;  // to the call server, whose budget it is
    } catch (const std::bad_alloc &) {
        return exhausted("Out of memory");  // short enough to need none
    }
}

}  // namespace svc
