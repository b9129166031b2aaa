// Measures gRPC calls against servers that do less.

#include <fmt/format.h>

#include <memory>

#include "bench/entries.h"
#include "bench/figures.h"
#include "bench/parts.h"

namespace bench {

namespace {

constexpr double k_shown = 0;  // no goal

class call_figures {
 public:
    explicit call_figures(ratio_table *table) : table_(table) {}

    void add_entries();
    void add_arenas();
    void add_clients();
    void add_walks();
    void add_stored_entries();
    void add_memory();

 private:
    std::string server(const std::string &kind) const {
        return "grpc-server " + kind + " unix:" + folder_->path() + "/" + kind;
    }

    double ask_server(const std::string &kind, const std::string &question) const {
        return ask(server(kind), question);
    }

    // One call of so many clients at once.
    cost call(const std::string &kind, const std::string &what, int count = 1, int clients = 1) const {
        const auto part =
            fmt::format("grpc-client unix:{}/{} {} {} {}", folder_->path(), kind, what, count, clients);
        return [=, *this](nanoseconds slice) {
            (void)ask_server(kind, "ready");
            return ask(part, std::to_string(slice.count()));
        };
    }

    // Processor time of the agent for one object of a walk.
    cost walk_cpu(const std::string &kind, double objects) const {
        return [=, *this, walk = call(kind, "walk")](nanoseconds slice) {
            const double before = ask_server(kind, "cpu_s");
            const double calls = std::chrono::duration<double>(slice).count() / walk(slice);
            return (ask_server(kind, "cpu_s") - before) / calls / objects;
        };
    }

    double started_threads(const std::string &what) const {
        constexpr nanoseconds k_slice = std::chrono::milliseconds(100);
        const auto eight = call("agent", what, 1, 8);
        (void)eight(k_slice);
        const double before = ask_server("agent", "threads");
        const double calls = std::chrono::duration<double>(k_slice).count() / eight(k_slice);
        return 1000 * (ask_server("agent", "threads") - before) / calls;
    }

