// The MAC file of host interfaces while many write it at once, and when writers are killed.

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <set>
#include <thread>

#include "base/unique_fd.h"
#include "tests/mac_file_fixture.h"

namespace {

using sdk::SDK_RET_OK;

constexpr uint32_t k_names = 20;

std::string name_of(const std::string &prefix, uint32_t number) {
    return prefix + std::to_string(number % k_names);
}

class mac_file_writers : public test::mac_file {
 protected:
    // Update number n gives the interface PREFIX<n modulo k_names> a MAC address that ends in n.
    static sdk::sdk_ret_t update_number(const std::string &prefix, uint32_t n) {
        std::string name = name_of(prefix, n);
        unsigned char mac[] = {0, 0, uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)};
        return host_if_mac_update(name.data(), mac);
    }

    // Runs `work` in a process of its own, which ends with 0 when that gives true.
    static pid_t start(const std::function<bool()> &work) {
        const pid_t process = fork();
        if (process == 0) {
            _exit(work() ? 0 : 1);
        }
        EXPECT_GT(process, 0);
        return process;
    }

    static int status_of_ended(pid_t process) {
        int status = -1;
        waitpid(process, &status, 0);
        return status;
    }

    // Starts a writer that goes on from update `first`, and is killed some time after that. Returns the last update
    // that it acknowledged.
    uint32_t write_until_killed(uint32_t first, suseconds_t after_us) {
        int pipe_ends[2];
        EXPECT_EQ(pipe(pipe_ends), 0);
        const base::unique_fd reader(pipe_ends[0]);
        base::unique_fd writer(pipe_ends[1]);
        const pid_t process = start([&] {
            const itimerval timer = {.it_interval = {}, .it_value = {0, after_us}};
            for (uint32_t n = first;; n++) {
                if (update_number("h", n) != SDK_RET_OK || write(writer.get(), &n, sizeof(n)) != sizeof(n)) {
                    return false;
                }
                if (n == first) {
                    setitimer(ITIMER_REAL, &timer, nullptr);  // its signal ends the process
                }
            }
        });
        writer.reset();
        uint32_t last = first - 1;
        while (::read(reader.get(), &last, sizeof(last)) == sizeof(last)) {
        }
        EXPECT_TRUE(WIFSIGNALED(status_of_ended(process)));
        return last;
    }

    // The content after updates 1 to `last`.
    static std::string content_after(uint32_t last) {
        test::elements all;
        for (uint32_t first = 1; first <= std::min(last, k_names); first++) {
            const uint32_t n = last - (last - first) % k_names;
            char mac[18];
            snprintf(mac, sizeof(mac), "00:00:%02x:%02x:%02x:%02x", n >> 24, n >> 16 & 255, n >> 8 & 255,
                     n & 255);
            all.emplace_back(name_of("h", first), mac);
        }
        return test::text_of(all);
    }
};

TEST_F(mac_file_writers, UpdatesAtOnceFromThreadsAndProcessesLoseNothing) {
    constexpr uint32_t k_threads = 8, k_processes = 2, k_updates = 10;
    const auto update_all = [](const std::string &prefix) {
        bool good = true;
        for (uint32_t n = 1; n <= k_updates; n++) {
            good = update_number(prefix, n) == SDK_RET_OK && good;
        }
        return good;
    };
    std::set<std::string> expected, found;
    std::vector<pid_t> processes;
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < k_processes + k_threads; i++) {
        const std::string prefix(1, static_cast<char>('a' + i));
        for (uint32_t n = 1; n <= k_updates; n++) {
            expected.insert(name_of(prefix, n));
        }
        if (i < k_processes) {  // at first: a process with threads is hard to copy
            processes.push_back(start([&] { return update_all(prefix); }));
        } else {
            threads.emplace_back([&update_all, prefix] { EXPECT_TRUE(update_all(prefix)); });
        }
    }
    for (auto &thread : threads) {
        thread.join();
    }
    for (const pid_t process : processes) {
        EXPECT_EQ(status_of_ended(process), 0);
    }
    const auto all = read(path_);
    for (const auto &[name, mac] : all) {
        found.insert(name);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(all.size(), expected.size());
}

// Sets of kills are run by torture/, which gives their number.
TEST_F(mac_file_writers, KilledOnesLeaveWhatWasAcknowledged_OrOneUpdateMore) {
    const char *const number = getenv("NYX_KILLS");
    const int kills = number ? atoi(number) : 50;
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::uniform_int_distribution<suseconds_t> moment_us(1, 20'000);
    uint32_t last = 0;
    for (int i = 0; i < kills; i++) {
        const uint32_t acknowledged = write_until_killed(last + 1, moment_us(random));
        const bool one_more = text() == content_after(acknowledged + 1);
        if (!one_more) {
            ASSERT_EQ(text(), content_after(acknowledged)) << "kill " << i << ", seed " << seed;
        }
        last = acknowledged + one_more;
        EXPECT_LE(entries_of(folder_ / ""), 2U);  // no unfinished files pile up
    }
    printf("kills %d, updates %u\n", kills, last);
    EXPECT_EQ(update_number("h", last + 1), SDK_RET_OK);
    EXPECT_EQ(entries_of(folder_ / ""), 1U);
}

}  // namespace
