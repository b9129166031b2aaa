// The LIF API: the card's logical interfaces.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/interface.h"
#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"

struct nyx_lif_info_s {
    nyx_obj_key_s key;
    uint8_t reserved_1;
    uint16_t lif_id;  // key of the LIF implementation table
    uint8_t reserved_2[24];
    uint32_t type;           // 1 to 10
    uint8_t type_qualifier;  // goes with type 1
    uint8_t reserved_3;
    mac_addr_s mac;
    uint8_t reserved_4[28];
    uint32_t lif_word_1;
    uint32_t lif_word_2;
    char name[16];  // zero-terminated
    nyx_state_e admin_state;
    nyx_state_e oper_state;
    uint32_t lif_word_3;
} __attribute__((packed));

static_assert(offsetof(nyx_lif_info_s, key) == 0);
static_assert(offsetof(nyx_lif_info_s, lif_id) == 18);
static_assert(offsetof(nyx_lif_info_s, type) == 44);
static_assert(offsetof(nyx_lif_info_s, type_qualifier) == 48);
static_assert(offsetof(nyx_lif_info_s, mac) == 50);
static_assert(offsetof(nyx_lif_info_s, lif_word_1) == 84);
static_assert(offsetof(nyx_lif_info_s, lif_word_2) == 88);
static_assert(offsetof(nyx_lif_info_s, name) == 92);
static_assert(offsetof(nyx_lif_info_s, admin_state) == 108);
static_assert(offsetof(nyx_lif_info_s, oper_state) == 112);
static_assert(offsetof(nyx_lif_info_s, lif_word_3) == 116);
static_assert(sizeof(nyx_lif_info_s) == 120);

// All operations: any thread.

// Fills the zeroed `info`; SDK_RET_LOOKUP_FAILURE when there is no such LIF.
sdk::sdk_ret_t nyx_lif_read(nyx_obj_key_s *key, nyx_lif_info_s *info);

// Passes the nyx_lif_info_s of every LIF to the callback.
sdk::sdk_ret_t nyx_lif_read_all(nyx_read_cb_t callback, void *ctxt);

// Clears the statistics of one LIF, or of all LIFs when `key` is null.
sdk::sdk_ret_t nyx_lif_stats_reset(nyx_obj_key_s *key);
