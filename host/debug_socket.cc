#include "host/debug_socket.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/setup_error.h"
#include "svc/channel/svc_thread.h"
#include "svc/executor.h"

namespace host {

namespace {

constexpr size_t k_max_workers = 40;  // as many as the library can use

gid_t group_id(const std::string &name) {
    const group *found = getgrnam(name.c_str());
    if (!found) {
        throw setup_error("--socket-group: unknown group '" + name +
                          "'; getent group lists those that exist");
    }
    return found->gr_gid;
}

void restrict_to_group(const std::string &path, const std::string &name) {
    constexpr mode_t k_mode = 0660;
    if (chown(path.c_str(), -1, group_id(name)) != 0 || chmod(path.c_str(), k_mode) != 0) {
        throw setup_error(path + ": can't be given to group '" + name + "': " + strerror(errno));
    }
}

}  // namespace

debug_socket::executor_s::executor_s() : threads(k_max_workers) {
    svc::set_executor([this](std::function<void()> work) { return threads.run(std::move(work)); });
}

debug_socket::executor_s::~executor_s() {
    threads.stop();
    svc::set_executor({});
}

debug_socket::debug_socket(const std::string &path, const std::string &group)
    : file_(path),
      path_(path),
      thread_("svc_server",
              {.init = core::svc_server_thread_init,
               .exit = core::svc_server_thread_exit,
               .suspend = core::svc_server_thread_suspend_cb,
               .resume = core::svc_server_thread_resume_cb},
              path_.data()) {
    if (const auto ret = thread_.start(); ret != sdk::SDK_RET_OK) {
        throw setup_error(path_ + ": the debug socket can't be set up, return code " + std::to_string(ret) +
                          "; the log says why (--log-level error)");
    }
    file_.bound();
    if (!group.empty()) {
        restrict_to_group(path_, group);
    }
}

debug_socket::~debug_socket() { stop(); }

void debug_socket::stop() {
    file_.remove();
    thread_.stop();
    executor_.threads.stop();
}

}  // namespace host
