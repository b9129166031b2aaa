#include "svc/debug_statistics.h"

#include <iterator>
#include <type_traits>

#include "nyx/debug.pb.h"
#include "svc/common/ret_code.h"
#include "svc/common/text.h"

namespace {

// Kinds of ports of the packet buffer, by port number; the messages give them no names.
constexpr uint32_t k_pb_port_types[] = {3, 3, 3, 3, 3, 0, 2, 1};

// Counters of a table's operations that are reported, by the entry's type.
constexpr uint32_t k_api_counters[] = {0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};

void port_to_proto(nyx::PacketBufferPort *proto, uint32_t port) {
    if (port < std::size(k_pb_port_types)) {
        proto->set_port_type(k_pb_port_types[port]);
        proto->set_port_number(port);
    }
}

void buffer_to_proto(nyx::BufferStats *proto, const nyx_pb_debug_stats_s &stats) {
    proto->set_buffer_value_1(stats.buffer_value[0]);
    proto->set_buffer_value_2(stats.buffer_value[1]);
    proto->set_buffer_value_3(stats.buffer_value[2]);
    proto->set_buffer_value_4(stats.buffer_value[3]);
    for (uint32_t reason = 0; reason < std::extent_v<decltype(stats.drop)>; reason++) {
        auto *entry = proto->mutable_drop_stats()->add_entry();
        entry->set_reasons(reason);
        entry->set_drop_count(stats.drop[reason]);
    }
}

void fifo_to_proto(nyx::OflowFifoStats *proto, const nyx_pb_debug_stats_s &stats) {
    proto->set_fifo_value_1(stats.fifo_value[0]);
    proto->set_fifo_value_2(stats.fifo_value[1]);
    proto->set_fifo_value_3(stats.fifo_value[2]);
    proto->set_fifo_value_4(stats.fifo_value[3]);
    for (uint32_t type = 0; type < std::extent_v<decltype(stats.fifo_drop)>; type++) {
        auto *entry = proto->mutable_drop_stats()->add_entry();
        entry->set_type(type);
        entry->set_count(stats.fifo_drop[type]);
    }
}

void input_queue_to_proto(nyx::QosInputQueueStats *proto, const pb_input_queue_s &queue) {
    proto->set_queue_number(queue.queue);
    proto->set_input_value_a(queue.value_a);
    proto->set_input_value_b(queue.value_b);
    proto->set_input_count(queue.count);
    auto *oflow = proto->mutable_oflow_queue_stats();
    oflow->set_oflow_count_1(queue.oflow_count[0]);
    oflow->set_oflow_count_2(queue.oflow_count[1]);
    oflow->set_oflow_count_3(queue.oflow_count[2]);
    oflow->set_oflow_value_1(queue.oflow_value[0]);
    oflow->set_oflow_value_2(queue.oflow_value[1]);
}

void output_queue_to_proto(nyx::QosOutputQueueStats *proto, const pb_output_queue_s &queue) {
    proto->set_queue_number(queue.queue);
    proto->set_output_value(queue.value);
    proto->set_output_count(queue.count);
}

void queues_to_proto(nyx::QosQueueStats *proto, const nyx_pb_debug_stats_s &stats) {
    for (const pb_input_queue_s &queue : stats.input_queue) {
        if (queue.valid) {
            input_queue_to_proto(proto->add_input_queue_stats(), queue);
        }
    }
    for (const pb_output_queue_s &queue : stats.output_queue) {
        if (queue.valid) {
            output_queue_to_proto(proto->add_output_queue_stats(), queue);
        }
    }
}

template <class Entry>
void count_to_proto(Entry *entry, uint32_t type, uint64_t count) {
    entry->set_type(type);
    entry->set_count(static_cast<uint32_t>(count));
}

}  // namespace

void nyx_pb_stats_entry_to_proto(nyx_pb_debug_stats_s *stats, void *ctxt) {
    auto *rsp = static_cast<nyx::PbStatsGetResponse *>(ctxt);
    auto *proto = rsp->mutable_pb_stats()->add_port_stats();
    port_to_proto(proto->mutable_port(), stats->port);
    buffer_to_proto(proto->mutable_buffer_stats(), *stats);
    fifo_to_proto(proto->mutable_oflow_fifo_stats(), *stats);
    queues_to_proto(proto->mutable_qos_queue_stats(), *stats);
    rsp->set_api_status(types::API_STATUS_OK);
}

void nyx_table_stats_entry_to_proto(nyx_table_stats_s *stats, void *ctxt) {
    auto *rsp = static_cast<nyx::TableStatsGetResponse *>(ctxt);
    auto *proto = rsp->add_response();
    proto->set_table_name(base::to_utf8(stats->table_name));
    for (uint32_t type = 0; type < std::size(k_api_counters); type++) {
        count_to_proto(proto->mutable_api_stats()->add_entry(), type,
                       stats->api_counter[k_api_counters[type]]);
    }
    for (uint32_t type = 0; type < std::size(stats->table_counter); type++) {
        count_to_proto(proto->mutable_table_stats()->add_entry(), type, stats->table_counter[type]);
    }
    rsp->set_api_status(types::API_STATUS_OK);
}
