#include "bench/platform.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/resource.h>

#include <cstring>
#include <memory>

#include "agent_api/debug_command.h"
#include "agent_api/nyx_tbl.h"
#include "bench/entries.h"
#include "bench/ratio_table.h"
#include "svc/nyx_tbl_functions.h"

namespace {

thread_local nyx_tbl_flow_spec_s t_written;
const nyx_tbl_flow_spec_s g_stored = bench::flow_record();

uint64_t minor_faults() {
    rusage usage = {};
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<uint64_t>(usage.ru_minflt);
}

}  // namespace

sdk::sdk_ret_t nyx_tbl_flow_create(const nyx_tbl_flow_spec_s *spec) {
    memcpy(&t_written, spec, sizeof(*spec));
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t nyx_tbl_flow_read(const nyx_tbl_flow_key_s *, nyx_tbl_flow_spec_s *spec) {
    memcpy(spec, &g_stored, sizeof(*spec));
    return sdk::SDK_RET_OK;
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                   void *argument) {
    static const auto next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    bench::g_started_threads++;
    return next(thread, attributes, run, argument);
}

sdk::sdk_ret_t debug::nyx_handle_cmd(cmd_ctxt_s *) {
    static thread_local uint64_t t_after_last = 0;
    static thread_local std::unique_ptr<uint8_t[]> t_megabyte;
    auto &count = bench::g_fault_count;
    if (!count.on) {
        t_after_last = 0;
        t_megabyte.reset();
        return sdk::SDK_RET_OK;
    }
    if (t_after_last) {
        count.faults += minor_faults() - t_after_last;
        count.commands++;
    }
    if (count.keep_megabyte) {
        t_megabyte.reset();
        t_megabyte = std::make_unique<uint8_t[]>(1 << 20);
    }
    t_after_last = minor_faults();
    return sdk::SDK_RET_OK;
}

void bench::check_replacements() {
    const nyx::flowRequest entries = flow_entries(1);
    nyx::flowResponse written;
    (void)nyx_svc_flow_create(&entries, &written);
    const nyx_tbl_flow_spec_s expected = flow_record();
    if (memcmp(&t_written, &expected, sizeof(expected)) != 0) {
        fail("the table service does not call this program's nyx_tbl_flow_create");
    }
    const nyx::flowGetRequest keys = flow_keys(1);
    nyx::flowGetResponse read;
    (void)nyx_svc_flow_get(&keys, &read);
    if (read.response(0).spec().SerializeAsString() != entries.request(0).SerializeAsString()) {
        fail("the table service does not call this program's nyx_tbl_flow_read");
    }
}
