// The MAC file of host interfaces: what an update makes of its content, and how it fails.

#include "svc/host_if_mac.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <functional>

#include "tests/mac_file_fixture.h"

namespace {

namespace fs = std::filesystem;
using sdk::SDK_RET_GENERIC_ERROR;
using sdk::SDK_RET_INVALID_ARG;
using sdk::SDK_RET_OK;
using test::element;
using test::elements;
using test::mac_file;
using test::mac_text;
using test::text_of;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::string k_no_mac = "00:00:00:00:00:00";

std::string nested(size_t depth, const std::string &core = "") {
    return std::string(depth, '[') + core + std::string(depth, ']');
}

TEST_F(mac_file, OneElementHasThisText) {
    EXPECT_EQ(update("h1"), SDK_RET_OK);
    EXPECT_EQ(text(), R"({
    "host-interface": [
        {
            "name": "h1",
            "mac": "00:ae:cd:01:02:01"
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

// Everything that is JSON, of any depth and size: what is not asked for is skipped.
TEST_F(mac_file, ElementsAreReadWithTheirDefaults_AndNothingElseIsKept) {
    const std::string mac = mac_text(9);
    const std::string deep = nested(300'000, R"({"host-interface": [{"name": "X"}], "name": "Y"})");
    const element last = {"default", mac};
    const std::pair<std::string, elements> cases[] = {
        {R"({"host-interface": [{"name": "A"}]})", {{"A", k_no_mac}, last}},
        {R"({"host-interface": [{"mac": "x"}, {"name": "B", "mac": "y"}]})", {last, {"B", "y"}}},
        {R"({"host-interface": [{}, {"name": "default"}]})", {last, last}},
        {R"({"x": [1], "host-interface": [{"mac": "y", "z": {"name": "q"}, "name": "B"}], "y": 2})",
         {{"B", "y"}, last}},
        {R"({"host-interface": [{"name": "", "mac": "y"}, {"name": {"name": "A"}, "mac": []}]})",
         {{"", "y"}, {"", ""}, last}},
        {R"({"host-interface": [{"name": 1, "mac": -0.5e+3}, {"name": true, "mac": null}]})",
         {{"1", "-0.5e+3"}, {"true", "null"}, last}},
        {R"({"host-interface": [{"name": "A", "name": "B"}], "host-interface": [{"name": "C"}]})",
         {{"A", k_no_mac}, last}},
        {R"({"host-interface": ["A", 1, [{"name": "B"}]]})", {last, last, last}},
        {R"({"host-interface": {"A": {"name": "B", "mac": "y"}}})", {{"B", "y"}, last}},
        {R"({"host-interface": []})", {last}},
        {R"({"host-interface": null})", {last}},
        {"\xef\xbb\xbf\r\n\t{\"host-interface\":[{\"n\\u0061me\":\"A\"}\n]\n}\n", {{"A", k_no_mac}, last}},
        {R"({"host-interface": )" + deep + "}", {last}},
        {R"({"x": )" + deep + R"(, "host-interface": [{"z": )" + deep + R"(, "name": "B"}]})",
         {{"B", k_no_mac}, last}},
        {R"({"x": ")" + std::string(3'000'000, 'x') + R"(", "host-interface": [{"name": "B"}]})",
         {{"B", k_no_mac}, last}},
    };
    for (const auto &[before, after] : cases) {
        put(before);
        EXPECT_EQ(update("default", 9), SDK_RET_OK);
        EXPECT_EQ(text(), text_of(after)) << before.substr(0, 200);
    }
    EXPECT_THAT(trace_.messages(), IsEmpty());
    put(R"({"host-interface": [{"mac": "y"}]})");
    EXPECT_EQ(update("B", 9), SDK_RET_OK);
    EXPECT_EQ(text(), text_of({{"default", "y"}, {"B", mac}}));
}

TEST_F(mac_file, NoNameIsRefused_AndTouchesNothing) {
    unsigned char mac[] = {0, 0xae, 0xcd, 1, 2, 3};
    char empty[] = "\0h1", cut_to_nothing[] = "\xf0\x9f\x98";
    for (char *name : {static_cast<char *>(nullptr), empty, cut_to_nothing}) {
        EXPECT_EQ(host_if_mac_update(name, mac), SDK_RET_INVALID_ARG);
        EXPECT_FALSE(fs::exists(path_));
    }
    put("not json");
    EXPECT_EQ(host_if_mac_update(empty, mac), SDK_RET_INVALID_ARG);
    EXPECT_EQ(text(), "not json");
    EXPECT_THAT(trace_.messages(), IsEmpty());
}

TEST_F(mac_file, FileThatIsNoSuchFileIsReplaced_AndLogged) {
    const std::string record = R"({"host-interface": [{"name": "A", "mac": "x"}]})";
    const std::string cases[] = {
        "",
        "null",
        "[]",
        "{}",
        R"({"other": [{"name": "A", "mac": "x"}]})",
        R"([{"host-interface": []}])",
        R"({"host-interface": [{"name": "A", "mac": "x"}, {"na)",
        record + " trailing",
        record + record,
        R"({"host-interface": [{"name": "A"},]})",
        R"({"host-interface": [{"name": "A"}})",
        R"({"host-interface": [{"name" "A"}]})",
        R"({"host-interface": [], "x": 01})",
        R"({"host-interface": [], "x": nul})",
        R"({"host-interface": [], "x": "\ud800"})",
        R"({"host-interface": [], "x": "\x"})",
        "{\"host-interface\": [], \"x\": \"\xc3\"}",
        "{\"host-interface\": [], \"x\": \"\n\"}",
        std::string(100, '\0'),
        nested(500'000).substr(0, 500'000),
        std::string(3'000'000, ' ') + record + "x",
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.substr(0, 60));
        test::trace_capture trace(1);
        put(each);
        testing::internal::CaptureStderr();
        EXPECT_EQ(update("h1", 1), SDK_RET_OK);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), MatchesRegex(".*hostif_mac.json: .+\n"));
        EXPECT_EQ(text(), text_of({{"h1", mac_text(1)}}));
        EXPECT_THAT(trace.sink().lines(),
                    ElementsAre(MatchesRegex("\\[host_if_mac_update:[0-9]+\\] Error updating %s")));
    }
    core::g_trace_logger = nullptr;
    put("");
    EXPECT_EQ(update("h1", 1), SDK_RET_OK);
}

// What the path names may be anything; an update then ends with a good file, or it fails. Either way both log lines and
// both reasons are written, the one for reading and the one for writing.
TEST_F(mac_file, HostilePathsNeitherHangNorCrash) {
    // A superuser's test must not get near a real device.
    std::string device = "/dev/zero";
    if (geteuid() == 0) {
        device = folder_ / "zero";
        (void)!mknod(device.c_str(), S_IFCHR | 0600, makedev(1, 5));
    }
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    const std::pair<std::string, std::function<void()>> cases[] = {
        {"a folder", [&] { fs::create_directory(path_); }},
        {"a FIFO", [&] { mkfifo(path_.c_str(), 0600); }},
        {"a device", [&] { fs::create_symlink(device, path_); }},
        {"endless links", [&] { fs::create_symlink(path_, path_); }},
        {"no folder", [&] { fs::create_symlink(folder_ / "missing/macs.json", path_); }},
        {"a file for a folder", [&] { fs::create_symlink(device + "/macs.json", path_); }},
        {"no descriptors",
         [&] {
             put(text_of({{"A", "x"}}));
             const rlimit none = {0, files.rlim_max};
             setrlimit(RLIMIT_NOFILE, &none);
         }},
    };
    const size_t descriptors = entries_of("/proc/self/fd");
    for (const auto &[name, make] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(path_);
        test::trace_capture trace(1);
        testing::internal::CaptureStderr();
        make();
        EXPECT_EQ(update("h1", 1), SDK_RET_GENERIC_ERROR);
        setrlimit(RLIMIT_NOFILE, &files);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), MatchesRegex(".+\n.+\n"));
        EXPECT_THAT(
            trace.sink().lines(),
            ElementsAre(MatchesRegex("\\[host_if_mac_update:[0-9]+\\] Error updating %s"),
                        MatchesRegex("\\[host_if_mac_update:[0-9]+\\] Failed to update mac address %s for "
                                     "host interface %s in %s")));
    }
    EXPECT_EQ(text(), text_of({{"A", "x"}}));
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
    EXPECT_TRUE(fs::is_character_file(device) || !fs::exists(device));
}

