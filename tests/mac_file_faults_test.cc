// The MAC file of host interfaces, while each system call of an update fails in turn. Linked in, this replaces these
// calls in the whole process.

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "svc/host_if_mac.h"
#include "tests/temporary_folder.h"
#include "tests/trace_capture.h"

namespace {

constexpr int k_short = -1;  // no error: a read or a write does half its work

struct fault_s {
    int64_t left = 0;  // calls up to the one that is struck; 0 and below: none will be
    int error = 0;
    const char *struck = nullptr;  // the call that was
};
thread_local fault_s t_fault;

bool strikes(const char *call) {
    if (t_fault.left <= 0 || --t_fault.left > 0) {
        return false;
    }
    t_fault.struck = call;
    errno = t_fault.error;
    return t_fault.error != k_short;
}

// What a read or a write of `size` bytes shall do.
size_t struck_size(size_t size) {
    return t_fault.left == 1 && t_fault.error == k_short ? (size + 1) / 2 : size;
}

template <class Function>
Function *next(const char *call) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, call));
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    static const auto real = next<int(const char *, int, ...)>("open");
    va_list args;
    va_start(args, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(args, mode_t) : 0;
    va_end(args);
    return strikes("open") ? -1 : real(path, flags, mode);
}

ssize_t read(int fd, void *buffer, size_t size) {
    static const auto real = next<ssize_t(int, void *, size_t)>("read");
    const size_t wanted = struck_size(size);
    return strikes("read") ? -1 : real(fd, buffer, wanted);
}

ssize_t write(int fd, const void *buffer, size_t size) {
    static const auto real = next<ssize_t(int, const void *, size_t)>("write");
    const size_t wanted = struck_size(size);
    return strikes("write") ? -1 : real(fd, buffer, wanted);
}

// A descriptor is closed also when that fails.
int close(int fd) {
    static const auto real = next<int(int)>("close");
    const int ret = real(fd);
    return strikes("close") ? -1 : ret;
}

int fsync(int fd) {
    static const auto real = next<int(int)>("fsync");
    return strikes("fsync") ? -1 : real(fd);
}

int stat(const char *path, struct stat *status) noexcept {
    static const auto real = next<int(const char *, struct stat *)>("stat");
    return strikes("stat") ? -1 : real(path, status);
}

int lstat(const char *path, struct stat *status) noexcept {
    static const auto real = next<int(const char *, struct stat *)>("lstat");
    return strikes("lstat") ? -1 : real(path, status);
}

int fstat(int fd, struct stat *status) noexcept {
    static const auto real = next<int(int, struct stat *)>("fstat");
    return strikes("fstat") ? -1 : real(fd, status);
}

ssize_t readlink(const char *path, char *buffer, size_t size) noexcept {
    static const auto real = next<ssize_t(const char *, char *, size_t)>("readlink");
    return strikes("readlink") ? -1 : real(path, buffer, size);
}

int fchmod(int fd, mode_t mode) noexcept {
    static const auto real = next<int(int, mode_t)>("fchmod");
    return strikes("fchmod") ? -1 : real(fd, mode);
}

int flock(int fd, int operation) noexcept {
    static const auto real = next<int(int, int)>("flock");
    return strikes("flock") ? -1 : real(fd, operation);
}

int rename(const char *from, const char *to) noexcept {
    static const auto real = next<int(const char *, const char *)>("rename");
    return strikes("rename") ? -1 : real(from, to);
}

int unlink(const char *path) noexcept {
    static const auto real = next<int(const char *)>("unlink");
    return strikes("unlink") ? -1 : real(path);
}

}  // extern "C"

