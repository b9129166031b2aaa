// The stand-in's control plane: it accepts every change.

#include "agent_api/control_plane.h"

#include "sim/card/if_records.h"
#include "sim/faults/faults.h"

sdk::sdk_ret_t nyx_ms::interface_create(nyx_if_spec_s *spec) {
    return sim::fault("nyx_ms::interface_create", sim::key_bytes(spec->key));
}

sdk::sdk_ret_t nyx_ms::interface_update(nyx_if_spec_s *spec) {
    return sim::fault("nyx_ms::interface_update", sim::key_bytes(spec->key));
}

sdk::sdk_ret_t nyx_ms::interface_delete(nyx_obj_key_s *key, uint64_t) {
    return sim::fault("nyx_ms::interface_delete", sim::key_bytes(*key));
}
