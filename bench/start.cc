// Measures the start of nyx-agent, and its memory when idle.

#include <chrono>

#include "bench/agent_program.h"
#include "bench/figures.h"

namespace bench {

namespace {

double start_ms() {
    const temporary_folder folder;
    const auto begin = std::chrono::steady_clock::now();
    const agent_program agent(folder.path());
    agent.answer_a_call();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

double idle_mib() {
    const temporary_folder folder;
    const agent_program agent(folder.path());
    agent.answer_a_call();
    return agent.resident_mib();
}

}  // namespace

void add_start(ratio_table *table) {
    table->count_at_most(50, "start: ms from exec to the first answer", start_ms);
    table->count_at_most(0, "start: MiB resident after the first answer", idle_mib);
}

}  // namespace bench
