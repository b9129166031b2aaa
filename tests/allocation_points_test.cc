// Runs the service request thread while each of its allocations fails in turn.

#include "tests/allocation_points.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "tests/socket_fixture.h"

namespace {

std::atomic<size_t> g_unmappable = 0;  // mappings of this size fail

}  // namespace

// Called before a sanitizer can run instrumented code or dlsym().
[[gnu::no_sanitize_thread, gnu::no_sanitize_address]] void *mmap(void *address, size_t size, int protection,
                                                                 int flags, int fd, off_t offset) noexcept {
    if (size == g_unmappable.load(std::memory_order_relaxed)) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return reinterpret_cast<void *>(syscall(SYS_mmap, address, size, protection, flags, fd, offset));
}

namespace {

using test::client;
using test::failing_allocation;
using test::open_descriptors;

// Runs `request` until all its allocations have failed once, then checks with `expect_unharmed` after each.
template <class Request, class Check>
void fail_each_allocation(const std::string &name, Request request, Check expect_unharmed) {
    for (int64_t nth = 1;; nth++) {
        SCOPED_TRACE(nth);
        bool struck;
        {
            const failing_allocation failing(nth);
            request();
            struck = failing.struck();
        }
        expect_unharmed();
        if (!struck) {
            printf("%s: %ld of %ld allocations\n", name.c_str(), nth - 1, nth - 1);
            return;
        }
    }
}

std::string traced_flow() {
    nyx::FlowTracerSpec flow;
    flow.set_id(std::string(16, 'i'));
    flow.mutable_ip_1()->set_af(types::IP_AF_INET6);
    flow.mutable_ip_1()->set_v6_addr(std::string(16, '6'));
    flow.mutable_ports()->set_src_port(1);
    nyx::CommandMessage command;
    command.set_command(nyx::COMMAND_FLOW_TRACE);
    command.mutable_command_args()->PackFrom(flow);
    types::ServiceRequestMessage request;
    request.mutable_config_msg()->PackFrom(command);
    return request.SerializeAsString();
}

class allocation_points : public test::SocketTest {};

// A request without enough memory is answered, or its connection ends; the thread goes on.
TEST_F(allocation_points, ServiceRequestThreadGoesOn) {
    ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
    expect_served();
    const size_t descriptors = open_descriptors();
    const std::pair<std::string, std::string> requests[] = {
        {"a debug command", traced_flow()},
        {"a command without arguments", test::command_bytes(nyx::COMMAND_TABLES)},
        {"no request", std::string(300, '\xff')}};
    for (const auto &request : requests) {
        const auto &[name, text] = request;
        const std::string &bytes = text;  // which a lambda can take
        const auto ask = [&] {
            test::output_pipe output;
            client tool(path_);
            (void)tool.send(bytes, {output.writer.get()});
            EXPECT_TRUE(tool.read_to_end());
        };
        fail_each_allocation(name, ask, [&] {
            expect_served();
            EXPECT_TRUE(test::eventually([&] { return open_descriptors() == descriptors; }));
        });
    }
}

TEST_F(allocation_points, ReceiveBufferThatCannotBeHadEndsTheConnection) {
    ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
    g_unmappable = 1 << 20;
    client tool(path_);
    EXPECT_TRUE(tool.send(test::command_bytes(nyx::COMMAND_HELP)));
    EXPECT_EQ(tool.read_to_end(), "");
    g_unmappable = 0;
    expect_served();
    EXPECT_EQ(trace_.messages().back(), "Memory allocation for receive buffer failed");
}

}  // namespace
