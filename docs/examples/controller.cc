// A controller: keeps the flow table of a card as it wants it, and proves it; the same as controller.py.

#include <iostream>
#include <map>
#include <set>

#include "nyx/client.h"
#include "nyx/debug.grpc.pb.h"
#include "nyx/tables/tbl_svc.grpc.pb.h"

namespace {

using stub_t = nyx::NyxTblSvc::Stub;

nyx::flowSpec flow(uint32_t number, uint32_t next_hop) {
    std::string address("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0", 12);
    for (int shift = 24; shift >= 0; shift -= 8) {
        address.push_back(static_cast<char>(number >> shift));
    }
    nyx::flowSpec spec;
    spec.mutable_key()->set_k1(address);
    spec.mutable_key()->set_k2(6);
    spec.mutable_key()->set_k3(443);
    spec.mutable_flow_hash_data()->set_d1(next_hop);
    return spec;
}

class controller {
 public:
    controller(const std::string &address, uint32_t flows)
        : tables_(nyx::client::connect(address)), debug_(nyx::client::connect(address)) {
        add(flows, 0);
    }

    void run(uint32_t rounds) {
        reconcile();
        for (uint32_t round = 1; round <= rounds; round++) {
            change(round);
            reconcile();
            std::cout << "round " << round << ": " << wanted_.size() << " flows" << std::endl;
        }
        while (!holds_exactly()) {
            std::cout << "not yet as wanted: checking every flow that ever was" << std::endl;
            doubt_all();
            reconcile();
        }
        std::cout << "the card holds exactly its " << wanted_.size() << " flows, after " << troubles_
                  << " troubles and " << tables_.restarts() << " restarts" << std::endl;
    }

 private:
    void set(uint32_t number, uint32_t next_hop) {
        wanted_[number] = next_hop;
        doubtful_.insert(number);
    }

    void add(uint32_t flows, uint32_t next_hop) {
        for (const uint32_t last = used_ + flows; used_ < last; used_++) {
            set(used_, next_hop);
        }
    }

    void doubt_all() {
        for (uint32_t number = 0; number < used_; number++) {
            doubtful_.insert(number);
        }
    }

    // A tenth of the flows goes, as many others come, and one in ten gets another next hop.
    void change(uint32_t round) {
        const uint32_t first = wanted_.begin()->first;
        const uint32_t tenth = std::max<uint32_t>((used_ - first) / 10, 1);
        for (uint32_t number = first; number < first + tenth; number++) {
            wanted_.erase(number);
            doubtful_.insert(number);
            set(number + tenth, round);
        }
        add(tenth, round);
    }

    // Brings the card to what is wanted, however often it takes.
    void reconcile() {
        while (!doubtful_.empty()) {
            const auto batch = std::exchange(doubtful_, {});
            const unsigned restarts = tables_.restarts();
            const bool is_written = write(batch);
            if (tables_.restarts() != restarts) {
                doubt_all();  // its tables were empty
            } else if (!is_written) {
                doubtful_.insert(batch.begin(), batch.end());
            }
            if (!doubtful_.empty()) {
                std::cout << "trouble " << ++troubles_ << ": trying again" << std::endl;
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        }
    }

    bool write(const std::set<uint32_t> &batch) {
        std::vector<nyx::flow_key_t> gone;
        std::vector<nyx::flowSpec> wanted;
        for (const uint32_t number : batch) {
            if (const auto found = wanted_.find(number); found != wanted_.end()) {
                wanted.push_back(flow(number, found->second));
            } else {
                gone.push_back(flow(number, 0).key());
            }
        }
        const auto removed = tables_.write(&stub_t::flowDelete, &stub_t::flowGet, gone);
        const auto added = tables_.write(&stub_t::flowCreate, &stub_t::flowGet, wanted);
        const auto updated = tables_.write(&stub_t::flowUpdate, &stub_t::flowGet, added.failed);
        return removed.ok() && added.status.ok() && updated.ok();
    }

    // Whether the card holds what is wanted, and nothing else: by its own count.
    bool holds_exactly() {
        std::vector<nyx::flowSpec> wanted;
        for (const auto &[number, next_hop] : wanted_) {
            wanted.push_back(flow(number, next_hop));
        }
        nyx::TableStatsGetResponse tables;
        if (!tables_.check(&stub_t::flowGet, wanted).ok() ||
            !debug_.call(&nyx::DebugSvc::Stub::TableStatsGet, types::Empty(), &tables, true).ok()) {
            return false;
        }
        return std::ranges::any_of(tables.response(), [&](const auto &table) {
            return table.table_name() == "flow" && table.table_stats().entry(0).count() == wanted.size();
        });
    }

    nyx::client::service<nyx::NyxTblSvc> tables_;
    nyx::client::service<nyx::DebugSvc> debug_;
    std::map<uint32_t, uint32_t> wanted_;  // next hops by number of the flow
    std::set<uint32_t> doubtful_;          // flows that may differ from it in the card
    uint32_t used_ = 0;                    // numbers below it were wanted at some time
    unsigned troubles_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::cerr << "usage: controller ADDRESS FLOWS ROUNDS" << std::endl;
        return 2;
    }
    controller(argv[1], std::stoul(argv[2])).run(std::stoul(argv[3]));
}
