#include "svc/channel/svc_req_handler_quill.h"

#include "svc/channel/command.h"

sdk::sdk_ret_t handle_svc_req(int32_t sock_fd, types::ServiceRequestMessage *req, int32_t io_fd) {
    svc::command_s command = svc::to_command(*req);
    if (command.can_run) {
        command.ctxt.sock_fd = sock_fd;
        command.ctxt.io_fd = io_fd;
        svc::run(&command);
    }
    svc::answer(command, sock_fd);
    return command.ret;
}
