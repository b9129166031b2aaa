// The MAC file of host interfaces: its text, what it survives, and who may write it at once.

#include "svc/host_if_mac.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/json_file.h"
#include "tests/temporary_folder.h"
#include "tests/trace_capture.h"

namespace {

namespace fs = std::filesystem;
using sdk::SDK_RET_GENERIC_ERROR;
using sdk::SDK_RET_INVALID_ARG;
using sdk::SDK_RET_OK;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

using element = std::pair<std::string, std::string>;  // name and MAC address
using elements = std::vector<element>;

const std::string k_no_mac = "00:00:00:00:00:00";

std::string mac_text(uint8_t last) {
    char text[18];
    snprintf(text, sizeof(text), "00:ae:cd:01:02:%02x", last);
    return text;
}

std::string text_of(const elements &all) {
    std::string text;
    for (const auto &[name, mac] : all) {
        text += std::string(text.empty() ? "" : ",\n") + "        {\n            \"name\": \"" + name +
                "\",\n            \"mac\": \"" + mac + "\"\n        }";
    }
    return "{\n    \"host-interface\": " + (all.empty() ? "\"\"" : "[\n" + text + "\n    ]") + "\n}\n";
}

class mac_file : public testing::Test {
 protected:
    mac_file() { g_host_if_mac_file = path_; }
    ~mac_file() override { g_host_if_mac_file = before_; }

    static sdk::sdk_ret_t update(std::string name, uint8_t last) {
        unsigned char mac[] = {0, 0xae, 0xcd, 1, 2, last};
        return host_if_mac_update(name.data(), mac);
    }
    static sdk::sdk_ret_t remove(std::string name) {
        unsigned char mac[6] = {};
        return host_if_mac_update(name.data(), mac);
    }

