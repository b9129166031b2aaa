// The LIF API: the card's logical interfaces. Rules for all operations: sdk_ret.h.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/interface.h"
#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"

// What the numbered words mean is defined by the agent.
struct nyx_lif_info_s {
    nyx_obj_key_s key;
    uint8_t reserved_1;
    uint16_t lif_id;  // key of the LIF implementation table (lif_impl.h)
    uint8_t reserved_2[24];
    uint32_t type;           // 1 to 6, 8 or 10; all other values are reported as none
    uint8_t type_qualifier;  // read with type 1: 0 or not
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

// Fills `info` for the LIF with this key. SDK_RET_LOOKUP_FAILURE when there is none, which a client receives as
// API_STATUS_LOOKUP_FAILURE; the services treat all failures alike.
sdk::sdk_ret_t nyx_lif_read(nyx_obj_key_s *key, nyx_lif_info_s *info);

// Walks over all LIFs; the record is a nyx_lif_info_s. The callback of the classic view looks the LIF's
// implementation object up (lif_impl.h).
sdk::sdk_ret_t nyx_lif_read_all(nyx_read_cb_t callback, void *ctxt);

// Clears the statistics of the LIF with this key at once, or of all LIFs when `key` is null. The code is ignored: no
// client learns of a failure.
sdk::sdk_ret_t nyx_lif_stats_reset(nyx_obj_key_s *key);
