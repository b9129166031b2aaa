// Measures nyxctl table beside a client that has the same entries parsed already.

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "bench/agent_program.h"
#include "bench/entries.h"
#include "bench/figures.h"
#include "bench/parts.h"

namespace pb = google::protobuf;

namespace bench {

namespace {

using seconds = std::chrono::duration<double>;

constexpr int k_batch = 1000;

std::string value_text(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::Reflection &get = *message.GetReflection();
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return std::to_string(get.GetUInt32(message, field));
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return std::to_string(get.GetUInt64(message, field));
        default:
            char text[INET6_ADDRSTRLEN];
            return inet_ntop(AF_INET6, get.GetString(message, field).data(), text, sizeof text);
    }
}

std::string json_text(const pb::Message &message) {
    std::string text;
    for (int i = 0; i < message.GetDescriptor()->field_count(); i++) {
        const auto *field = message.GetDescriptor()->field(i);
        const char *quote = field->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT32 ? "" : "\"";
        text += fmt::format("{}\"{}\":{}{}{}", i == 0 ? '{' : ',', field->name(), quote,
                            value_text(message, field), quote);
    }
    return text + "}";
}

std::string csv_text(const pb::Message &message, bool names) {
    std::string text;
    for (int i = 0; i < message.GetDescriptor()->field_count(); i++) {
        const auto *field = message.GetDescriptor()->field(i);
        text += (i == 0 ? "" : ",") + (names ? field->name() : value_text(message, field));
    }
    return text;
}

// The same entries as messages, and in files that nyxctl reads.
class entries_on_disk {
 public:
    explicit entries_on_disk(int count) : all_(flow_entries(count)) {
        std::ofstream json(path("json")), csv(path("csv")), keys(path("keys"));
        const auto write_row = [&](const nyx::flowSpec &entry, bool names) {
            csv << csv_text(entry.key(), names) << "," << csv_text(entry.flow_hash_data(), names) << "\n";
        };
        write_row(all_.request(0), true);
        for (const auto &entry : all_.request()) {
            const std::string key = json_text(entry.key());
            keys << key << "\n";
            json << R"({"key":)" << key << R"(,"flow_hash_data":)" << json_text(entry.flow_hash_data())
                 << "}\n";
            write_row(entry, false);
        }
    }

    std::string path(const std::string &name) const { return folder_.path() + "/" + name; }

    // Sends all of them, one request after the other; the seconds that it takes.
    double create(const agent_program &agent) const {
        std::vector<nyx::flowRequest> requests((all_.request_size() + k_batch - 1) / k_batch);
        for (int i = 0; i < all_.request_size(); i++) {
            *requests[i / k_batch].add_request() = all_.request(i);
        }
        const auto channel = grpc::CreateChannel(agent.address(), grpc::InsecureChannelCredentials());
        const auto begin = std::chrono::steady_clock::now();
        for (const auto &request : requests) {
            nyx::flowResponse response;
            if (!test::unary_call(channel, "/nyx.NyxTblSvc/flowCreate", request, &response).ok() ||
                response.api_status() != types::API_STATUS_OK) {
                fail("nyx-agent takes no entries");
            }
        }
        return seconds(std::chrono::steady_clock::now() - begin).count();
    }

 private:
    const temporary_folder folder_;
    const nyx::flowRequest all_;
};

struct run_s {
    double seconds;  // from exec to exit
    double peak_mib;
};

run_s run_nyxctl(const agent_program &agent, const std::string &arguments) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "nyxctl";
    const std::string command = fmt::format("exec {} --grpc {} --timeout 100 table {} >/dev/null 2>&1",
                                            program.string(), agent.address(), arguments);
    const auto begin = std::chrono::steady_clock::now();
    const pid_t pid = vfork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    // What the kernel reports of a child that ended begins with this process's own memory, from before its exec.
    int status = 0;
    double peak_mib = 0;
    pid_t ended = 0;
    for (; ended == 0; ended = waitpid(pid, &status, WNOHANG)) {
        peak_mib = std::max(peak_mib, status_mib("VmHWM", std::to_string(pid)));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (ended != pid || status != 0) {
        fail(command);
    }
    return {.seconds = seconds(std::chrono::steady_clock::now() - begin).count(), .peak_mib = peak_mib};
}

struct command_s {
    double goal;
    const char *name;
    const char *words;
    const char *file;
    bool is_filled;  // the table, before it
};

// Throughput of nyxctl by that of the other client, each with an agent of its own. Raises `peak_mib`.
double ratio(const entries_on_disk &entries, const command_s &command, double *peak_mib) {
    const temporary_folder folder;
    const temporary_folder other_folder;
    const agent_program agent(folder.path());
    const agent_program other(other_folder.path());
    agent.answer_a_call();
    other.answer_a_call();
    const double baseline = entries.create(other);
    if (command.is_filled) {
        (void)entries.create(agent);
    }
    const run_s run = run_nyxctl(agent, command.words + entries.path(command.file));
    *peak_mib = std::max(*peak_mib, run.peak_mib);
    return baseline / run.seconds;
}

}  // namespace

void add_table_stream(ratio_table *table) {
    constexpr command_s k_commands[] = {{0.25, "add, JSON lines", "add flow @", "json", false},
                                        {0.25, "add, CSV", "add flow @", "csv", false},
                                        {0.2, "get", "get flow @", "keys", true},
                                        {0.15, "apply, nothing to change", "apply flow ", "json", true}};
    constexpr int k_rounds = 3;  // each takes some 40 s
    struct measured_s {
        std::unique_ptr<entries_on_disk> entries;
        double peak_mib = 0;
    };
    const auto measured = std::make_shared<measured_s>();
    for (const command_s &command : k_commands) {
        const auto sample = [=](nanoseconds slice) {
            if (!measured->entries) {
                const bool is_quick = slice < std::chrono::milliseconds(100);
                measured->entries = std::make_unique<entries_on_disk>(is_quick ? 5000 : 1'000'000);
            }
            return ratio(*measured->entries, command, &measured->peak_mib);
        };
        table->figure_at_least(command.goal,
                               fmt::format("nyxctl table {} / a client with parsed entries", command.name),
                               sample, k_rounds);
    }
    table->count_at_most(64, "nyxctl table: resident MiB, the most of these",
                         [=] { return measured->peak_mib; });
}

}  // namespace bench
