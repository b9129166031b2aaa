#include "bench/stored_entries.h"

#include <algorithm>

#include "bench/ratio_table.h"
#include "svc/nyx_tbl_functions.h"

namespace bench {

namespace {

constexpr size_t k_request = 1000;

nyx::tunnel_terminate_sa_v4Request entries(size_t first, size_t count) {
    nyx::tunnel_terminate_sa_v4Request request;
    for (size_t key = first; key < first + count; key++) {
        request.add_request()->mutable_key()->set_k2(static_cast<uint32_t>(key));
    }
    return request;
}

void create(const nyx::tunnel_terminate_sa_v4Request &request) {
    nyx::tunnel_terminate_sa_v4Response response;
    if (nyx_svc_tunnel_terminate_sa_v4_create(&request, &response) != sdk::SDK_RET_OK) {
        fail("the stand-in's table takes no more entries");
    }
}

void remove(const nyx::tunnel_terminate_sa_v4Request &request) {
    nyx::tunnel_terminate_sa_v4DeleteRequest keys;
    for (const auto &spec : request.request()) {
        *keys.add_key() = spec.key();
    }
    nyx::tunnel_terminate_sa_v4DeleteResponse response;
    if (nyx_svc_tunnel_terminate_sa_v4_delete(&keys, &response) != sdk::SDK_RET_OK) {
        fail("the stand-in's table lost entries");
    }
}

}  // namespace

stored_entries::stored_entries(size_t count) : count_(count) {
    for (size_t first = 0; first < count; first += k_request) {
        create(entries(first, std::min(k_request, count - first)));
    }
}

double stored_entries::cost_of_one_more(nanoseconds slice) {
    using clock = std::chrono::steady_clock;
    const auto request = entries(count_, k_request);
    nanoseconds taken{};
    size_t created = 0;
    for (const auto begin = clock::now(); clock::now() - begin < slice; created += k_request) {
        const auto before = clock::now();
        create(request);
        taken += clock::now() - before;
        remove(request);
    }
    return std::chrono::duration<double>(taken).count() / static_cast<double>(created);
}

}  // namespace bench
