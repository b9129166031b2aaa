#include "svc/host_if_mac.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/json_file.h"
#include "base/unique_fd.h"
#include "svc/common/converters.h"
#include "svc/common/text.h"
#include "svc/common/trace.h"

std::string g_host_if_mac_file = "/sysconfig/config0/hostif_mac.json";

namespace {

namespace pt = boost::property_tree;

constexpr auto k_lock_patience = std::chrono::seconds(5);
constexpr auto k_lock_pause = std::chrono::milliseconds(1);
constexpr int k_max_links = 40;
constexpr const char *k_list = "host-interface";
constexpr const char *k_no_name = "default";
constexpr const char *k_no_mac = "00:00:00:00:00:00";

[[noreturn]] void fail(int error, const std::string &what) {
    throw std::system_error(error, std::generic_category(), what);
}

struct host_if_mac_s {
    std::string name;
    std::string mac;  // empty: no record
};

namespace fs = std::filesystem;

// Keeps other threads and other processes away from a file, for as long as it lives, by a lock file beside it that only
// the agent's user can open. A file system without locks keeps threads away alone.
class file_lock {
 public:
    explicit file_lock(const fs::path &file)
        : deadline_(clock::now() + k_lock_patience),
          threads_(g_threads, deadline_),
          fd_(open((file.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
        error_ = !threads_.owns_lock() ? ETIMEDOUT : fd_.valid() ? wait_for_processes() : errno;
    }

    // Throws when the folder is not there or somebody has kept the lock for too long.
    void check() const {
        if (error_) {
            fail(error_, g_host_if_mac_file + ".lock");
        }
    }

 private:
    using clock = std::chrono::steady_clock;

    int wait_for_processes() const {
        while (flock(fd_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            if (clock::now() > deadline_) {
                return ETIMEDOUT;
            }
            std::this_thread::sleep_for(k_lock_pause);
        }
        return 0;
    }

    static inline std::timed_mutex g_threads;
    const clock::time_point deadline_;
    const std::unique_lock<std::timed_mutex> threads_;
    const base::unique_fd fd_;
    int error_;
};

// The file itself, there or not, where the path is a symbolic link to it.
fs::path real_path() {
    fs::path path = fs::absolute(g_host_if_mac_file);
    for (int i = 0; i < k_max_links && fs::is_symlink(path); i++) {
        path = path.parent_path() / fs::read_symlink(path);
    }
    return path;
}

// Whether the reason lies with the file: it is not there, not ours to read, or holds something else. For any other one,
// a want of descriptors or memory or an error of the disk, replacing the file would lose what it holds.
bool is_no_such_file(const std::exception &error) {
    if (const auto *system = dynamic_cast<const std::system_error *>(&error)) {
        const int number = system->code().value();
        return number == ENOENT || number == EACCES || number == EPERM;
    }
    return !dynamic_cast<const std::bad_alloc *>(&error);
}

// A name that was cut within a character would make the whole file unreadable.
host_if_mac_s to_change(const char *name, const unsigned char *mac) {
    const bool removes = std::all_of(mac, mac + sizeof(mac_addr_s), [](uint8_t byte) { return byte == 0; });
    return {.name = base::to_utf8(base::without_cut_character(name)),
            .mac = removes ? "" : macaddr2str(mac, false)};
}

std::string member_of(const pt::ptree &record, const char *member, const char *if_missing) {
    const auto found = record.find(member);
    return found == record.not_found() ? if_missing : found->second.data();
}

// Makes a record hold these two members and no other. In place where it can be: building trees costs more than all else.
void set_record(pt::ptree &record, const std::string &name, const std::string &mac) {
    const bool in_place = record.size() == 2 && record.front().first == "name" &&
                          record.back().first == "mac" && record.front().second.empty() &&
                          record.back().second.empty();
    if (!in_place) {
        pt::ptree fresh;
        fresh.push_back({"name", {}});
        fresh.push_back({"mac", {}});
        record.swap(fresh);
    }
    record.front().second.data() = name;
    record.back().second.data() = mac;
}

// Moves the records of a list to `records` with the change made in them; true when the changed name was there.
bool append_changed(pt::ptree &records, pt::ptree &list, const host_if_mac_s &change) {
    bool found = false;
    for (auto &[key, record] : list) {
        const std::string name = member_of(record, "name", k_no_name);
        const bool changes = name == change.name;
        found = found || changes;
        if (changes && change.mac.empty()) {
            continue;
        }
        pt::ptree &kept = records.push_back({"", {}})->second;
        kept.swap(record);
        set_record(kept, name, changes ? change.mac : member_of(kept, "mac", k_no_mac));
    }
    return found;
}

// What the file is to hold: its records with the change made in them. A missing or broken file counts as one without
// records, and `error` says what is wrong with it.
pt::ptree changed_file(const fs::path &path, const host_if_mac_s &change, std::string *error) {
    pt::ptree tree;
    pt::ptree &records = tree.add_child(k_list, {});
    bool found = false;
    try {
        pt::ptree file = base::read_json_file(path);
        found = append_changed(records, file.get_child(k_list), change);
    } catch (const std::exception &exception) {
        if (!is_no_such_file(exception)) {
            throw;
        }
        *error = exception.what();
    }
    if (!found && !change.mac.empty()) {
        set_record(records.push_back({"", {}})->second, change.name, change.mac);
    }
    return tree;
}

void write_whole(int fd, std::string_view text, const std::string &path) {
    while (!text.empty()) {
        const ssize_t size = write(fd, text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            fail(errno, path);
        }
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }
}

// Permissions for the new file: those of the one that it replaces. What is there and is no file is not replaced, a
// device node for example.
mode_t mode_for(const fs::path &path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            fail(errno, path);
        }
        return 0644;
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path.string() + ": not a regular file");
    }
    return status.st_mode & 0777;
}

// Under the file's lock, so that the new file's name is nobody else's. The folder is not synced, which would cost as
// much again: a power cut within seconds can bring the old file back, whole.
void replace(const fs::path &path, std::string_view text) {
    const mode_t mode = mode_for(path);
    const std::string fresh = path.string() + ".new";
    const auto create = [&] { return open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode); };
    base::unique_fd file(create());
    if (!file.valid() && errno == EEXIST &&
        unlink(fresh.c_str()) == 0) {  // left behind by one that was killed
        file.reset(create());
    }
    if (!file.valid()) {
        fail(errno, fresh);
    }
    try {
        write_whole(file.get(), text, fresh);
        if (fchmod(file.get(), mode) != 0 || fsync(file.get()) != 0 || file.close() != 0 ||
            rename(fresh.c_str(), path.c_str()) != 0) {
            fail(errno, fresh);
        }
    } catch (...) {
        unlink(fresh.c_str());
        throw;
    }
}

std::string to_json(const pt::ptree &tree) {
    std::ostringstream text;
    pt::write_json(text, tree);
    if (text.view().size() > base::k_max_json_size) {
        throw std::runtime_error(g_host_if_mac_file + ": would become too large to be read again");
    }
    return text.str();
}

}  // namespace

sdk::sdk_ret_t host_if_mac_update(char *name, unsigned char *mac) {
    if (!name || !*name) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    try {
        const fs::path path = real_path();
        const file_lock lock(path);
        std::string broken;
        const std::string text = to_json(changed_file(path, to_change(name, mac), &broken));
        if (!broken.empty()) {
            std::cerr << broken << std::endl;
            SVC_TRACE_ERR("Error updating %s");
        }
        lock.check();
        replace(path, text);
    } catch (const std::exception &error) {
        std::cerr << error.what() << std::endl;
        SVC_TRACE_ERR("Failed to update mac address %s for host interface %s in %s");
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    return sdk::SDK_RET_OK;
}
