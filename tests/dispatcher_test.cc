// Commands as they reach the debug library: the bytes of the context, given by offset.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <thread>
#include <vector>

#include "base/unique_fd.h"
#include "nyx/debug_command.pb.h"
#include "sim/api/debug_commands.h"
#include "sim/faults/faults.h"
#include "svc/channel/svc_req_handler_quill.h"
#include "tests/socket_fixture.h"
#include "tests/trace_capture.h"

namespace {

using sdk::sdk_ret_t;

constexpr const char *k_prefix = "type.googleapis.com/";

types::ServiceRequestMessage command_request(int command, const std::string &args_url = {},
                                             const std::string &args = {}) {
    nyx::CommandMessage message;
    message.set_command(static_cast<nyx::Command>(command));
    if (!args_url.empty()) {
        message.mutable_command_args()->set_type_url(args_url);
        message.mutable_command_args()->set_value(args);
    }
    types::ServiceRequestMessage request;
    request.mutable_config_msg()->PackFrom(message);
    return request;
}

class Dispatcher : public testing::Test {
 protected:
    Dispatcher() {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        server_.reset(fds[0]);
        client_.reset(fds[1]);
        sim::forget_last_command();
        sim::clear_faults();
    }

    sdk_ret_t handle(types::ServiceRequestMessage request, int io_fd = -1) {
        return handle_svc_req(server_.get(), &request, io_fd);
    }

    // What the client reads until the server closes.
    std::string answer() {
        server_.reset();
        char buffer[64];
        const ssize_t size = read(client_.get(), buffer, sizeof(buffer));
        return size > 0 ? std::string(buffer, static_cast<size_t>(size)) : std::string();
    }

    int answered_status() {
        types::ServiceResponseMessage response;
        EXPECT_TRUE(response.ParseFromString(answer()));
        EXPECT_TRUE(response.has_api_status());
        return response.api_status();
    }

    base::unique_fd server_, client_;
};

std::vector<uint8_t> context_bytes() {
    const auto context = sim::last_command();
    EXPECT_TRUE(context);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&*context);
    return {bytes, bytes + sizeof(cmd_ctxt_s)};
}

uint32_t word_at(const std::vector<uint8_t> &bytes, size_t offset) {
    return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
           uint32_t{bytes[offset + 3]} << 24;
}

TEST_F(Dispatcher, RequestThatIsNoCommandGetsNoAnswer) {
    types::ServiceRequestMessage create;
    create.set_config_op(types::SERVICE_OP_CREATE);
    create.mutable_config_msg()->set_type_url(std::string(k_prefix) + "nyx.VPCRequest");
    EXPECT_EQ(handle(create), sdk::SDK_RET_OK);

    auto wrong_operation = command_request(nyx::COMMAND_HELP);
    wrong_operation.set_config_op(types::SERVICE_OP_CREATE);
    EXPECT_EQ(handle(wrong_operation), sdk::SDK_RET_OK);

    auto second_slash = command_request(nyx::COMMAND_HELP);
    second_slash.mutable_config_msg()->set_type_url("a/b/nyx.CommandMessage");
    EXPECT_EQ(handle(second_slash), sdk::SDK_RET_OK);

    for (const char *url : {"", "nyx.CommandMessage"}) {
        auto no_slash = command_request(nyx::COMMAND_HELP);
        no_slash.mutable_config_msg()->set_type_url(url);
        EXPECT_EQ(handle(no_slash), sdk::SDK_RET_INVALID_ARG) << url;
    }
    EXPECT_EQ(handle({}), sdk::SDK_RET_INVALID_ARG);
    EXPECT_FALSE(sim::last_command());
    EXPECT_EQ(answer(), "");
}

