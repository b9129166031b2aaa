// Reading all objects, by a handler that appends copies of the messages that come out.

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>

#include "bench/figures.h"
#include "bench/objects.h"
#include "svc/interface.h"
#include "svc/port.h"

namespace bench {

namespace {

template <class Response>
cost answering(const std::function<void(Response *)> &answer) {
    return [answer](nanoseconds slice) {
        return cost_of(slice, 1, [&answer] {
            Response response;
            answer(&response);
            benchmark::DoNotOptimize(&response);
        });
    };
}

template <class Response>
void add(ratio_table *table, const std::string &what, const std::function<void(Response *)> &walk,
         size_t expected_size) {
    const auto prebuilt = std::make_shared<Response>();
    walk(prebuilt.get());
    if (static_cast<size_t>(prebuilt->response_size()) != expected_size) {
        fail(what + ": the service does not call this program's walk");
    }
    table->throughput_at_least(0.8, what + " / appending copies of messages", answering<Response>(walk),
                               answering<Response>([prebuilt](Response *response) {
                                   for (const auto &object : prebuilt->response()) {
                                       *response->add_response() = object;
                                   }
                               }));
}

}  // namespace

void add_walks(ratio_table *table) {
    add<nyx::PortGetResponse>(
        table, "PortGet of all ports",
        [](auto *response) { (void)nyx_svc_port_get(&nyx::PortGetRequest::default_instance(), response); },
        port_records().size());
    add<nyx::InterfaceGetResponse>(
        table, "InterfaceGet of 5,000 interfaces",
        [](auto *response) {
            nyx_svc_interface_get(&nyx::InterfaceGetRequest::default_instance(), response);
        },
        interface_records().size());
}

}  // namespace bench