namespace {

namespace fs = std::filesystem;
using sdk::SDK_RET_GENERIC_ERROR;
using sdk::SDK_RET_OK;

enum start_e { START_NO_FILE, START_FILE, START_LINK, START_LEFT_BEHIND };
constexpr const char *k_starts[] = {"no file", "a file", "a link", "a file and half of a new one"};

const char *text_of(int error) { return error == k_short ? "half the work" : strerror(error); }

std::string text_of(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

size_t entries_of(const std::string &folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

sdk::sdk_ret_t update(std::string name = "h2") {
    unsigned char mac[] = {0, 0xae, 0xcd, 1, 2, 3};
    return host_if_mac_update(name.data(), mac);
}

class mac_file_faults : public testing::Test {
 protected:
    mac_file_faults() { g_host_if_mac_file = path_; }
    ~mac_file_faults() override { g_host_if_mac_file = before_; }

    // Every update starts from the same; returns what the file then holds.
    std::string start_over(start_e start) const {
        fs::remove(path_);
        fs::remove(target_);
        fs::remove(path_ + ".new");
        if (start == START_NO_FILE) {
            return "";
        }
        fs::create_symlink(target_, path_);
        std::ofstream(target_) << R"({"host-interface": [{"name": "h1", "mac": "00:00:00:00:00:01"}]})";
        if (start != START_LINK) {
            fs::rename(target_, path_);
        }
        if (start == START_LEFT_BEHIND) {
            std::ofstream(path_ + ".new") << "half of a fi";
        }
        fs::permissions(path_, static_cast<fs::perms>(0640));
        return text_of(path_);
    }

    // One update that is struck at the nth system call; false when it makes fewer.
    bool fail_one(start_e start, int error, int64_t nth, const std::string &fresh) {
        const std::string old = start_over(start);
        const size_t descriptors = entries_of("/proc/self/fd");
        testing::internal::CaptureStderr();
        t_fault = {.left = nth, .error = error};
        const auto ret = update();
        const auto fault = std::exchange(t_fault, {});
        const std::string struck = fault.struck ? fault.struck : "none";
        (void)testing::internal::GetCapturedStderr();
        SCOPED_TRACE(struck + ", call " + std::to_string(nth) + ", " + text_of(error));
        EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
        EXPECT_EQ(text_of(path_), ret == SDK_RET_OK ? fresh : old);
        EXPECT_TRUE(ret == SDK_RET_OK || ret == SDK_RET_GENERIC_ERROR);
        const bool passed_over = error == k_short ||
                                 (error == EINTR && (struck == "read" || struck == "write")) ||
                                 struck == "flock";
        EXPECT_TRUE(ret == SDK_RET_OK || !passed_over);
        if (start != START_NO_FILE) {
            EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0640));
        }
        const bool may_stay = start == START_LEFT_BEHIND && ret != SDK_RET_OK;  // until the next update
        EXPECT_TRUE(may_stay || !fs::exists(path_ + ".new"));
        EXPECT_FALSE(fs::exists(target_ + ".new"));
        return fault.struck;
    }

    test::temporary_folder folder_;
    const std::string path_ = folder_ / "hostif_mac.json", target_ = folder_ / "target.json";
    test::trace_capture trace_{1};

 private:
    const std::string before_ = g_host_if_mac_file;
};

TEST_F(mac_file_faults, OldOrNewContentStandsWhole_WhicheverCallFails) {
    for (const auto start : {START_NO_FILE, START_FILE, START_LINK, START_LEFT_BEHIND}) {
        start_over(start);
        ASSERT_EQ(update(), SDK_RET_OK);
        const std::string fresh = text_of(path_);
        for (const int error : {ENOSPC, EIO, EINTR, EMFILE, ENOMEM, EAGAIN, k_short}) {
            int64_t nth = 1;
            while (fail_one(start, error, nth, fresh)) {
                nth++;
            }
            printf("%s, %s: %ld of %ld system calls\n", k_starts[start], text_of(error), nth - 1, nth - 1);
        }
    }
    EXPECT_EQ(update(), SDK_RET_OK);
}

TEST_F(mac_file_faults, FileThatCouldNotBeReadAgainIsNotWritten) {
    const std::string old =
        R"({"host-interface":[{"name":")" + std::string((1 << 20) - 100, 'A') + R"(","mac":"x"}]})";
    std::ofstream(path_) << old;
    EXPECT_EQ(update(), SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(text_of(path_), old);
}

// A disk without room, at first for the new file's content, then for the file.
TEST_F(mac_file_faults, FullDiskLeavesTheOldFile) {
    const std::string disk = folder_ / "disk", other = disk + "/other", last = disk + "/last";
    fs::create_directory(disk);
    if (mount("none", disk.c_str(), "tmpfs", 0, "size=16k,nr_inodes=5") != 0) {
        GTEST_SKIP() << "may not mount a disk: " << strerror(errno);
    }
    g_host_if_mac_file = disk + "/hostif_mac.json";
    EXPECT_EQ(update("h1"), SDK_RET_OK);
    const std::string old = text_of(g_host_if_mac_file);
    std::ofstream(other) << std::string(100'000, 'x');
    EXPECT_EQ(update(), SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(entries_of(disk), 3U);  // the file, its lock, and the other one
    fs::resize_file(other, 0);
    std::ofstream{last};
    EXPECT_EQ(update(), SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(text_of(g_host_if_mac_file), old);
    fs::remove(last);
    EXPECT_EQ(update(), SDK_RET_OK);
    EXPECT_NE(text_of(g_host_if_mac_file), old);
    EXPECT_EQ(umount(disk.c_str()), 0);
}

}  // namespace
