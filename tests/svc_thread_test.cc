#include "svc/channel/svc_thread.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "sim/api/debug_commands.h"
#include "sim/faults/faults.h"
#include "sim/framework/watchdog.h"
#include "tests/socket_fixture.h"

namespace {

using test::client;
using test::command_bytes;
using test::eventually;
using test::open_descriptors;
using test::output_pipe;
using test::SocketTest;
using testing::ElementsAre;
using testing::HasSubstr;

// Peers see no difference whether the agent gave an executor or not.
enum class where_e { ON_THE_LOOP, ON_AN_EXECUTOR };

class ServiceThread : public SocketTest, public testing::WithParamInterface<where_e> {
 protected:
    void SetUp() override {
        if (GetParam() == where_e::ON_AN_EXECUTOR) {
            executor_.emplace();
        }
        sim::forget_last_command();
        sim::clear_faults();
        ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
        expect_served();  // all that is opened once is open now
        idle_descriptors_ = open_descriptors();
        sim::forget_last_command();
    }

    // No matter what happened before: nothing is left open, and the next tool is served.
    void TearDown() override {
        EXPECT_TRUE(eventually([this] { return open_descriptors() == idle_descriptors_; }))
            << open_descriptors() << " descriptors instead of " << idle_descriptors_;
        expect_served();
        sim::clear_faults();
    }

    size_t idle_descriptors_ = 0;
};

INSTANTIATE_TEST_SUITE_P(All, ServiceThread, testing::Values(where_e::ON_THE_LOOP, where_e::ON_AN_EXECUTOR),
                         [](const auto &test_case) {
                             return test_case.param == where_e::ON_THE_LOOP ? "OnTheLoop" : "OnAnExecutor";
                         });

TEST_P(ServiceThread, RequestIsAnsweredAndItsOutputComplete) {
    expect_served();
    struct stat status;
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777u);
    EXPECT_THAT(trace_.messages(), ElementsAre("Listening to UDS " + path_));
}

TEST_P(ServiceThread, PeerThatSendsNothingIsClosedSilently) {
    client(path_).hang_up();
    client half_open(path_);
    half_open.finish_sending();
    EXPECT_EQ(half_open.read_to_end(), "");
    EXPECT_FALSE(sim::last_command());
    EXPECT_EQ(trace_.messages().size(), 1u);  // the one of the start
}

