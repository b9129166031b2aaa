// Counts minor page faults of the service request thread. A request buffer from the process's allocator can cost hundreds
// of them, depending on other allocations and on the allocator's settings.

#include "bench/figures.h"
#include "bench/parts.h"
#include "bench/platform.h"
#include "bench/service_thread.h"

namespace bench {

namespace {

constexpr int k_warm_up = 20, k_requests = 200;

double with_second_megabyte(const service_thread &service) {
    g_fault_count.keep_megabyte = true;
    const double faults = page_faults_per_request(service);
    g_fault_count.keep_megabyte = false;
    return faults;
}

// In a process of its own: tunables are read at its start.
double with_malloc_tunables() {
    return ask_once("page-faults",
                    "GLIBC_TUNABLES=glibc.malloc.mmap_threshold=131072:glibc.malloc.trim_threshold=131072");
}

}  // namespace

double page_faults_per_request(const service_thread &service) {
    auto &count = g_fault_count;
    count.on = true;
    for (int i = 0; i < k_warm_up; i++) {
        request_over_socket(service.path());
    }
    count.faults = count.commands = 0;
    for (int i = 0; i < k_requests; i++) {
        request_over_socket(service.path());
    }
    const double faults = static_cast<double>(count.faults) / static_cast<double>(count.commands);
    count.on = false;
    request_over_socket(service.path());  // releases what was kept
    return faults;
}

void add_page_faults(ratio_table *table, service_thread *service) {
    table->count_at_most(2, "socket: page faults a request",
                         [service] { return page_faults_per_request(*service); });
    table->count_at_most(2, "socket: page faults a request, another megabyte alive",
                         [service] { return with_second_megabyte(*service); });
    table->count_at_most(2, "socket: page faults a request, malloc tunables set", with_malloc_tunables);
}

}  // namespace bench
