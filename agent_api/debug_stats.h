// Statistics of the debug library: slabs, packet buffer, tables, last-level cache; and the AACS command server.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "agent_api/sdk_ret.h"

struct nyx_slab_info_s {
    uint32_t id;
    char name[28];  // zero-terminated
    uint32_t value_1;
    uint32_t value_2;
    uint32_t value_3;
    uint32_t value_4;
    uint8_t flag_1;
    uint8_t flag_2;
    uint8_t flag_3;
    uint8_t reserved;
    uint32_t stat[5];
} __attribute__((packed));
static_assert(offsetof(nyx_slab_info_s, id) == 0);
static_assert(offsetof(nyx_slab_info_s, name) == 4);
static_assert(offsetof(nyx_slab_info_s, value_1) == 32);
static_assert(offsetof(nyx_slab_info_s, value_2) == 36);
static_assert(offsetof(nyx_slab_info_s, value_3) == 40);
static_assert(offsetof(nyx_slab_info_s, value_4) == 44);
static_assert(offsetof(nyx_slab_info_s, flag_1) == 48);
static_assert(offsetof(nyx_slab_info_s, flag_2) == 49);
static_assert(offsetof(nyx_slab_info_s, flag_3) == 50);
static_assert(offsetof(nyx_slab_info_s, stat) == 52);
static_assert(sizeof(nyx_slab_info_s) == 72);

struct pb_input_queue_s {
    uint8_t valid;
    uint32_t queue;
    uint64_t oflow_count[3];
    uint32_t oflow_value[2];
    uint32_t value_a;
    uint32_t value_b;
    uint64_t count;
} __attribute__((packed));
static_assert(offsetof(pb_input_queue_s, valid) == 0);
static_assert(offsetof(pb_input_queue_s, queue) == 1);
static_assert(offsetof(pb_input_queue_s, oflow_count) == 5);
static_assert(offsetof(pb_input_queue_s, oflow_value) == 29);
static_assert(offsetof(pb_input_queue_s, value_a) == 37);
static_assert(offsetof(pb_input_queue_s, value_b) == 41);
static_assert(offsetof(pb_input_queue_s, count) == 45);
static_assert(sizeof(pb_input_queue_s) == 53);

struct pb_output_queue_s {
    uint8_t valid;
    uint32_t queue;
    uint32_t value;
    uint64_t count;
} __attribute__((packed));
static_assert(offsetof(pb_output_queue_s, valid) == 0);
static_assert(offsetof(pb_output_queue_s, queue) == 1);
static_assert(offsetof(pb_output_queue_s, value) == 5);
static_assert(offsetof(pb_output_queue_s, count) == 9);
static_assert(sizeof(pb_output_queue_s) == 17);

// One port of the packet buffer.
struct nyx_pb_debug_stats_s {
    uint32_t port;
    uint32_t buffer_value[4];
    uint32_t drop[14];  // by drop reason
    uint32_t fifo_value[4];
    uint32_t fifo_drop[6];  // by type
    pb_input_queue_s input_queue[32];
    pb_output_queue_s output_queue[32];
} __attribute__((packed));
static_assert(offsetof(nyx_pb_debug_stats_s, port) == 0);
static_assert(offsetof(nyx_pb_debug_stats_s, buffer_value) == 4);
static_assert(offsetof(nyx_pb_debug_stats_s, drop) == 20);
static_assert(offsetof(nyx_pb_debug_stats_s, fifo_value) == 76);
static_assert(offsetof(nyx_pb_debug_stats_s, fifo_drop) == 92);
static_assert(offsetof(nyx_pb_debug_stats_s, input_queue) == 116);
static_assert(offsetof(nyx_pb_debug_stats_s, output_queue) == 1812);
static_assert(sizeof(nyx_pb_debug_stats_s) == 2356);

// One table. Not packed, because it holds a text object.
struct nyx_table_stats_s {
    uint32_t table_id;
    std::string table_name;
    uint64_t api_counter[15];
    uint64_t table_counter[2];
};

namespace sdk::asic::pd {

struct llc_counters_s {
    uint32_t mask;  // bit t - 1 selects counter type t; all 32 bits: every type
    uint32_t counter[16];
} __attribute__((packed));
static_assert(offsetof(llc_counters_s, counter) == 4);
static_assert(sizeof(llc_counters_s) == 68);

}  // namespace sdk::asic::pd

namespace debug {

// Walks call the callback once per record, before they return. The record is gone when the callback returns. All
// operations: any thread.

// The record is a nyx_slab_info_s. The walk stops when the callback returns true.
sdk::sdk_ret_t nyx_slab_get(bool (*callback)(void *info, void *ctxt), void *ctxt);

sdk::sdk_ret_t nyx_pb_stats_get(void (*callback)(nyx_pb_debug_stats_s *stats, void *ctxt), void *ctxt);
sdk::sdk_ret_t nyx_table_stats_get(void (*callback)(nyx_table_stats_s *stats, void *ctxt), void *ctxt);

// Clears the packet buffer's drop counters, and on demand all its other statistics.
sdk::sdk_ret_t nyx_pb_stats_reset(bool drops, bool others);

// Programs the cache's counters with the mask of the record.
sdk::sdk_ret_t nyx_llc_setup(sdk::asic::pd::llc_counters_s *counters);

// Fills the zeroed record with the programmed mask and the counters.
sdk::sdk_ret_t nyx_llc_get(sdk::asic::pd::llc_counters_s *counters);

// The command server of the SerDes library, for tuning tools on the network.
sdk::sdk_ret_t start_aacs_server(unsigned int port);
sdk::sdk_ret_t stop_aacs_server();

}  // namespace debug