    void put(const std::string &text) const { std::ofstream(path_, std::ios::binary) << text; }
    std::string text() const { return text(path_); }
    static std::string text(const std::string &path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    // The elements as the agent finds them at its next start; throws when the file is not JSON.
    static elements read(const std::string &path) {
        elements all;
        const auto tree = base::read_json_file(path);
        for (const auto &[key, child] : tree.get_child("host-interface")) {
            all.emplace_back(child.get<std::string>("name"), child.get<std::string>("mac"));
        }
        return all;
    }

    static size_t entries_of(const std::string &folder) {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
    }

    test::temporary_folder folder_;
    const std::string path_ = folder_ / "hostif_mac.json";
    test::trace_capture trace_{1};

 private:
    const std::string before_ = g_host_if_mac_file;
};

TEST_F(mac_file, OneElementHasThisText) {
    char name[] = "h1";
    unsigned char mac[] = {0, 0, 0, 0, 0, 1};
    EXPECT_EQ(host_if_mac_update(name, mac), SDK_RET_OK);
    EXPECT_EQ(text(), R"({
    "host-interface": [
        {
            "name": "h1",
            "mac": "00:00:00:00:00:01"
        }
    ]
}
)");
}

TEST_F(mac_file, UpdateReplacesInPlace_AppendsOrRemoves) {
    const std::string a = mac_text(1), b = mac_text(2), c = mac_text(3), d = mac_text(0xfe);
    struct {
        elements before;
        std::string name;
        bool remove;
        elements after;
    } const cases[] = {
        {{{"A", a}, {"B", b}, {"C", c}}, "B", false, {{"A", a}, {"B", d}, {"C", c}}},
        {{{"A", a}, {"B", b}, {"C", c}}, "B", true, {{"A", a}, {"C", c}}},
        {{{"A", a}, {"B", b}, {"C", c}}, "b", false, {{"A", a}, {"B", b}, {"C", c}, {"b", d}}},
        {{{"A", a}, {"B", b}}, "AB", true, {{"A", a}, {"B", b}}},
        {{{"B", a}, {"A", b}, {"B", c}}, "B", false, {{"B", d}, {"A", b}, {"B", d}}},
        {{{"B", a}, {"A", b}, {"B", c}}, "B", true, {{"A", b}}},
        {{{"A", a}, {"A", b}, {"C", c}}, "C", false, {{"A", a}, {"A", b}, {"C", d}}},
        {{{"A", a}}, "A", true, {}},
        {{}, "A", true, {}},
        {{}, "A", false, {{"A", d}}},
        {{{"A", "no address"}}, "B", false, {{"A", "no address"}, {"B", d}}},
    };
    for (const auto &each : cases) {
        put(text_of(each.before));
        EXPECT_EQ(each.remove ? remove(each.name) : update(each.name, 0xfe), SDK_RET_OK);
        EXPECT_EQ(text(), text_of(each.after)) << each.name << " in " << text_of(each.before);
    }
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(mac_file, ElementsAreReadWithTheirDefaults_AndNothingElseIsKept) {
    const std::string new_mac = mac_text(9);
    const std::pair<std::string, elements> cases[] = {
        {R"({"host-interface": [{"name": "A"}]})", {{"A", k_no_mac}, {"default", new_mac}}},
        {R"({"host-interface": [{"mac": "x"}, {"name": "B", "mac": "y"}]})",
         {{"default", new_mac}, {"B", "y"}}},
        {R"({"host-interface": [{}, {"name": "default"}]})", {{"default", new_mac}, {"default", new_mac}}},
        {R"({"x": [1], "host-interface": [{"mac": "y", "z": {"name": "q"}, "name": "B"}], "y": 2})",
         {{"B", "y"}, {"default", new_mac}}},
        {R"({"host-interface": []})", {{"default", new_mac}}},
        {R"({"host-interface": [{"name": "", "mac": "y"}]})", {{"", "y"}, {"default", new_mac}}},
    };
    for (const auto &[before, after] : cases) {
        put(before);
        EXPECT_EQ(update("default", 9), SDK_RET_OK);
        EXPECT_EQ(text(), text_of(after)) << before;
    }
    EXPECT_THAT(trace_.messages(), IsEmpty());
    put(R"({"host-interface": [{"mac": "y"}]})");
    EXPECT_EQ(update("B", 9), SDK_RET_OK);
    EXPECT_EQ(text(), text_of({{"default", "y"}, {"B", new_mac}}));
}

TEST_F(mac_file, NoNameIsRefused_AndTouchesNothing) {
    unsigned char mac[] = {0, 0xae, 0xcd, 1, 2, 3};
    char empty[] = "\0h1";
    for (char *name : {static_cast<char *>(nullptr), empty}) {
        EXPECT_EQ(host_if_mac_update(name, mac), SDK_RET_INVALID_ARG);
        EXPECT_FALSE(fs::exists(path_));
    }
    put("not json");
    EXPECT_EQ(host_if_mac_update(empty, mac), SDK_RET_INVALID_ARG);
    EXPECT_EQ(text(), "not json");
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(mac_file, FileThatIsNoSuchFileIsReplaced_AndLogged) {
    const std::string cases[] = {
        "",
        "null",
        "[]",
        "{}",
        R"({"other": [{"name": "A", "mac": "x"}]})",
        R"({"host-interface": [{"name": "A", "mac": "x"}, {"na)",
        R"({"host-interface": [{"name": "A"}]} trailing)",
        std::string(100, '\0'),
        std::string(500'000, '['),
        "{\"host-interface\": " + std::string(250'000, '[') + std::string(250'000, ']') + "}"};
    for (const auto &each : cases) {
        SCOPED_TRACE(each.substr(0, 60));
        test::trace_capture trace(1);
        put(each);
        testing::internal::CaptureStderr();
        EXPECT_EQ(update("h1", 1), SDK_RET_OK);
        const auto told = testing::internal::GetCapturedStderr();
        EXPECT_GT(told.size(), 1U);
        EXPECT_TRUE(told.ends_with('\n')) << told;
        EXPECT_EQ(text(), text_of({{"h1", mac_text(1)}}));
        EXPECT_THAT(trace.sink().lines(),
                    ElementsAre(testing::MatchesRegex("\\[host_if_mac_update:[0-9]+\\] Error updating %s")));
    }
    core::g_trace_logger = nullptr;
    put("");
    EXPECT_EQ(update("h1", 1), SDK_RET_OK);
}

// What the path names may be anything; an update then ends with a good file, or it fails.
TEST_F(mac_file, HostilePathsNeitherHangNorCrash) {
    // Updates replace what a link leads to: a superuser's test must not get near the real device.
    std::string device = "/dev/zero";
    if (geteuid() == 0) {
        device = folder_ / "zero";
        (void)!mknod(device.c_str(), S_IFCHR | 0600, makedev(1, 5));
    }
    const std::pair<std::string, std::function<void()>> cases[] = {
        {"folder", [&] { fs::create_directory(path_); }},
        {"FIFO", [&] { mkfifo(path_.c_str(), 0600); }},
        {"device", [&] { fs::create_symlink(device, path_); }},
        {"endless links", [&] { fs::create_symlink(path_, path_); }},
        {"above 1 MiB",
         [&] {
             put(text_of({{std::string(1 << 20, 'A'), "x"}}));
         }},
        {"invalid UTF-8",
         [&] {
             put(text_of({{"A\xff\xfe", "\xc3"}}));
         }},
        {"half a surrogate",
         [&] {
             put(text_of({{"A\\ud800", "\\udc00"}}));
         }},
    };
    const size_t descriptors = entries_of("/proc/self/fd");
    for (const auto &[name, make] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(path_);
        make();
        const auto ret = update("h1", 1);
        EXPECT_THAT(ret, AnyOf(SDK_RET_OK, SDK_RET_GENERIC_ERROR));
        if (ret == SDK_RET_OK) {
            ASSERT_FALSE(read(path_).empty());
            EXPECT_EQ(read(path_).back(), element("h1", mac_text(1)));
        }
    }
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
    EXPECT_TRUE(fs::is_character_file(device) || !fs::exists(device));
}

TEST_F(mac_file, AnyNameCanBeReadAgain) {
    // Names are cut to 15 bytes, also within a character.
    const std::string names[] = {
        "fourteen bytes\xc3", "thirteen byte\xe2\x82", "\xf0\x9f\x98", "x\x80", "quo\"te\\/",
        "\x01\x1f\x7f",       "gr\xc3\xbc\xc3\x9f",    "line\nline",   "a.b"};
    uint8_t number = 0;
    for (const auto &name : names) {
        EXPECT_EQ(update(name, ++number), SDK_RET_OK);
        EXPECT_EQ(read(path_).size(), number);
    }
    EXPECT_EQ(update("other", ++number), SDK_RET_OK);
    auto all = read(path_);
    ASSERT_EQ(all.size(), number);
    for (uint8_t i = 0; i < number; i++) {
        EXPECT_EQ(all[i].second, mac_text(i + 1));
    }
    EXPECT_EQ(all[0].first, "fourteen bytes");  // longer, it would be no name for those who read the file
    EXPECT_EQ(all[4].first, names[4]);
    EXPECT_EQ(all[6].first, names[6]);
    for (const auto &name : names) {
        EXPECT_EQ(update(name, 0x77), SDK_RET_OK);
    }
    EXPECT_EQ(read(path_).size(), number);
    for (const auto &name : names) {
        EXPECT_EQ(remove(name), SDK_RET_OK);
    }
    EXPECT_EQ(text(), text_of({{"other", mac_text(number)}}));
    EXPECT_THAT(trace_.messages(), ElementsAre("Error updating %s"));  // of the first update: no file
}

TEST_F(mac_file, FailureToWriteIsLogged_AndLeavesTheOldFile) {
    const std::string failed =
        "\\[host_if_mac_update:[0-9]+\\] Failed to update mac address %s for host interface %s in %s";
    const auto fails = [&] {
        test::trace_capture trace(1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(update("h1", 1), SDK_RET_GENERIC_ERROR);
        EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with('\n'));
        ASSERT_FALSE(trace.sink().lines().empty());
        EXPECT_THAT(trace.sink().lines().back(), testing::MatchesRegex(failed));
    };
    g_host_if_mac_file = folder_ / "missing/hostif_mac.json";
    fails();
    EXPECT_FALSE(fs::exists(folder_ / "missing"));
    put("a file");
    g_host_if_mac_file = path_ + "/hostif_mac.json";
    fails();
    EXPECT_EQ(text(), "a file");

    // A device that is full, as far as one process can make it so.
    g_host_if_mac_file = path_;
    elements many(1000, {"A", mac_text(2)});
    put(text_of(many));
    const auto entries = entries_of(folder_ / "");
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {16'384, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    const auto ret = update("h1", 1);
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(ret, SDK_RET_GENERIC_ERROR);
    EXPECT_EQ(text(), text_of(many));
    EXPECT_LE(entries_of(folder_ / ""), entries + 1);  // a lock may stay, no half-written file
    EXPECT_EQ(update("h1", 1), SDK_RET_OK);
    many.emplace_back("h1", mac_text(1));
    EXPECT_EQ(text(), text_of(many));
}

TEST_F(mac_file, LinksAreFollowed_AndPermissionsKept) {
    fs::create_directory(folder_ / "elsewhere");
    const std::string target = folder_ / "elsewhere/macs.json";
    fs::create_symlink("elsewhere/macs.json", path_);
    for (const mode_t mode : {0600U, 0640U, 0664U, 0444U}) {
        std::ofstream(target) << text_of({{"A", mac_text(1)}});
        fs::permissions(target, static_cast<fs::perms>(mode));
        EXPECT_EQ(update("A", 2), SDK_RET_OK);
        EXPECT_TRUE(fs::is_symlink(path_));
        EXPECT_EQ(text(target), text_of({{"A", mac_text(2)}}));
        struct stat status = {};
        stat(target.c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777, mode);
        fs::remove(target);
    }
    EXPECT_EQ(update("A", 3), SDK_RET_OK);  // the link leads nowhere by now
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_EQ(text(target), text_of({{"A", mac_text(3)}}));
}

TEST_F(mac_file, UpdatesAtOnceFromThreadsAndProcessesLoseNothing) {
    constexpr int k_threads = 8, k_processes = 2, k_names = 5, k_rounds = 2;
    std::set<std::string> expected;
    pid_t processes[k_processes];
    for (int i = 0; i < k_processes; i++) {
        std::string arguments[] = {NYX_MAC_FILE_WRITER,     path_, "p" + std::to_string(i) + ".",
                                   std::to_string(k_names), "1",   std::to_string(k_names * k_rounds)};
        char *argv[7] = {};
        for (size_t arg = 0; arg < std::size(arguments); arg++) {
            argv[arg] = arguments[arg].data();
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        EXPECT_EQ(posix_spawn(&processes[i], argv[0], &actions, nullptr, argv, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < k_threads; i++) {
        threads.emplace_back([i] {
            for (int n = 0; n < k_names * k_rounds; n++) {
                EXPECT_EQ(update("t" + std::to_string(i) + "." + std::to_string(n % k_names), 1), SDK_RET_OK);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    for (const pid_t process : processes) {
        int status = -1;
        waitpid(process, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (int name = 0; name < k_names; name++) {
        for (int i = 0; i < k_threads; i++) {
            expected.insert("t" + std::to_string(i) + "." + std::to_string(name));
        }
        for (int i = 0; i < k_processes; i++) {
            expected.insert("p" + std::to_string(i) + "." + std::to_string(name));
        }
    }
    const auto all = read(path_);
    std::set<std::string> found;
    for (const auto &[name, mac] : all) {
        found.insert(name);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(all.size(), expected.size());
}

}  // namespace