    ratio_table *table_;
    std::shared_ptr<temporary_folder> folder_ = std::make_shared<temporary_folder>();
};

void call_figures::add_entries() {
    const chart_s chart = {"Throughput of calls (empty handler = 1)", "entries or keys a call"};
    for (const auto &[count, goal] :
         {std::pair(1, 0.95), {10, 1.05}, {100, 1.1}, {1000, 1.3}, {10'000, k_shown}}) {
        table_->throughput_at_least(goal, fmt::format("gRPC: flowCreate of {} / empty handler", count),
                                    call("agent", "create", count), call("empty", "create", count),
                                    {chart, "flowCreate", static_cast<double>(count)});
    }
    for (const auto &[count, goal] : {std::pair(1, k_shown),
                                      {10, k_shown},
                                      {100, k_shown},
                                      {1000, 0.75},
                                      {10'000, k_shown},
                                      {100'000, k_shown}}) {
        table_->throughput_at_least(goal, fmt::format("gRPC: flowGet of {} / empty handler", count),
                                    call("agent", "get", count), call("empty", "get", count),
                                    {chart, "flowGet", static_cast<double>(count)});
    }
    // With the client's parse included: 1,000 entries from the agent, nothing from the empty handler.
    table_->throughput_at_least(k_shown, "gRPC: flowGet of 1000, parsed by the client / empty handler",
                                call("agent", "get-parsed", 1000), call("empty", "get-parsed", 1000));
    const auto by_entry = [this](int count) {
        return [count, create = call("agent", "create", count)](nanoseconds slice) {
            return create(slice) / count;
        };
    };
    table_->time_at_most(1.25, "gRPC: an entry among 10000 / among 1000", by_entry(10'000), by_entry(1000));
}

// What arenas and the call server gain: the same work with gRPC's default handlers.
void call_figures::add_arenas() {
    for (const std::string what : {"create", "get"}) {
        const chart_s chart = {fmt::format("Throughput of {} (default handlers = 1)", what),
                               "entries or keys a call"};
        for (const int clients : {1, 8}) {
            for (const int count : {1, 10, 100, 1000}) {
                table_->throughput_at_least(
                    0.97, fmt::format("gRPC: {} of {}, {} at once / default handlers", what, count, clients),
                    call("agent", what, count, clients), call("heap", what, count, clients),
                    {chart, fmt::format("{} at once", clients), static_cast<double>(count)});
            }
        }
    }
}

void call_figures::add_clients() {
    const chart_s chart = {"Throughput of clients at once (one client = 1)", "clients"};
    for (const int clients : {2, 4, 8, 16}) {
        for (const std::string kind : {"agent", "empty"}) {
            table_->throughput_at_least(
                kind == "agent" && clients == 8 ? 2.4 : k_shown,
                fmt::format("gRPC: flowCreate of 1, {} clients / one, {}", clients, kind),
                call(kind, "create", 1, clients), call(kind, "create"),
                {chart, kind, static_cast<double>(clients)});
        }
    }
    table_->throughput_at_least(1, "gRPC: flowCreate of 1, 8 clients / empty handler",
                                call("agent", "create", 1, 8), call("empty", "create", 1, 8));
    table_->throughput_at_least(k_shown, "gRPC: flowCreate of 1000, 8 clients / empty handler",
                                call("agent", "create", 1000, 8), call("empty", "create", 1000, 8));
    for (const int clients : {1, 8}) {
        table_->throughput_at_least(
            k_shown, fmt::format("gRPC: flowCreate of 1, {} / empty handler, gRPC's settings", clients),
            call("agent", "create", 1, clients), call("defaults", "create", 1, clients));
    }
    for (const std::string what : {"create", "ports"}) {
        table_->count_at_most(1, fmt::format("gRPC: threads started by 1000 calls of 8 clients, {}", what),
                              [what, *this] { return started_threads(what); });
    }
}

void call_figures::add_walks() {
    table_->throughput_at_least(0.19, "gRPC: InterfaceGet of 5,000 / the same bytes made beforehand",
                                call("agent", "walk"), call("serialised", "walk"));
    table_->time_at_most(1.4, "gRPC: processor time by interface, 15,000 / 5,000",
                         walk_cpu("agent-15000", 15'000), walk_cpu("agent", 5000));
}

void call_figures::add_stored_entries() {
    for (const int stored : {10'000, 1'000'000}) {
        const auto part = fmt::format("grpc-filler unix:{}/agent", folder_->path());
        table_->figure_at_least(0.8, fmt::format("stand-in: entries before the {}th / the first", stored),
                                [=, *this](nanoseconds) {
                                    (void)ask_server("agent", "ready");
                                    return ask(part, std::to_string(stored + 11'000));
                                });
    }
}

// Peak memory of 16 concurrent calls of 10,000 entries, divided by the bytes of their requests.
void call_figures::add_memory() {
    table_->count_at_most(k_shown, "gRPC: peak memory by byte of 16 requests at once", [*this] {
        constexpr int k_entries = 10'000, k_clients = 16;
        const auto create = call("agent", "create", k_entries, k_clients);
        (void)create(std::chrono::milliseconds(1));
        (void)ask_server("agent", "forget_peak");
        (void)create(std::chrono::milliseconds(50));
        const double bytes = k_clients * static_cast<double>(flow_entries(k_entries).ByteSizeLong());
        return ask_server("agent", "peak_mib") * 1024 * 1024 / bytes;
    });
}

}  // namespace

void add_grpc(ratio_table *table) {
    call_figures calls(table);
    calls.add_entries();
    calls.add_arenas();
    calls.add_clients();
    calls.add_walks();
    calls.add_stored_entries();
    calls.add_memory();
}

}  // namespace bench
