// The service request thread's callbacks under an event framework of this test, which does nothing but record what
// the library asks of it. No thread and no loop: callbacks are called as a framework would.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "agent_api/event_thread.h"
#include "base/unique_fd.h"
#include "svc/channel/svc_thread.h"
#include "tests/send_descriptors.h"
#include "tests/temporary_folder.h"
#include "tests/trace_capture.h"

namespace {

using sdk::event_thread::io_;
using testing::Each;

std::set<io_ *> g_prepared, g_started;
std::vector<io_ *> g_stopped_unstarted;

}  // namespace

// These take precedence over the stand-in's.
namespace sdk::event_thread {

void io_init(io_ *io, io_callback callback, int, int) {
    io->callback = callback;
    g_prepared.insert(io);
}
void io_start(io_ *io) { g_started.insert(io); }
void io_stop(io_ *io) {
    if (g_started.erase(io) == 0) {
        g_stopped_unstarted.push_back(io);
    }
}
void timer_init(timer_ *, timer_callback, double, double) {}
void timer_start(timer_ *) {}

}  // namespace sdk::event_thread

namespace {

class ServiceThreadCallbacks : public testing::Test {
 protected:
    ServiceThreadCallbacks() {
        g_prepared.clear();
        g_started.clear();
        g_stopped_unstarted.clear();
    }

    test::temporary_folder folder_;
    test::trace_capture trace_;
    std::string path_ = folder_ / "svc.sock";
};

TEST_F(ServiceThreadCallbacks, OnlyWhatWasStartedIsStopped) {
    std::jthread([&] {  // a thread that has not listened yet
        core::svc_server_thread_exit(path_.data());
        ASSERT_EQ(core::svc_server_thread_init(path_.data()), sdk::SDK_RET_OK);
        ASSERT_EQ(core::svc_server_thread_resume_cb(path_.data()), sdk::SDK_RET_OK);
        EXPECT_EQ(g_started.size(), 1u);
        ASSERT_EQ(core::svc_server_thread_suspend_cb(path_.data()), sdk::SDK_RET_OK);
        core::svc_server_thread_exit(path_.data());
    });
    EXPECT_TRUE(g_started.empty());
    EXPECT_TRUE(g_stopped_unstarted.empty());
}

sigset_t signal_mask() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

TEST_F(ServiceThreadCallbacks, WatcherAndDescriptorOfSomebodyElseAreStoppedAndClosed) {
    for (const std::string request : {"", "\xff"}) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        const base::unique_fd peer(ends[0]);
        ASSERT_EQ(write(peer.get(), request.data(), request.size()), std::ssize(request));
        shutdown(peer.get(), SHUT_WR);
        io_ io = {};
        sdk::event_thread::io_init(&io, core::svc_server_read_cb, ends[1], sdk::event_thread::k_io_readable);
        sdk::event_thread::io_start(&io);
        io.callback(&io, ends[1], sdk::event_thread::k_io_readable);
        EXPECT_EQ(fcntl(ends[1], F_GETFD), -1);
        EXPECT_TRUE(g_started.empty());
        char byte;
        EXPECT_EQ(recv(peer.get(), &byte, 1, MSG_DONTWAIT), 0);
    }
}

TEST_F(ServiceThreadCallbacks, ThreadsSignalMaskStaysAsItWas) {
    ASSERT_EQ(core::svc_server_thread_init(path_.data()), sdk::SDK_RET_OK);
    core::svc_server_thread_exit(path_.data());
    const sigset_t mask = signal_mask();
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

// The peer may be gone again when the process has made room for it.
TEST_F(ServiceThreadCallbacks, AcceptWithoutDescriptorsAndWithoutAPeerDoesNotWait) {
    ASSERT_EQ(core::svc_server_thread_init(path_.data()), sdk::SDK_RET_OK);
    const base::unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr any = {.sa_family = AF_UNIX, .sa_data = {}};
    ASSERT_EQ(bind(listener.get(), &any, sizeof(sa_family_t)) | listen(listener.get(), 1), 0);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit low = {.rlim_cur = 200, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    {
        std::vector<base::unique_fd> all;
        for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            all.emplace_back(fd);
        }
        io_ io = {};
        core::svc_server_accept_cb(&io, listener.get(), sdk::event_thread::k_io_readable);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    core::svc_server_thread_exit(path_.data());
    EXPECT_THAT(trace_.messages(), testing::Contains("Accept failed"));
}

TEST_F(ServiceThreadCallbacks, FailedAcceptsAreLoggedUpToTenInASecond) {
    using clock = std::chrono::steady_clock;
    io_ io = {};
    const auto fail_to_accept = [&io] {
        core::svc_server_accept_cb(&io, -1, sdk::event_thread::k_io_readable);
    };
    fail_to_accept();
    const auto begin = clock::now();
    for (int i = 1; i < 5; i++) {
        fail_to_accept();
    }
    EXPECT_THAT(trace_.messages(), Each("Accept failed"));
    EXPECT_EQ(trace_.messages().size(), 5u);
    for (int i = 0; i < 1'000; i++) {
        fail_to_accept();
    }
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(clock::now() - begin).count();
    EXPECT_LE(trace_.messages().size(), static_cast<size_t>(10 * (1 + seconds)));
}

}  // namespace
