#include "svc/channel/peer_request.h"

#include <cerrno>
#include <new>

#include "svc/channel/svc_request.h"

namespace svc {

namespace {

void parse(const uint8_t *bytes, peer_request_s *request) {
    types::ServiceRequestMessage message;
    request->is_parsed = message.ParseFromArray(bytes, static_cast<int>(request->size));
    if (request->is_parsed) {
        request->command = to_command(message);
    }
}

}  // namespace

peer_request_s receive_request(int sock_fd, uid_t uid) {
    static thread_local receive_buffer buffer;
    peer_request_s request;
    if (!buffer.reserve()) {
        request.size = -1;
        request.error = ENOMEM;
        return request;
    }
    received_s received = receive_once(sock_fd, buffer);
    request.error = received.size < 0 ? errno : 0;
    request.size = received.size;
    request.io_fd = std::move(received.io_fd);
    if (request.size > 0) {
        try {
            parse(buffer.data(), &request);
        } catch (const std::bad_alloc &) {
            request.error = ENOMEM;
        }
        buffer.clear(static_cast<size_t>(request.size));
    }
    request.is_refused = request.io_fd.valid() && !may_take_output(request.io_fd.get(), uid);
    return request;
}

void run_request(peer_request_s *request, int sock_fd) {
    command_s &command = request->command;
    if (!command.can_run) {
        return;
    }
    if (request->is_refused) {
        command.ret = sdk::SDK_RET_INVALID_ARG;
        return;
    }
    if (request->io_fd.valid()) {
        request->output = make_output();
        if (!request->output.writer.valid()) {
            command.ret = sdk::SDK_RET_GENERIC_ERROR;
            return;
        }
    }
    command.ctxt.sock_fd = sock_fd;
    command.ctxt.io_fd = request->output.writer.get();
    run(&command);
}

void finish_request(peer_request_s *request, int sock_fd) {
    command_s &command = request->command;
    if (request->output.writer.valid()) {
        const auto ret = copy_output(&request->output, request->io_fd.get());
        command.ret = command.ret == sdk::SDK_RET_OK ? ret : command.ret;
    }
    try {
        answer(command, sock_fd);
    } catch (const std::bad_alloc &) {  // the peer sees a connection that ends without an answer
    }
}

}  // namespace svc