TEST_F(mac_file, AnyNameCanBeReadAgain) {
    // Names are cut to 15 bytes, also within a character.
    const std::string names[] = {
        "fourteen bytes\xc3", "thirteen byte\xe2\x82", "\x1f\xf0\x9f\x98", "x\x80", "quo\"te\\/",
        "\x01\b\f\r\t\x7f",   "gr\xc3\xbc\xc3\x9f",    "line\nline",       "a.b"};
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
    for (const size_t whole : {4U, 5U, 6U, 7U}) {
        EXPECT_EQ(all[whole].first, names[whole]);
    }
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(path_, tree);
    std::ostringstream boosts;
    boost::property_tree::write_json(boosts, tree);
    EXPECT_EQ(text(), boosts.str());
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

// A device that is full, as far as one process can make it so. The signal that comes with it would end the process.
TEST_F(mac_file, FileAboveTheLimitOfTheProcessIsNotWritten) {
    elements many(1000, {"A", mac_text(2)});
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {16'384, before.rlim_max};
    for (const bool in_place : {false, true}) {
        put(text_of(many));
        if (in_place) {
            fs::create_directory(new_path_);
        }
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(update("h1", 1), SDK_RET_GENERIC_ERROR);
        sigset_t pending;
        sigpending(&pending);
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_FALSE(sigismember(&pending, SIGXFSZ));
        EXPECT_EQ(text(), text_of(many));
        EXPECT_EQ(entries_of(folder_ / ""), in_place ? 2U : 1U);
    }
    EXPECT_EQ(update("h1", 1), SDK_RET_OK);
    many.emplace_back("h1", mac_text(1));
    EXPECT_EQ(text(), text_of(many));
}

TEST_F(mac_file, LinksAreFollowed_OwnersAndPermissionsKept) {
    const bool is_root = geteuid() == 0;
    fs::create_directory(folder_ / "elsewhere");
    const std::string target = folder_ / "elsewhere/macs.json";
    fs::create_symlink("elsewhere/macs.json", path_);
    for (const mode_t mode : {0600U, 0640U, 0664U, 0444U}) {
        std::ofstream(target) << text_of({{"A", mac_text(1)}});
        fs::permissions(target, static_cast<fs::perms>(mode));
        if (is_root) {
            ASSERT_EQ(chown(target.c_str(), 1, 2), 0);
        }
        const auto before = status_of(target);
        const bool may_write = is_root || mode != 0444;
        EXPECT_EQ(update("A", 2), may_write ? SDK_RET_OK : SDK_RET_GENERIC_ERROR);
        EXPECT_TRUE(fs::is_symlink(path_));
        EXPECT_EQ(text(target), text_of({{"A", mac_text(may_write ? 2 : 1)}}));
        const auto after = status_of(target);
        EXPECT_EQ(after.st_mode & 07777, mode);
        EXPECT_EQ(after.st_uid, before.st_uid);
        EXPECT_EQ(after.st_gid, before.st_gid);
        EXPECT_EQ(after.st_ino != before.st_ino, may_write);
        fs::remove(target);
    }
    EXPECT_EQ(update("A", 3), SDK_RET_OK);  // the link leads nowhere by now
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_EQ(text(target), text_of({{"A", mac_text(3)}}));
}

}  // namespace