TEST_F(Dispatcher, GarbageIsAnsweredWithoutRunningACommand) {
    auto payload = command_request(nyx::COMMAND_HELP);
    payload.mutable_config_msg()->set_value("\xff\xff");
    EXPECT_EQ(handle(payload), sdk::SDK_RET_INVALID_ARG);
    EXPECT_EQ(handle(command_request(nyx::COMMAND_INTERRUPT_DUMP, "x/nyx.IntrDumpArgs", "\x08")),
              sdk::SDK_RET_INVALID_ARG);
    EXPECT_FALSE(sim::last_command());
    EXPECT_EQ(answer(), "\x08\x02\x08\x02");  // two answers
}

TEST_F(Dispatcher, CommandNumbersAreTranslated) {
    std::map<int, uint32_t> expected = {{8, 10}, {9, 8},  {10, 9}, {33, 19},       {34, 20},      {35, 35},
                                        {0, 0},  {36, 0}, {-1, 0}, {INT32_MAX, 0}, {INT32_MIN, 0}};
    for (int same = 1; same <= 18; same++) {
        expected.try_emplace(same, same);
    }
    for (int moved = 19; moved <= 32; moved++) {
        expected[moved] = moved + 2;
    }
    for (const auto &[client, library] : expected) {
        (void)handle(command_request(client));
        EXPECT_EQ(word_at(context_bytes(), 8), library) << "client's command " << client;
    }
}

TEST_F(Dispatcher, ContextCarriesBothDescriptorsAndNothingElse) {
    (void)handle(command_request(35), 77);
    auto bytes = context_bytes();
    EXPECT_EQ(word_at(bytes, 0), static_cast<uint32_t>(server_.get()));
    EXPECT_EQ(word_at(bytes, 4), 77u);
    EXPECT_TRUE(std::all_of(bytes.begin() + 12, bytes.end(), [](uint8_t byte) { return byte == 0; }));
    (void)handle(command_request(35));
    EXPECT_EQ(word_at(context_bytes(), 4), UINT32_MAX);
}

TEST_F(Dispatcher, CodeOfTheCommandIsReturnedAndItsTranslationAnswered) {
    sim::add_fault(sim::parse_fault("debug::nyx_handle_cmd:code=10"));
    EXPECT_EQ(handle(command_request(nyx::COMMAND_HELP)), sdk::SDK_RET_RETRY_OPERATION);
    EXPECT_EQ(answered_status(), types::API_STATUS_RETRY);
}

TEST_F(Dispatcher, SuccessIsAnAnswerToo) {
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const base::unique_fd reader(out[0]), writer(out[1]);
    EXPECT_EQ(handle(command_request(nyx::COMMAND_HELP), writer.get()), sdk::SDK_RET_OK);
    EXPECT_EQ(answer(), std::string("\x08\x00", 2));
}

TEST_F(Dispatcher, AnswerGoesToAPipeAndAFileToo) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const base::unique_fd reader(ends[0]), file(memfd_create("answer", MFD_CLOEXEC));
    client_ = base::unique_fd(dup(reader.get()));
    server_.reset(ends[1]);
    EXPECT_EQ(handle(command_request(35)), sdk::SDK_RET_INVALID_OPERATION);
    EXPECT_EQ(answer(), "\x08\x08");

    server_ = base::unique_fd(dup(file.get()));
    EXPECT_EQ(handle(command_request(35)), sdk::SDK_RET_INVALID_OPERATION);
    client_ = base::unique_fd(dup(file.get()));
    EXPECT_EQ(lseek(file.get(), 0, SEEK_SET), 0);
    EXPECT_EQ(answer(), "\x08\x08");
}

