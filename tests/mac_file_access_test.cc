// The MAC file of host interfaces where its folder, its owner or somebody else's files stand in the way.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "base/unique_fd.h"
#include "tests/mac_file_fixture.h"

namespace {

namespace fs = std::filesystem;
using sdk::SDK_RET_GENERIC_ERROR;
using sdk::SDK_RET_OK;

constexpr uid_t k_agent = 4711, k_stranger = 4712;

class mac_file_access : public test::mac_file {
 protected:
    const std::string old_ = test::text_of({{"A", test::mac_text(1)}, {"h1", test::mac_text(2)}});
    // Shorter than the old one.
    const std::string fresh_ = test::text_of({{"A", test::mac_text(1)}});

    sdk::sdk_ret_t update_once() { return remove("h1"); }

    // The old file is written in place: it is the same one, and keeps all that it has.
    void expect_written_in_place() {
        put(old_);
        const auto before = status_of(path_);
        EXPECT_EQ(update_once(), SDK_RET_OK);
        EXPECT_EQ(text(), fresh_);
        const auto after = status_of(path_);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_uid, before.st_uid);
        EXPECT_EQ(after.st_gid, before.st_gid);
        EXPECT_EQ(after.st_mode, before.st_mode);
    }
};

// The superuser may do anything, so that these need two other users.
class mac_file_of_others : public mac_file_access {
 protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs the superuser";
        }
        put(old_);
        own(path_, k_agent, 0640);
        own(folder_ / "", k_agent, 0755);
    }
    ~mac_file_of_others() override { (void)!seteuid(0); }

    static base::unique_fd lock(const std::string &path) {
        base::unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(flock(file.get(), LOCK_EX), 0);
        return file;
    }
    base::unique_fd lock_new_file_of_stranger() {
        std::ofstream{new_path_};
        own(new_path_, k_stranger, 0666);
        return lock(new_path_);
    }

    static void own(const std::string &path, uid_t user, mode_t mode) {
        EXPECT_EQ(chown(path.c_str(), user, user), 0);
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
    }
};

// What PATH.new is when the update begins. A file of ours goes; it may be a link to one that must stay.
TEST_F(mac_file_access, WhatStandsInTheNewFilesPlaceIsNotWritten) {
    const std::string precious = folder_ / "precious";
    std::ofstream(precious) << "precious";
    const std::function<void()> obstacles[] = {
        [&] { fs::create_symlink(precious, new_path_); },
        [&] { fs::create_hard_link(precious, new_path_); },
        [&] { mkfifo(new_path_.c_str(), 0600); },
        [&] { std::ofstream(new_path_) << old_ << old_; },
    };
    for (const auto &make : obstacles) {
        put(old_);
        make();
        EXPECT_EQ(update_once(), SDK_RET_OK);
        EXPECT_EQ(text(), fresh_);
        EXPECT_EQ(text(precious), "precious");
        EXPECT_EQ(entries_of(folder_ / ""), 2U);
    }
    fs::create_directory(new_path_);
    expect_written_in_place();
}

TEST_F(mac_file_access, MountPointIsWrittenInPlace) {
    const std::string elsewhere = folder_ / "elsewhere";
    std::ofstream{elsewhere};
    put("");
    if (mount(elsewhere.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "may not mount a file: " << strerror(errno);
    }
    expect_written_in_place();
    EXPECT_EQ(text(elsewhere), fresh_);
    EXPECT_FALSE(fs::exists(new_path_));
    EXPECT_EQ(umount(path_.c_str()), 0);
}

TEST_F(mac_file_of_others, FileThatCannotBeReplacedIsWrittenInPlace) {
    const std::function<void()> obstacles[] = {
        [&] { own(folder_ / "", k_stranger, 0755); },  // no new file in it
        [&] {                                          // nothing of others can be removed from it
            own(folder_ / "", k_stranger, 01777);
            std::ofstream{new_path_};
            own(new_path_, k_stranger, 0666);
        },
        [&] { own(path_, k_stranger, 0666); },  // no file can be given to its owner
    };
    for (const auto &make : obstacles) {
        fs::remove(new_path_);
        make();
        ASSERT_EQ(seteuid(k_agent), 0);
        expect_written_in_place();
        ASSERT_EQ(seteuid(0), 0);
    }
}

// Neither a stranger's PATH.new nor PATH.lock, nor a lock that a stranger holds, refuses updates for ever.
TEST_F(mac_file_of_others, StrangersLocksDoNotRefuseUpdates) {
    std::ofstream{path_ + ".lock"};
    own(path_ + ".lock", k_stranger, 0600);
    for (const uid_t agent : {k_agent, uid_t(0)}) {
        put(old_);
        const auto held = lock_new_file_of_stranger();
        ASSERT_EQ(seteuid(agent), 0);
        EXPECT_EQ(update_once(), SDK_RET_OK);
        ASSERT_EQ(seteuid(0), 0);
        EXPECT_EQ(text(), fresh_);
        EXPECT_FALSE(fs::exists(new_path_));
        own(path_, k_stranger, 0640);  // then PATH.new is like one that is about to be renamed
    }
    EXPECT_EQ(status_of(path_).st_uid, k_stranger);
}

TEST_F(mac_file_of_others, StrangersLockDelaysThreadsThatWriteInPlaceOnlyOnce) {
    put(test::text_of({}));
    own(folder_ / "", k_stranger, 0755);
    const auto held = lock(path_);
    ASSERT_EQ(seteuid(k_agent), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) {
        threads.emplace_back([i] { EXPECT_EQ(update("h" + std::to_string(i)), SDK_RET_OK); });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(read(path_).size(), 8U);
}

TEST_F(mac_file_of_others, FileThatMayNotBeWrittenIsAnErrorInAnyFolder) {
    for (const uid_t owner : {k_agent, k_stranger}) {
        own(path_, owner, 0444);
        ASSERT_EQ(seteuid(k_agent), 0);
        EXPECT_EQ(update_once(), SDK_RET_GENERIC_ERROR);
        ASSERT_EQ(seteuid(0), 0);
        EXPECT_EQ(text(), old_);
        EXPECT_EQ(entries_of(folder_ / ""), 1U);
    }
    // What may not be read either is replaced, since it may be written.
    own(path_, k_agent, 0200);
    ASSERT_EQ(seteuid(k_agent), 0);
    EXPECT_EQ(update("h2"), SDK_RET_OK);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(text(), test::text_of({{"h2", test::mac_text(1)}}));
}

}  // namespace