TEST_P(ServiceThread, BytesThatAreNoRequestAreLoggedWithTheirCount) {
    const std::string request = command_bytes(nyx::COMMAND_HELP);
    for (const std::string &bytes : {std::string("\xff"), request.substr(0, request.size() - 1),
                                     std::string(1'000, '\xff'), std::string("\x12\x02\x0a\x05")}) {
        client tool(path_);
        output_pipe output;
        ASSERT_TRUE(tool.send(bytes, {output.writer.get()}));
        EXPECT_EQ(tool.read_to_end(), "");
        EXPECT_EQ(output.read_all(), "");  // ends: the agent has closed its descriptor
        EXPECT_EQ(trace_.messages().back(), "Parse service request message from socket failed, bytes_read " +
                                                std::to_string(bytes.size()));
    }
    EXPECT_FALSE(sim::last_command());
}

TEST_P(ServiceThread, OnlyTheFirstPieceOfARequestIsRead) {
    const std::string request = command_bytes(35);
    client split(path_);
    ASSERT_TRUE(split.send(request.substr(0, 5)));
    EXPECT_EQ(split.read_to_end(), "");
    EXPECT_FALSE(split.send(request.substr(5)));
    EXPECT_FALSE(sim::last_command());

    client oversized(path_);
    std::thread sender([&] { oversized.send(std::string(2'000'000, '\0')); });
    EXPECT_EQ(oversized.read_to_end(), "");
    sender.join();
    EXPECT_THAT(trace_.messages().back(),
                HasSubstr("Parse service request message from socket failed, bytes_read"));
}

TEST_P(ServiceThread, NoDescriptorThatAPeerPassesStaysOpen) {
    output_pipe output;
    for (const size_t count : {1, 2, 3, 200, 253}) {
        for (const std::string &request :
             {command_bytes(nyx::COMMAND_HELP), command_bytes(35), std::string("\xff")}) {
            client tool(path_);
            ASSERT_TRUE(tool.send(request, std::vector<int>(count, output.writer.get()))) << count;
            EXPECT_TRUE(tool.read_to_end());
        }
    }
    types::ServiceRequestMessage create;
    create.set_config_op(types::SERVICE_OP_CREATE);
    create.mutable_config_msg()->set_type_url("x/nyx.VPCRequest");
    client unserved(path_);
    ASSERT_TRUE(unserved.send(create.SerializeAsString(), {output.writer.get(), output.writer.get()}));
    EXPECT_EQ(unserved.read_to_end(), "");
    EXPECT_THAT(output.read_all(), HasSubstr("commands that exist"));
}

TEST_P(ServiceThread, FirstOfSeveralDescriptorsTakesTheOutput) {
    output_pipe first, second;
    client tool(path_);
    ASSERT_TRUE(tool.send(command_bytes(nyx::COMMAND_HELP), {first.writer.get(), second.writer.get()}));
    EXPECT_EQ(tool.read_to_end(), std::string("\x08\x00", 2));
    EXPECT_THAT(first.read_all(), HasSubstr("commands that exist"));
    EXPECT_EQ(second.read_all(), "");
}

TEST_P(ServiceThread, OutputThatCannotBeWrittenIsAStatus) {
    output_pipe output, no_reader, full;
    no_reader.reader.reset();
    ASSERT_EQ(fcntl(full.writer.get(), F_SETFL, O_NONBLOCK), 0);
    const std::string block(65'536, 'x');
    while (write(full.writer.get(), block.data(), block.size()) > 0) {
    }
    const base::unique_fd full_disk(open("/dev/full", O_WRONLY | O_CLOEXEC));
    const std::pair<int, std::string> cases[] = {
        {output.reader.get(), "\x08\x02"},     // not open for writing: invalid argument
        {no_reader.writer.get(), "\x08\x01"},  // would raise SIGPIPE
        {full.writer.get(), "\x08\x09"},       // nobody reads: timed out
        {full_disk.get(), "\x08\x01"},
    };
    for (const auto &[fd, answer] : cases) {
        client tool(path_);
        ASSERT_TRUE(tool.send(command_bytes(nyx::COMMAND_HELP), {fd}));
        EXPECT_EQ(tool.read_to_end(), answer);
    }
    client without(path_);
    ASSERT_TRUE(without.send(command_bytes(nyx::COMMAND_HELP)));
    EXPECT_EQ(without.read_to_end(), "\x08\x02");
}

// A TCP connection to nobody: full, and set to wait for its reader when it is closed.
base::unique_fd lingering_socket(base::unique_fd *listener) {
    listener->reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto *any = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(bind(listener->get(), any, size) | listen(listener->get(), 1) |
                  getsockname(listener->get(), any, &size),
              0);
    base::unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(fd.get(), any, size), 0);
    const linger for_ever = {.l_onoff = 1, .l_linger = 3600};
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &for_ever, sizeof(for_ever)), 0);
    const std::string block(65'536, 'x');
    while (send(fd.get(), block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
    return fd;
}

TEST_P(ServiceThread, SocketThatLingersHoldsUpNobodyElse) {
    sim::add_fault(sim::parse_fault("debug::nyx_handle_cmd:delay=300,nth=1"));  // the agent closes it last
    base::unique_fd listener;
    client tool(path_);
    {
        const base::unique_fd lingering = lingering_socket(&listener);
        ASSERT_TRUE(tool.send(command_bytes(35), {lingering.get()}));
    }
    ASSERT_TRUE(eventually([] { return sim::last_command().has_value(); }));
    expect_served();
    listener.reset();
    EXPECT_EQ(tool.read_to_end(), "\x08\x08");
}

// A peer may go on using the socket that it passed: its setting is its own, unless closing it would hold the loop.
TEST_P(ServiceThread, PassedSocketKeepsItsLingerSetting) {
    std::vector<std::pair<int, linger>> cases = {{AF_UNIX, {1, 60}}, {AF_INET, {1, 0}}, {AF_INET, {0, 0}}};
    if (GetParam() == where_e::ON_AN_EXECUTOR) {
        cases.push_back({AF_INET, {1, 60}});
    }
    for (const auto &[domain, setting] : cases) {
        const base::unique_fd passed(socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(setsockopt(passed.get(), SOL_SOCKET, SO_LINGER, &setting, sizeof(setting)), 0);
        client tool(path_);
        ASSERT_TRUE(tool.send(command_bytes(35), {passed.get()}));
        EXPECT_TRUE(tool.read_to_end());
        linger kept = {};
        socklen_t size = sizeof(kept);
        ASSERT_EQ(getsockopt(passed.get(), SOL_SOCKET, SO_LINGER, &kept, &size), 0);
        EXPECT_EQ(kept.l_onoff, setting.l_onoff);
        EXPECT_EQ(kept.l_linger, setting.l_linger);
    }
}

TEST_P(ServiceThread, SilentAndVanishingPeersKeepNobodyWaiting) {
    std::vector<client> silent;
    for (int i = 0; i < 50; i++) {
        silent.emplace_back(path_);
        client vanishing(path_);
        ASSERT_TRUE(vanishing.send(command_bytes(nyx::COMMAND_HELP)));
    }
    expect_served();
    output_pipe output;
    ASSERT_TRUE(silent[7].send(command_bytes(nyx::COMMAND_HELP), {output.writer.get()}));
    EXPECT_EQ(silent[7].read_to_end(), std::string("\x08\x00", 2));
}

// epoll reports such a connection readable, and recvmsg() finds nothing.
TEST_P(ServiceThread, ByteOutOfBandHoldsUpNobody) {
    client odd(path_);
    ASSERT_TRUE(odd.send_out_of_band());
    expect_served();
}

TEST_P(ServiceThread, SuspendRefusesPeersUntilResume) {
    client accepted(path_);
    expect_served();  // the connection before this one is accepted by now
    ASSERT_EQ(thread_.suspend(), sdk::SDK_RET_OK);
    ASSERT_EQ(thread_.suspend(), sdk::SDK_RET_OK);
    EXPECT_FALSE(client().connect_to(path_));
    ASSERT_TRUE(accepted.send(command_bytes(35)));
    EXPECT_EQ(accepted.read_to_end(), "\x08\x08");  // accepted before: still served
    ASSERT_EQ(thread_.resume(), sdk::SDK_RET_OK);
    expect_served();
}

TEST_P(ServiceThread, FailedResumeCanBeRepeated) {
    ASSERT_EQ(thread_.suspend(), sdk::SDK_RET_OK);
    std::filesystem::remove(path_);
    std::filesystem::create_directory(path_);
    EXPECT_EQ(thread_.resume(), sdk::SDK_RET_GENERIC_ERROR);
    EXPECT_THAT(trace_.messages().back(),
                HasSubstr("Failed to bind UDS for service thread, err 98 Address already"));
    std::filesystem::remove(path_);
    EXPECT_EQ(thread_.resume(), sdk::SDK_RET_OK);
}

TEST_P(ServiceThread, StartingOrResumingAgainTakesThePathOver) {
    ASSERT_EQ(thread_.resume(), sdk::SDK_RET_OK);
    expect_served();
    std::filesystem::remove(path_);
    std::ofstream(path_) << "an old file";
    ASSERT_EQ(thread_.resume(), sdk::SDK_RET_OK);
    expect_served();

    thread_.stop();
    sim::event_thread twice("svc_server",
                            {core::svc_server_thread_init, core::svc_server_thread_exit,
                             core::svc_server_thread_suspend_cb, core::svc_server_thread_init},
                            path_.data());
    ASSERT_EQ(twice.start(), sdk::SDK_RET_OK);
    ASSERT_EQ(twice.resume(), sdk::SDK_RET_OK);  // starts again
    expect_served();
    twice.stop();
    ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
}

TEST_P(ServiceThread, StopAfterSuspendClosesNothingTwice) {
    client open(path_);
    expect_served();
    ASSERT_EQ(thread_.suspend(), sdk::SDK_RET_OK);
    const base::unique_fd innocent(::open("/dev/null", O_RDONLY | O_CLOEXEC));  // takes the socket's number
    thread_.stop();
    EXPECT_GE(fcntl(innocent.get(), F_GETFD), 0);
    EXPECT_EQ(open.read_to_end(), "");  // closed with the thread
    ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
}

// Takes descriptors until none is left.
std::vector<base::unique_fd> take_all_descriptors() {
    std::vector<base::unique_fd> taken;
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        taken.emplace_back(fd);
    }
    return taken;
}

TEST_P(ServiceThread, OutOfDescriptorsItTurnsPeersAwayAndServesAgainLater) {
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit low = {.rlim_cur = 200, .rlim_max = limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    {
        std::vector<client> peers(20);
        const auto taken = take_all_descriptors();
        for (client &peer : peers) {
            EXPECT_TRUE(peer.connect_to(path_));
            EXPECT_EQ(peer.read_to_end(), "");
        }
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_THAT(trace_.messages(), testing::Contains("Accept failed"));
}

TEST_F(SocketTest, PeerThatSendsNothingIsClosedAfterTenSeconds) {
    sim::set_time_scale(0.02);
    for (const bool with_executor : {false, true}) {
        if (with_executor) {
            executor_.emplace();
        }
        ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
        client silent(path_);
        EXPECT_EQ(silent.read_to_end(), "");
        thread_.stop();
    }
    EXPECT_THAT(trace_.messages(), testing::Each(HasSubstr("Listening")));
}

TEST_F(SocketTest, SetUpWithoutADescriptorIsLoggedAndReturned) {
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit low = {.rlim_cur = 200, .rlim_max = limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    {
        const auto taken = take_all_descriptors();
        EXPECT_EQ(core::svc_server_thread_resume_cb(path_.data()), sdk::SDK_RET_GENERIC_ERROR);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_THAT(trace_.messages(),
                ElementsAre("Failed to open UDS for cmd server thread, err 24 Too many open files"));
}

TEST_F(SocketTest, ReadThatFailsIsLogged_AndTheConnectionIsLeftAsItIs) {
    const output_pipe no_socket;
    core::svc_server_read_cb(nullptr, no_socket.reader.get(), sdk::event_thread::k_io_readable);
    EXPECT_THAT(trace_.messages(), ElementsAre("Read from unix domain socket failed"));
    EXPECT_GE(fcntl(no_socket.reader.get(), F_GETFD), 0);
}

TEST_F(SocketTest, SetUpThatFailsIsLoggedAndReturned) {
    const std::pair<std::string, std::string> cases[] = {
        {folder_ / "missing/x", "err 2 No such file or directory"},
        {folder_ / std::string(108, 'x'), "err 36 File name too long"},
        {"", "err 2 No such file or directory"},
    };
    for (const auto &[path, error] : cases) {
        path_ = path;
        sim::event_thread thread("svc_server",
                                 {core::svc_server_thread_init, core::svc_server_thread_exit,
                                  core::svc_server_thread_suspend_cb, core::svc_server_thread_resume_cb},
                                 path_.data());
        EXPECT_EQ(thread.start(), sdk::SDK_RET_GENERIC_ERROR) << path;
        EXPECT_EQ(trace_.messages().back(), "Failed to bind UDS for service thread, " + error);
    }
}

TEST_F(SocketTest, HeartbeatKeepsTheWatchdogQuietAndAStalledThreadIsNoticed) {
    sim::set_time_scale(0.02);
    const auto before = sim::heartbeats();
    ASSERT_EQ(thread_.start(), sdk::SDK_RET_OK);
    EXPECT_TRUE(eventually([&] { return sim::heartbeats().punched >= before.punched + 3; }));
    ASSERT_EQ(thread_.suspend(), sdk::SDK_RET_OK);
    const auto suspended = sim::heartbeats();
    EXPECT_TRUE(eventually([&] { return sim::heartbeats().punched > suspended.punched + 3; }));
    ASSERT_EQ(thread_.resume(), sdk::SDK_RET_OK);

    sim::add_fault(sim::parse_fault("debug::nyx_handle_cmd:delay=500"));
    client tool(path_);
    const uint64_t late = sim::heartbeats().late;
    ASSERT_TRUE(tool.send(command_bytes(nyx::COMMAND_HELP)));
    EXPECT_TRUE(tool.read_to_end());
    EXPECT_GT(sim::heartbeats().late, late);
    EXPECT_THAT(trace_.messages(), testing::Contains(HasSubstr("svc_server missed its heartbeat")));
    sim::clear_faults();
}

}  // namespace