// A debug command may write to the connection itself. Its peer reads only when the command has run.
TEST_F(Dispatcher, AnswerWaitsForAPeerThatReadsAMomentLater) {
    const std::string block(4'096, 'x');
    size_t filled = 0;
    for (ssize_t sent; (sent = send(server_.get(), block.data(), block.size(), MSG_DONTWAIT)) > 0;) {
        filled += static_cast<size_t>(sent);
    }
    std::thread server([this] {
        (void)handle(command_request(35));
        server_.reset();
    });
    ASSERT_TRUE(test::eventually([] { return sim::last_command().has_value(); }));
    std::string bytes;
    char buffer[4'096];
    for (ssize_t size; (size = read(client_.get(), buffer, sizeof(buffer))) > 0;) {
        bytes.append(buffer, static_cast<size_t>(size));
    }
    server.join();
    EXPECT_EQ(bytes.size(), filled + 2);
    EXPECT_TRUE(bytes.ends_with("\x08\x08"));
}

TEST_F(Dispatcher, PeerThatHasGoneIsLoggedWithTheTranslatedCommand) {
    test::trace_capture trace;
    client_.reset();
    EXPECT_EQ(handle(command_request(8)), sdk::SDK_RET_INVALID_ARG);  // the command's: it had no descriptor
    const auto lines = trace.sink().lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0],
                testing::MatchesRegex("\\[nyx_handle_cmd:[0-9]+\\] Serializing command message 10 response "
                                      "to socket failed"));
}

// An argument message in protobuf's text format, and the bytes of the context that differ from zero behind
// the command number.
struct args_case_s {
    const char *name;
    const char *type;
    const char *text;
    std::map<size_t, std::vector<uint8_t>> bytes;
};

class CommandArgs : public Dispatcher, public testing::WithParamInterface<args_case_s> {};

TEST_P(CommandArgs, AreCopiedToTheirOffsets) {
    const auto *type =
        google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(GetParam().type);
    ASSERT_TRUE(type) << GetParam().type;
    const std::unique_ptr<google::protobuf::Message> args(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(GetParam().text, args.get()));
    (void)handle(command_request(35, std::string("x/") + GetParam().type, args->SerializeAsString()));

    std::vector<uint8_t> expected = context_bytes();
    std::fill(expected.begin() + 12, expected.end(), 0);
    for (const auto &[offset, bytes] : GetParam().bytes) {
        std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<ptrdiff_t>(offset));
    }
    EXPECT_EQ(context_bytes(), expected);
}

const std::vector<uint8_t> k_valid = {1};

