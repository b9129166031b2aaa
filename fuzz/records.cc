// Records of the agent's libraries with anything in them, made messages.

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "agent_api/lif.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "sim/api/internal_switch.h"
#include "sim/api/lldp.h"
#include "sim/api/system.h"
#include "svc/debug.h"
#include "svc/debug_internal_port.h"
#include "svc/debug_statistics.h"
#include "svc/interface.h"
#include "svc/interface_info.h"
#include "svc/lif.h"
#include "svc/lif_classic.h"
#include "svc/pipeline.h"
#include "svc/port_record.h"
#include "svc/system.h"

namespace {

// A tracer whose buffers hold the records that it counts: readers trust it so far.
class honest_tracer {
 public:
    explicit honest_tracer(fuzz::input &in) {
        tracer_.record_data_size = in.take<uint8_t>() % 8;
        tracer_.generation = in.take<uint32_t>();
        for (size_t i = 0; i < records_.size(); i++) {
            tracer_.buffer[i].num_records = in.take<uint8_t>() % 8;
            records_[i].resize(tracer_.buffer[i].num_records *
                               (sizeof(link_event_header_s) + tracer_.record_data_size));
            in.take_into(records_[i].data(), records_[i].size());
            tracer_.buffer[i].records = records_[i].empty() ? nullptr : records_[i].data();
        }
    }
    const link_event_tracer_s *get() const { return &tracer_; }

 private:
    std::array<std::vector<uint8_t>, 2> records_;
    link_event_tracer_s tracer_ = {};
};

template <class Record, class Response, auto ToProto>
void decode(fuzz::input &in) {
    auto record = in.take<Record>();
    Response rsp;
    ToProto(&record, &rsp);
    fuzz::check_message(rsp);
}

template <class Record, class Response, auto ToProto>
void decode_indexed(fuzz::input &in) {
    const auto index = in.take<uint32_t>();
    auto record = in.take<Record>();
    Response rsp;
    ToProto(index, &record, &rsp);
    fuzz::check_message(rsp);
}

template <class Response, auto ToProto>
void decode_interface(fuzz::input &in) {
    auto record = in.take<nyx_if_info_s>();
    const honest_tracer tracer(in);
    record.status.port.link_event_tracer = tracer.get()->generation % 2 ? tracer.get() : nullptr;
    Response rsp;
    ToProto(&record, &rsp);
    fuzz::check_message(rsp);
}

// All but the text object is plain memory.
void decode_lldp(fuzz::input &in) {
    lldp_if_status_s side = {};
    constexpr size_t text = offsetof(lldp_if_status_s, text), after = text + sizeof(side.text);
    auto *bytes = reinterpret_cast<char *>(&side);
    in.take_into(bytes, text);
    in.take_into(bytes + after, sizeof(side) - after);
    side.text = in.take_rest();
    sim::put_lldp_status(9, {.local = side, .neighbor = side});
    nyx::UplinkIfStatus proto;
    nyx_if_lldp_status_to_proto(&proto, 9);
    fuzz::check_message(proto);
}

void decode_table_stats(fuzz::input &in) {
    nyx_table_stats_s stats = {};
    in.take_into(stats.api_counter, sizeof(stats.api_counter));
    in.take_into(stats.table_counter, sizeof(stats.table_counter));
    stats.table_name = in.take_rest();
    nyx::TableStatsGetResponse rsp;
    nyx_table_stats_entry_to_proto(&stats, &rsp);
    fuzz::check_message(rsp);
}

// As many queues as the record counts, which is what readers trust.
void decode_queue_credits(fuzz::input &in) {
    using namespace sdk::asic::pd;
    const auto port = in.take<uint32_t>();
    std::vector<uint8_t> record(sizeof(port_queue_credit_s) + in.take<uint8_t>() * sizeof(queue_credit_s));
    in.take_into(record.data(), record.size());
    auto *const credits = reinterpret_cast<port_queue_credit_s *>(record.data());
    credits->num_queues = static_cast<uint32_t>(record.size() / sizeof(queue_credit_s));
    nyx::QueueCreditsGetResponse rsp;
    nyx_queue_credits_to_proto(port, credits, &rsp);
    fuzz::check_message(rsp);
}

void decode_switch_port(fuzz::input &in) {
    sim::switch_port_s port = {.status = in.take<sdk::iswitch::iswitch_port_status_s_>(),
                               .stats = in.take<sdk::iswitch::iswitch_port_stats_s_>(),
                               .descr = nullptr};
    const std::string descr(in.take_rest());
    port.descr = descr.empty() ? nullptr : descr.c_str();
    sim::put_switch_ports({port});
    nyx::InternalPortResponseMsg rsp;
    marvell_get_port_info(0, &rsp);
    sim::put_switch_ports({});
    fuzz::check_message(rsp);
}

void decode_system(fuzz::input &in) {
    sim::system_state_s state;
    state.led = in.take<uint32_t>();
    state.reset_reason = in.take<uint32_t>();
    state.die_id = in.take_rest();
    sim::put_system_state(state);
    nyx::SystemGetResponse rsp;
    (void)SystemSvcImpl().SystemGet(nullptr, nullptr, &rsp);
    fuzz::check_message(rsp);
}

constexpr void (*k_decoders[])(fuzz::input &) = {
    decode_interface<nyx::InterfaceGetResponse, nyx_if_api_info_to_proto>,
    decode_interface<nyx::PortGetResponse, nyx_port_api_info_to_proto>,
    decode<nyx_lif_info_s, nyx::LifGetResponse, nyx_lif_api_info_to_proto>,
    decode<nyx_lif_info_s, nyx::LifClassicGetResponse, nyx_lif_api_info_to_config_proto>,
    decode<nyx_slab_info_s, nyx::SlabGetResponse, nyx_slab_to_proto>,
    decode<nyx_pb_debug_stats_s, nyx::PbStatsGetResponse, nyx_pb_stats_entry_to_proto>,
    decode_queue_credits,
    decode_indexed<session_stats_entry_s, nyx::SessionStatsGetResponse, nyx_session_stats_to_proto>,
    decode_lldp,
    decode_table_stats,
    decode_switch_port,
    decode_system,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    k_decoders[in.take<uint8_t>() % std::size(k_decoders)](in);
    return 0;
}
