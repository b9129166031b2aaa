#include "svc/host_if_mac.h"

#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <span>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/blocked_signals.h"
#include "base/text.h"
#include "svc/common/trace.h"
#include "svc/file_update.h"
#include "svc/host_if_mac_changes.h"
#include "svc/host_if_mac_list.h"

std::string g_host_if_mac_file = "/sysconfig/config0/hostif_mac.json";

namespace {

svc::host_if_mac_list read_list(const svc::file_update &file) {
    try {
        return svc::host_if_mac_list_from_json(file.read());
    } catch (const std::system_error &) {
        throw;  // which names the file
    } catch (const std::runtime_error &error) {
        throw std::runtime_error(g_host_if_mac_file + ": " + error.what());
    }
}

// Whether the file could be read a moment later. To replace it now would lose its records.
bool is_shortage(const std::exception &error) {
    const auto *system = dynamic_cast<const std::system_error *>(&error);
    const int number = system ? system->code().value() : 0;
    return dynamic_cast<const std::bad_alloc *>(&error) || number == ENOMEM || number == EMFILE ||
           number == ENFILE || number == EAGAIN || number == EINTR;
}

// The texts of the log lines are fixed, down to each %s, which the log library leaves as it is.
sdk::sdk_ret_t host_if_mac_update(std::span<const svc::host_if_mac_change_s> changes) {
    const base::blocked_write_signals no_sigxfsz;
    try {
        svc::file_update file(g_host_if_mac_file);
        svc::host_if_mac_list list;
        try {
            list = read_list(file);
        } catch (const std::exception &error) {
            std::cerr << error.what() << std::endl;
            SVC_TRACE_ERR("Error updating %s");
            if (is_shortage(error)) {
                throw;
            }
        }
        svc::change_host_if_mac_list(&list, changes);
        file.write(svc::host_if_mac_list_to_json(list));
    } catch (const std::exception &error) {
        std::cerr << error.what() << std::endl;
        SVC_TRACE_ERR("Failed to update mac address %s for host interface %s in %s");
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    return sdk::SDK_RET_OK;
}

}  // namespace

sdk::sdk_ret_t host_if_mac_update(char *name, unsigned char *mac) {
    svc::host_if_mac_change_s change = {.name = svc::host_if_mac_name(name), .mac = {}};
    if (change.name.empty()) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    memcpy(change.mac.bytes, mac, sizeof(change.mac.bytes));
    return host_if_mac_update({&change, 1});
}

namespace svc {

std::string host_if_mac_name(const char *name) {
    return name ? base::to_utf8(base::without_cut_character(name)) : "";
}

sdk::sdk_ret_t host_if_mac_changes::add(const char *name, mac_addr_s mac) {
    host_if_mac_change_s change = {.name = host_if_mac_name(name), .mac = mac};
    if (change.name.empty()) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    if (changes_.empty() && !file_update::is_possible(g_host_if_mac_file)) {
        return host_if_mac_update({&change, 1});
    }
    changes_.push_back(std::move(change));
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t host_if_mac_changes::write() const {
    return changes_.empty() ? sdk::SDK_RET_OK : host_if_mac_update(changes_);
}

}  // namespace svc
