#include "tests/allocation_points.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <string_view>

#ifndef __has_feature  // gcc has a macro instead
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
const bool test::k_protobufs_fail = false;
// clang's runtime is part of the executable, so dlsym() does not find its operator new.
extern "C" const char *__asan_default_options() { return "alloc_dealloc_mismatch=0"; }
#else
const bool test::k_protobufs_fail = true;
#endif

namespace {

std::atomic<int64_t> g_left = 0;  // allocations up to the one that fails; 0 or less: none fails
std::atomic<bool> g_all_after = false;
thread_local bool t_looking = false;

constexpr const char *k_transparent[] = {"libstdc++.", "libspdlog.", "libfmt.", "libprotobuf.",
                                         "libnyx_proto."};

std::string_view library_of(void *address) {
    dl_find_object object;
    return _dl_find_object(address, &object) == 0 ? object.dlfo_link_map->l_name : "";
}

bool works_for_others(std::string_view library) {
    for (const char *name : k_transparent) {
        if (library.find(name) != library.npos) {
            return true;
        }
    }
    return false;
}

// When an array can't grow, protobuf leaks the element; and clang's code of its messages sets a member's flag before it has
// memory for it. So these allocations don't fail under the sanitizer, which clang is used for.
bool is_protobufs(void *caller) {
    const auto library = library_of(caller);
    return library.find("libprotobuf.") != library.npos || library.find("libnyx_proto.") != library.npos;
}

// Whether the library made, directly or through others, the call that returns to `caller`.
bool is_the_librarys(void *caller) {
    constexpr int k_max_frames = 64;
    void *frames[k_max_frames];
    const auto end = frames + backtrace(frames, k_max_frames);
    for (auto frame = std::find(frames, end, caller); frame != end; ++frame) {
        const auto library = library_of(*frame);
        if (!works_for_others(library)) {
            return library.find("libsvc_quill.") != library.npos;
        }
    }
    return false;
}

void count_allocation(void *caller) {
    if ((g_left <= 0 && !g_all_after) || t_looking) {
        return;
    }
    t_looking = true;
    const bool strikes =
        is_the_librarys(caller) && (test::k_protobufs_fail || !is_protobufs(caller)) && --g_left <= 0;
    t_looking = false;
    if (strikes) {
        throw std::bad_alloc();
    }
}

using allocate = void *(*)(size_t);

allocate next_allocate(const char *symbol) { return reinterpret_cast<allocate>(dlsym(RTLD_NEXT, symbol)); }

}  // namespace

void *operator new(size_t size) {
    static const allocate next = next_allocate("_Znwm");
    count_allocation(__builtin_return_address(0));
    return next(size);
}

void *operator new[](size_t size) {
    static const allocate next = next_allocate("_Znam");
    count_allocation(__builtin_return_address(0));
    return next(size);
}

namespace test {

failing_allocation::failing_allocation(int64_t nth, bool and_all_after) {
    void *frame;
    (void)backtrace(&frame, 1);  // loads the unwinder, which allocates
    g_left = nth;
    g_all_after = and_all_after;
}

failing_allocation::~failing_allocation() {
    g_all_after = false;
    g_left = 0;
}

bool failing_allocation::struck() const { return g_left <= 0; }

}  // namespace test
