#include "agent_api/agent_state.h"

core::agent_state *core::agent_state::state() {
    static agent_state state{};
    return &state;
}
