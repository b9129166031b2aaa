// Statistics of the debug library: slabs, packet buffer, tables, last-level cache; and the AACS command server. Rules
// for all operations: sdk_ret.h.
//
// What the numbered values, flags and counters mean is defined by the agent; the services pass them on by position.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "agent_api/sdk_ret.h"

// One slab allocator.
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
    uint8_t valid;  // 0: the queue is not in use, and not reported
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
    uint8_t valid;  // as for input queues
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
    uint32_t port;  // 0 to 7; of other ports the number is not reported
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

// One table. Not packed, because a compiler can't pack a text object; agent and services must be built with the same
// C++ ABI for std::string.
struct nyx_table_stats_s {
    uint32_t table_id;         // not read
    std::string table_name;    // in any encoding: clients see U+FFFD for each byte that is not UTF-8
    uint64_t api_counter[15];  // all but number 3 are reported
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

// Walks over all slabs; the record is a nyx_slab_info_s. The walk stops when the callback returns true; that of the
// services returns false.
sdk::sdk_ret_t nyx_slab_get(bool (*callback)(void *info, void *ctxt), void *ctxt);

// Walk over the ports of the packet buffer, or over the tables.
sdk::sdk_ret_t nyx_pb_stats_get(void (*callback)(nyx_pb_debug_stats_s *stats, void *ctxt), void *ctxt);
sdk::sdk_ret_t nyx_table_stats_get(void (*callback)(nyx_table_stats_s *stats, void *ctxt), void *ctxt);

// Clears statistics of the packet buffer at once: its drop counters, all others. The services always pass true and
// false, and ignore the code: no client learns of a failure.
sdk::sdk_ret_t nyx_pb_stats_reset(bool drops, bool others);

// Programs the counters of the last-level cache, at once, with the mask of the record: one bit, whether or not the
// cache has that type, or all 32. The counters of the record are zero, and not read afterwards.
sdk::sdk_ret_t nyx_llc_setup(sdk::asic::pd::llc_counters_s *counters);

// Fills the record with the programmed mask and the counters. Clients see the type of the mask's lowest bit if that
// is 1 to 10, else 0; and 0 for a mask of all 32 bits.
sdk::sdk_ret_t nyx_llc_get(sdk::asic::pd::llc_counters_s *counters);

// Start and stop the command server (AACS) of the SerDes library, for tuning tools on the network. The port comes
// from the client unchecked: 0, above 65535 or in use are all possible, as are two starts or stops in a row. The
// codes are ignored: no client learns of a failure. A client waits for the operation, so the server must not run on
// the calling thread.
sdk::sdk_ret_t start_aacs_server(unsigned int port);
sdk::sdk_ret_t stop_aacs_server();

}  // namespace debug
