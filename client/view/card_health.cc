#include "client/view/card_health.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "client/core/field_value.h"
#include "nyx/agent.pb.h"
#include "nyx/debug.pb.h"
#include "nyx/interface.pb.h"
#include "nyx/port.pb.h"
#include "nyx/system.pb.h"

namespace nyxctl {
namespace {

constexpr uint32_t k_heartbeat_ms = 5000;  // heartbeats come every second
constexpr double k_nearly_full = 0.9;      // of a limit of memory
constexpr uint32_t k_entries_now = 0;      // type of TableStatsEntry
constexpr char k_see_agent[] = "call AgentGet";

template <class Response>
Response *find(const looks_t &looks) {
    for (const look_s &look : looks) {
        if (auto *response = dynamic_cast<Response *>(look.response.get())) {
            return response;
        }
    }
    return nullptr;
}

std::string text_of(const google::protobuf::Message &message, const char *field) {
    return cell_text(field_value(message, message.GetDescriptor()->FindFieldByName(field)));
}

health_e degraded_unless(bool well) { return well ? health_e::ok : health_e::degraded; }

void forget_idle_links(const nyx::InterfaceGetResponse &interfaces, nyx::PortGetResponse *ports) {
    std::set<std::string> idle, used;
    for (const nyx::Interface &interface : interfaces.response()) {
        const bool is_used = interface.spec().admin_status() == types::STATE_UP;
        (is_used ? used : idle).insert(interface.spec().uplink_spec().port_id());
    }
    for (nyx::Port &port : *ports->mutable_response()) {
        if (idle.contains(port.spec().id()) && !used.contains(port.spec().id())) {
            port.mutable_status()->clear_link_status();
        }
    }
}

void check(const nyx::InterfaceGetResponse &interfaces, report_t *report) {
    for (const nyx::Interface &interface : interfaces.response()) {
        const bool is_wanted = interface.spec().admin_status() == types::STATE_UP;
        const bool is_up = interface.status().oper_status() == types::STATE_UP;
        const std::string &name = interface.status().host_if_status().name();
        const std::string subject = name.empty() ? text_of(interface.spec(), "id") : name;
        report->push_back({degraded_unless(is_up || !is_wanted), "interface", subject,
                           is_up       ? "up"
                           : is_wanted ? "up by its settings, but down"
                                       : "down by its settings",
                           "show interface " + subject});
    }
}

void check(const nyx::TableStatsGetResponse &tables, report_t *report) {
    bool has_limits = false;
    for (const nyx::TableStatsResponse &table : tables.response()) {
        const label_s *label = labels().find(table.table_name() + ".entries");
        has_limits = has_limits || label;
        for (const nyx::TableStatsEntry &entry : table.table_stats().entry()) {
            if (label && entry.type() == k_entries_now) {
                const verdict_s verdict = judge({.path = {},
                                                 .label = label,
                                                 .text = fmt::format("{} entries", entry.count()),
                                                 .number = entry.count(),
                                                 .bits = 0});
                report->push_back(
                    {verdict.state, "table", table.table_name(), verdict.detail, "show tables"});
            }
        }
    }
    if (!has_limits) {
        report->push_back(
            {health_e::unknown, "table", "", "the dictionary has no limits of entries", "labels"});
    }
}

void check(const nyx::ProcessRecoveryGetResponse &recovery, report_t *report) {
    report->push_back({degraded_unless(recovery.recovery_status() == nyx::RECOVERY_STATUS_ENABLED),
                       "process recovery", "", text_of(recovery, "recovery_status"), "show system"});
}

std::string age_text(uint64_t seconds) {
    return seconds < 120      ? fmt::format("{} s", seconds)
           : seconds < 7200   ? fmt::format("{} min", seconds / 60)
           : seconds < 172800 ? fmt::format("{} h", seconds / 3600)
                              : fmt::format("{} days", seconds / 86400);
}

check_s memory_check(const char *subject, uint64_t used, uint64_t limit) {
    const bool is_short = limit > 0 && static_cast<double>(used) > k_nearly_full * static_cast<double>(limit);
    return {degraded_unless(!is_short), "memory", subject,
            fmt::format("{} bytes, limit {}", used, limit == 0 ? "none" : std::to_string(limit)),
            k_see_agent};
}

check_s folder_check(const nyx::AgentFolder &folder) {
    const char *problem = !folder.exists()     ? "missing"
                          : !folder.writable() ? "not writable by the agent"
                                               : nullptr;
    return {degraded_unless(!problem), "MAC file folder", folder.path(),
            problem ? fmt::format("{}; MAC addresses of interfaces can't be stored", problem) : "writable",
            k_see_agent};
}

check_s pipeline_check(const nyx::AgentGetResponse &agent) {
    if (!agent.has_pipeline_quiesced()) {
        return {health_e::unknown, "pipeline", "", "the agent does not say whether it is quiesced"};
    }
    return {degraded_unless(!agent.pipeline_quiesced()), "pipeline", "",
            agent.pipeline_quiesced() ? "quiesced" : "not quiesced", "set quiesce --help"};
}

void check(const nyx::AgentGetResponse &agent, report_t *report) {
    const uint32_t since = agent.watchdog().since_heartbeat_ms();
    report->insert(report->end(),
                   {{health_e::info, "agent", agent.version(),
                     fmt::format("up {}, instance {}", age_text(agent.uptime_ns() / 1'000'000'000),
                                 text_of(agent, "instance_id")),
                     k_see_agent},
                    {since > k_heartbeat_ms ? health_e::failed : health_e::ok, "watchdog",
                     "service request thread", fmt::format("last heartbeat {} ms ago", since), k_see_agent},
                    folder_check(agent.mac_file_folder()),
                    memory_check("of the process", agent.memory().resident(), agent.memory().limit()),
                    memory_check("of calls", agent.memory().calls(), agent.memory().calls_limit()),
                    pipeline_check(agent)});
}

void check_limits(const look_s &look, report_t *report) {
    for (const vital_s &vital : look.vitals) {
        if (vital.bits == 0) {
            const verdict_s verdict = judge(vital);
            report->push_back({verdict.state, look.part.name, vital.path, verdict.detail, look.part.see});
        }
    }
}

template <class... Responses>
void check_each(const looks_t &looks, report_t *report) {
    const auto check_one = [&](const auto *response) {
        if (response) check(*response, report);
    };
    (check_one(find<const Responses>(looks)), ...);
}

}  // namespace

bool has_counters(const look_s &look) {
    return std::ranges::any_of(look.vitals, [](const vital_s &vital) { return vital.bits > 0; });
}

void find_vitals(looks_t *looks) {
    const auto *interfaces = find<const nyx::InterfaceGetResponse>(*looks);
    auto *ports = find<nyx::PortGetResponse>(*looks);
    if (interfaces && ports) {
        forget_idle_links(*interfaces, ports);
    }
    for (look_s &look : *looks) {
        look.vitals = look.response ? vitals_of(*look.response) : std::vector<vital_s>();
    }
}

void check_state(const looks_t &looks, report_t *report) {
    check_each<nyx::AgentGetResponse, nyx::InterfaceGetResponse, nyx::ProcessRecoveryGetResponse,
               nyx::TableStatsGetResponse>(looks, report);
    for (const look_s &look : looks) {
        check_limits(look, report);
    }
}

void check_growth(const look_s &before, const look_s &now, report_t *report) {
    const double seconds = std::chrono::duration<double>(now.at - before.at).count();
    for (const vital_s &vital : now.vitals) {
        const auto same = std::ranges::find(before.vitals, vital.path, &vital_s::path);
        if (vital.bits > 0 && same != before.vitals.end()) {
            if (const verdict_s verdict = judge(*same, vital, seconds); verdict.state != health_e::ok) {
                report->push_back({verdict.state, now.part.name, vital.path, verdict.detail, now.part.see});
            }
        }
    }
}

}  // namespace nyxctl
