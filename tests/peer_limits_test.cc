#include "svc/channel/peer_limits.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "svc/channel/peer_output.h"
#include "tests/temporary_folder.h"

namespace {

constexpr uid_t k_stranger = 12'345, k_other_stranger = 12'346;

size_t admit_all(svc::peer_limits *limits, uid_t uid) {
    size_t admitted = 0;
    while (admitted < 10'000 && limits->admit(uid)) {
        admitted++;
    }
    return admitted;
}

TEST(PeerLimits, StrangersLeaveRoomForEachOtherAndForThePrivileged) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit low = {.rlim_cur = 256, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    svc::peer_limits limits;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(admit_all(&limits, k_stranger), 16u);
    EXPECT_EQ(admit_all(&limits, k_other_stranger), 16u);
    for (uid_t uid = 20'000; uid < 20'010; uid++) {
        admit_all(&limits, uid);
    }
    EXPECT_FALSE(limits.admit(30'000));
    EXPECT_EQ(admit_all(&limits, 0), 32u);
    limits.leave(k_stranger);
    EXPECT_TRUE(limits.admit(k_stranger));
}

TEST(PeerOutput, StrangersPassOnlyWhatTakesText) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const base::unique_fd reader(ends[0]), pipe_end(ends[1]);
    const test::temporary_folder folder;
    const std::pair<base::unique_fd, bool> cases[] = {
        {base::unique_fd(dup(pipe_end.get())), true},
        {base::unique_fd(socket(AF_UNIX, SOCK_STREAM, 0)), true},
        {base::unique_fd(open("/dev/null", O_WRONLY)), true},
        {base::unique_fd(open((folder / "file").c_str(), O_CREAT | O_RDWR, 0600)), true},
        {base::unique_fd(open("/dev/urandom", O_RDONLY)), false},
        {base::unique_fd(open("/", O_RDONLY)), false},
        {base::unique_fd(eventfd(0, 0)), false},
    };
    for (const auto &[fd, allowed] : cases) {
        ASSERT_TRUE(fd.valid());
        EXPECT_EQ(svc::may_take_output(fd.get(), k_stranger), allowed) << &fd - &cases[0].first;
        EXPECT_TRUE(svc::may_take_output(fd.get(), 0));
    }
}

}  // namespace
