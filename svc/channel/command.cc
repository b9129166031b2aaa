#include "svc/channel/command.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <iterator>
#include <optional>
#include <string_view>

#include "base/blocked_signals.h"
#include "base/wait_budget.h"
#include "nyx/debug_command.pb.h"
#include "svc/channel/cfg_msg.h"
#include "svc/channel/command_args.h"
#include "svc/common/ret_code.h"
#include "svc/common/trace.h"

namespace svc {

namespace {

using sdk::sdk_ret_t;

constexpr auto k_patience = std::chrono::milliseconds(500);

cfg_msg_e request_identifier(std::string_view type_name, types::ServiceRequestOp op) {
    const auto entry = g_svc_cfg_msg_map.find({type_name, op});
    return entry == g_svc_cfg_msg_map.end() ? CFG_MSG_NONE : entry->second;
}

// The debug library's number of each of the client's commands.
constexpr uint8_t k_command_numbers[] = {
    0,  1,  2,  3,  4,  5,  6,  7,  10, 8,  9,  11, 12, 13, 14, 15, 16, 17,
    18, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 19, 20, 35,
};

// 0 when the client's number is unknown.
uint32_t command_number(int32_t client) {
    return client >= 0 && client < std::ssize(k_command_numbers) ? k_command_numbers[client] : 0;
}

// As write(2), but without waiting. The connection is a socket whenever it comes from the service request thread;
// other callers may have the answer written anywhere.
ssize_t write_some(int32_t fd, std::string_view bytes) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0 || errno != ENOTSOCK) {
        return sent;
    }
    pollfd full = {.fd = fd, .events = POLLOUT, .revents = 0};
    if (poll(&full, 1, 0) == 0) {
        errno = EAGAIN;
        return -1;
    }
    return write(fd, bytes.data(), bytes.size());
}

// False when the peer has gone, or does not read: its command's own output may have filled the connection just
// now, so the answer waits for room, but only as long as the thread's heartbeat allows.
bool write_response(int32_t sock_fd, sdk_ret_t ret) {
    static thread_local base::wait_budget t_budget(k_patience);
    types::ServiceResponseMessage rsp;
    rsp.set_api_status(sdk_ret_to_api_status(ret));
    const std::string bytes = rsp.SerializeAsString();
    std::string_view left = bytes;
    while (!left.empty()) {
        const ssize_t written = write_some(sock_fd, left);
        if (written >= 0) {
            left.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN ? !t_budget.wait_writable(sock_fd) : errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Reads the command and its arguments; false when they can't be parsed.
bool parse_command(const google::protobuf::Any &config_msg, cmd_ctxt_s *ctxt) {
    nyx::CommandMessage command;
    if (!command.ParseFromString(config_msg.value())) {
        return false;
    }
    ctxt->cmd = command_number(command.command());
    return !command.has_command_args() || command_args_to_ctxt(command.command_args(), ctxt);
}

// Named as the operation that its log line reports.
void nyx_handle_cmd(const command_s &command, int32_t fd) {
    if (!write_response(fd, command.ret)) {
        const uint32_t cmd = command.ctxt.cmd;
        SVC_TRACE_ERR("Serializing command message {} response to socket failed", cmd);
    }
}

}  // namespace

command_s to_command(const types::ServiceRequestMessage &request) {
    command_s command;
    const auto type_name = any_type_name(request.config_msg());
    if (!type_name) {
        command.ret = sdk::SDK_RET_INVALID_ARG;
    } else if (request_identifier(*type_name, request.config_op()) == CFG_MSG_COMMAND) {
        command.is_answered = true;
        command.can_run = parse_command(request.config_msg(), &command.ctxt);
        command.ret = command.can_run ? sdk::SDK_RET_OK : sdk::SDK_RET_INVALID_ARG;
    }
    return command;
}

void run(command_s *command) {
    const base::blocked_write_signals guard;
    command->ret = debug::nyx_handle_cmd(&command->ctxt);
}

void answer(const command_s &command, int32_t fd) {
    if (command.is_answered) {
        const base::blocked_write_signals guard;
        nyx_handle_cmd(command, fd);
    }
}

}  // namespace svc