INSTANTIATE_TEST_SUITE_P(
    All, CommandArgs,
    testing::ValuesIn(std::vector<args_case_s>{
        {"MappingWithoutKey",
         "nyx.MappingDumpFilter",
         "type: MAPPING_DUMP_REMOTE_L3",
         {{12, k_valid}, {48, {3}}}},
        {"MappingTypeBeyondTableTakesL2Key",
         "nyx.MappingDumpFilter",
         "type: 5 key { l2_key { hw_id: 0x01020304 mac_address: 0xaabb001122334455 } }",
         {{12, k_valid},
          {16, {1}},
          {20, {1}},
          {24, {4, 3, 2, 1}},
          {28, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}}}},
        {"MappingWithL3KeyOfIpv4",
         "nyx.MappingDumpFilter",
         "type: 1 key { l3_key { hw_id: 7 ip_address { af: IP_AF_INET v4_addr: 0x0a000001 } } }",
         {{12, k_valid}, {16, {1}}, {20, {2}}, {24, {7}}, {28, {1, 1, 0, 0, 10}}, {48, {1}}}},
        {"MappingWithKeyOfTheOtherKind",
         "nyx.MappingDumpFilter",
         "type: 3 key { l2_key { hw_id: 7 mac_address: 9 } }",
         {{12, k_valid}, {16, {1}}, {20, {2}}, {48, {3}}}},
        {"MappingNegativeType", "nyx.MappingDumpFilter", "type: -1", {{12, k_valid}}},
        {"InterfaceById", "nyx.InterfaceDumpFilter", "id: 'ab'", {{12, k_valid}, {20, {'a', 'b'}}}},
        {"InterfaceByNothing", "nyx.InterfaceDumpFilter", "", {{12, k_valid}}},
        {"ObjectOf16Bytes",
         "nyx.CommandUUID",
         "id: '0123456789abcdef'",
         {{12, k_valid},
          {16, {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'}}}},
        {"ObjectOf17BytesIsNoArgument", "nyx.CommandUUID", "id: '0123456789abcdefg'", {}},
        {"ObjectOfZerosIsNoArgument", "nyx.CommandUUID", "id: '\\000\\000'", {}},
        {"FlowSelectorIsCutTo16Bits",
         "nyx.FlowGetRequest",
         "selector: 0x10203",
         {{12, k_valid}, {16, {3, 2}}}},
        {"FlowTraceOfTcp",
         "nyx.FlowTracerSpec",
         "id: 'k' mac_1: 0x010203040506 mac_2: 0x0a0b0c0d0e0f ip_1 { af: IP_AF_INET v4_addr: 0x0a000001 } "
         "ip_2 { af: IP_AF_INET6 v6_addr: '0123456789abcdefg' } ip_3 { af: IP_AF_INET6 v6_addr: 'xy' } "
         "ip_proto: 6 "
         "scalar: 0x11223344 ports { src_port: 0x5566 dst_port: 0x7788 }",
         {{12, k_valid},
          {16, {'k'}},
          {50, {1, 2, 3, 4, 5, 6}},
          {56, {10, 11, 12, 13, 14, 15}},
          {62, {1, 1, 0, 0, 10}},
          {79, {2, '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'}},
          {96, {2, 'x', 'y'}},
          {113, {6}},
          {114, {0x44, 0x33, 0x22, 0x11}},
          {118, {0x66, 0x55, 0x88, 0x77}}}},
        {"FlowTraceOfIcmp",
         "nyx.FlowTracerSpec",
         "ip_proto: 257 icmp { type: 8 code: 9 identifier: 0x0a0b } ip_1 { af: IP_AF_INET6 v4_addr: 1 } "
         "ip_2 { af: IP_AF_INET v6_addr: 'no' } ip_3 { af: IP_AF_NONE v4_addr: 5 }",
         {{12, k_valid}, {62, {2}}, {79, {1}}, {113, {1}}, {118, {8, 9, 0x0b, 0x0a}}}},
        {"FlowTraceOfAnotherProtocolHasNoL4",
         "nyx.FlowTracerSpec",
         "ip_proto: 47 ports { src_port: 1 dst_port: 2 }",
         {{12, k_valid}, {113, {47}}}},
        {"DatapathAssistValue",
         "nyx.DatapathAssist",
         "value: 0x01020304",
         {{12, k_valid}, {16, {4, 3, 2, 1}}}},
        {"DatapathAssistRate",
         "nyx.DatapathAssistCps",
         "selector: 0x105 value: 6",
         {{12, k_valid}, {16, {5}}, {20, {6}}}},
        {"Interrupt", "nyx.IntrDumpArgs", "selector: 9", {{12, k_valid}, {16, {9}}}},
        {"UnknownTypeIsNoArgument", "nyx.CommandMessage", "command: 3", {}},
    }),
    [](const auto &args_case) { return std::string(args_case.param.name); });

TEST_F(Dispatcher, InterfaceTypesAreTranslated) {
    const uint32_t expected[] = {0, 4, 5, 6, 8, 9, 10, 0};
    for (int type = 0; type < static_cast<int>(std::size(expected)); type++) {
        nyx::InterfaceDumpFilter filter;
        filter.set_type(static_cast<nyx::InterfaceDumpType>(type));
        (void)handle(command_request(35, "x/nyx.InterfaceDumpFilter", filter.SerializeAsString()));
        EXPECT_EQ(word_at(context_bytes(), 16), expected[type]) << type;
    }
}

TEST_F(Dispatcher, ArgumentsWithoutATypeNameAreNone) {
    (void)handle(command_request(35, "nyx.IntrDumpArgs", "\x08\x09"));
    EXPECT_EQ(context_bytes()[12], 0);
}

}  // namespace
