// A monitor: reports links that go down, come up, or flapped between two looks; the same as monitor.py.

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <optional>
#include <thread>

#include "nyx/client.h"
#include "nyx/port.grpc.pb.h"

namespace {

constexpr auto k_up = nyx::PORT_LINK_STATE_2;  // as the stand-in's card numbers it; another card may differ

// What was last seen of a port's link, with the last transitions of its state machine.
struct link_s {
    bool is_up = false;
    std::vector<std::pair<std::string, int>> trace = {};
};

link_s link_of(const nyx::Port &port) {
    link_s link = {.is_up = port.status().link_status().link_state() == k_up};
    for (const auto &record : port.status().link_sm_records()) {
        link.trace.emplace_back(record.timestamp(), record.state());
    }
    return link;
}

// What happened between two looks, as text; empty if nothing did. A trace that has grown shows what was too short to see.
std::string news(const link_s &before, const link_s &now) {
    auto first = now.trace.begin();
    if (!before.trace.empty()) {
        const auto known = std::ranges::find(now.trace, before.trace.back());
        first = known == now.trace.end() ? first : known + 1;
    }
    const auto transitions = now.trace.end() - first;
    const std::string when = transitions == 0 ? "now" : now.trace.back().first;
    if (now.is_up != before.is_up) {
        return (now.is_up ? "up since " : "down since ") + when;
    }
    return now.is_up && transitions != 0
               ? "flapped until " + when + ": " + std::to_string(transitions) + " transitions"
               : "";
}

class monitor {
 public:
    explicit monitor(const std::string &address) : ports_(nyx::client::connect(address)) {}

    // Prints until it has reported so many times.
    void run(std::chrono::milliseconds interval, unsigned reports) {
        for (look(); reports > 0; std::this_thread::sleep_for(interval)) {
            const unsigned restarts = ports_.restarts();
            const auto before = links_;
            if (!look()) {
                continue;
            }
            if (ports_.restarts() != restarts) {
                std::cout << "agent: restarted" << std::endl;
                continue;
            }
            for (const auto &[number, link] : links_) {
                const auto known = before.find(number);
                const std::string text = known == before.end() ? "" : news(known->second, link);
                if (!text.empty() && reports > 0) {
                    std::cout << "port " << number << ": " << text << std::endl;
                    reports--;
                }
            }
        }
    }

 private:
    // Ports before one that can't be read are in the response.
    bool look() {
        nyx::PortGetResponse response;
        const auto status = ports_.call(&nyx::PortSvc::Stub::PortGet, nyx::PortGetRequest(), &response, true);
        if (!status.ok() || response.api_status() != types::API_STATUS_OK) {
            std::cerr << "PortGet: " << status.error_message() << types::ApiStatus_Name(response.api_status())
                      << std::endl;
        }
        for (const auto &port : response.response()) {
            links_[port.spec().port_number()] = link_of(port);
        }
        return status.ok();
    }

    nyx::client::service<nyx::PortSvc> ports_;
    std::map<uint32_t, link_s> links_;
};

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::cerr << "usage: monitor ADDRESS MILLISECONDS-BETWEEN-LOOKS REPORTS" << std::endl;
        return 2;
    }
    monitor(argv[1]).run(std::chrono::milliseconds(std::stoul(argv[2])), std::stoul(argv[3]));
}
