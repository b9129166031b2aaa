#include "sim/api/reset_card.h"

#include "agent_api/agent_state.h"
#include "sim/api/batches.h"
#include "sim/api/lifs.h"
#include "sim/api/lldp.h"
#include "sim/api/ports.h"
#include "sim/card/card.h"

namespace sim {

void reset_card() {
    drop_batches();
    (void)change_if_records([](if_records_s &records) {
        records = card_records();
        return sdk::SDK_RET_OK;
    });
    forget_port_counts();
    reset_lifs();
    reset_lldp();
    core::agent_state::state()->epoch = 0;
    core::agent_state::state()->if_api_bypass = false;
}

}  // namespace sim
