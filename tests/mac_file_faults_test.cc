// The MAC file of host interfaces, while each system call and each allocation of an update fails in turn, and on a full
// disk. Linked in, this replaces these calls in the whole process.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "tests/allocation_points.h"
#include "tests/mac_file_fixture.h"

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

int ftruncate(int fd, off_t size) noexcept {
    static const auto real = next<int(int, off_t)>("ftruncate");
    return strikes("ftruncate") ? -1 : real(fd, size);
}

int fchown(int fd, uid_t owner, gid_t group) noexcept {
    static const auto real = next<int(int, uid_t, gid_t)>("fchown");
    return strikes("fchown") ? -1 : real(fd, owner, group);
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

class mac_file_faults : public test::mac_file {
 protected:
    // Every update starts from the same; returns what the file then holds.
    std::string start_over(start_e start) const {
        fs::remove(path_);
        fs::remove(target_);
        fs::remove(new_path_);
        fs::remove(target_ + ".new");
        if (start == START_NO_FILE) {
            return "";
        }
        fs::create_symlink(target_, path_);
        std::ofstream(target_) << test::text_of({{"h1", test::mac_text(1)}});
        if (start != START_LINK) {
            fs::rename(target_, path_);
        }
        if (start == START_LEFT_BEHIND) {
            std::ofstream(new_path_) << "half of a fi";
        }
        fs::permissions(path_, static_cast<fs::perms>(0640));
        return text();
    }

    // One update that is struck at the nth system call; false when it makes fewer.
    bool fail_one(start_e start, int error, int64_t nth) {
        const std::string old = start_over(start);
        const size_t descriptors = entries_of("/proc/self/fd");
        test::trace_capture trace(1);
        testing::internal::CaptureStderr();
        t_fault = {.left = nth, .error = error};
        const auto ret = update("h2", 2);
        const auto fault = std::exchange(t_fault, {});
        const std::string struck = fault.struck ? fault.struck : "none";
        (void)testing::internal::GetCapturedStderr();
        SCOPED_TRACE(struck + ", call " + std::to_string(nth) + ", " + text_of(error));
        EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
        EXPECT_TRUE(ret == SDK_RET_OK || ret == SDK_RET_GENERIC_ERROR);
        test::elements all = {{"h1", test::mac_text(1)}, {"h2", test::mac_text(2)}};
        const auto messages = trace.messages();
        if (start == START_NO_FILE || (!messages.empty() && messages[0] == "Error updating %s")) {
            all.erase(all.begin());  // there was none, or it could not be read
        }
        EXPECT_EQ(text(), ret == SDK_RET_OK ? test::text_of(all) : old);
        const bool passed_over = error == k_short ||
                                 (error == EINTR && (struck == "read" || struck == "write")) ||
                                 struck == "flock";
        EXPECT_TRUE(ret == SDK_RET_OK || !passed_over);
        EXPECT_TRUE(all.size() == 2 || !passed_over || start == START_NO_FILE);
        if (start != START_NO_FILE) {
            EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0640));
        }
        // An unfinished file may stay until the next update, where it could not be examined or removed.
        const bool may_stay = struck == "fstat" || struck == "unlink" || start == START_LEFT_BEHIND;
        const bool stays = fs::exists(new_path_) || fs::exists(target_ + ".new");
        EXPECT_TRUE(!stays || (may_stay && ret != SDK_RET_OK));
        return fault.struck;
    }

    const std::string target_ = folder_ / "target.json";
};

TEST_F(mac_file_faults, OldOrNewContentStandsWhole_WhicheverCallFails) {
    for (const auto start : {START_NO_FILE, START_FILE, START_LINK, START_LEFT_BEHIND}) {
        for (const int error : {ENOSPC, EIO, EINTR, EMFILE, ENOMEM, EAGAIN, k_short}) {
            int64_t nth = 1;
            while (fail_one(start, error, nth)) {
                nth++;
            }
            printf("%s, %s: %ld of %ld system calls\n", k_starts[start], text_of(error), nth - 1, nth - 1);
        }
    }
    EXPECT_EQ(update("h2"), SDK_RET_OK);
}

TEST_F(mac_file_faults, OldOrNewContentStandsWhole_WhicheverAllocationFails) {
    const std::pair<std::string, std::string> cases[] = {
        {"no file", ""},
        {"a file with other content", R"({"host-interface": [{"name": "A", "mac": "x"}, {"na)"},
        {"records", R"({"host-interface": [{"name": "interface-number-1", "mac": "00:ae:cd:00:00:01"},)"
                    R"( {"mac": "00:ae:cd:00:00:02", "name": "interface-number-2"}, {"name": "x"}]})"}};
    const std::string name = "gr\xc3\xbc\xc3\x9f and more";
    const auto start_over = [&](const std::string &content) {
        fs::remove(path_);
        if (!content.empty()) {
            put(content);
        }
    };
    for (const auto &[what, old] : cases) {
        start_over(old);
        ASSERT_EQ(update(name), SDK_RET_OK);
        const std::string fresh = text();
        const size_t descriptors = entries_of("/proc/self/fd");
        bool struck = true;
        for (int64_t nth = 1; struck; nth++) {
            SCOPED_TRACE(what + ", allocation " + std::to_string(nth));
            start_over(old);
            auto ret = sdk::SDK_RET_MAX_RETURN_VALUE;
            {
                const test::failing_allocation failing(nth);
                ret = update(name);
                struck = failing.struck();
            }
            EXPECT_TRUE(ret == SDK_RET_OK || ret == SDK_RET_GENERIC_ERROR);
            EXPECT_EQ(text(), ret == SDK_RET_OK ? fresh : old);
            EXPECT_FALSE(fs::exists(new_path_));
            EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
        }
        EXPECT_EQ(update(name), SDK_RET_OK);
    }
}

// A disk without room, at first for the new content, then for the new file, then for more content in place.
TEST_F(mac_file_faults, FullDiskLeavesTheOldFile) {
    const std::string disk = folder_ / "disk", other = disk + "/other", last = disk + "/last";
    fs::create_directory(disk);
    if (mount("none", disk.c_str(), "tmpfs", 0, "size=16k,nr_inodes=4") != 0) {
        GTEST_SKIP() << "may not mount a disk: " << strerror(errno);
    }
    g_host_if_mac_file = disk + "/hostif_mac.json";
    EXPECT_EQ(update("h1"), SDK_RET_OK);
    const std::string old = text(g_host_if_mac_file);
    std::ofstream(other) << std::string(100'000, 'x');
    EXPECT_EQ(update("h2"), SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(entries_of(disk), 2U);
    fs::resize_file(other, 0);
    std::ofstream{last};
    EXPECT_EQ(update("h2"), SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(text(g_host_if_mac_file), old);
    fs::remove(last);
    EXPECT_EQ(update("h2"), SDK_RET_OK);
    const std::string fresh = text(g_host_if_mac_file);
    EXPECT_NE(fresh, old);
    fs::create_directory(g_host_if_mac_file + ".new");
    std::ofstream(other) << std::string(100'000, 'x');
    EXPECT_EQ(update(std::string(5000, 'h')), SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(text(g_host_if_mac_file), fresh);
    EXPECT_EQ(update("h2", 7), SDK_RET_OK);
    EXPECT_EQ(umount(disk.c_str()), 0);
}

}  // namespace
