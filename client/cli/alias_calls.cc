#include "client/cli/alias_calls.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "base/nearest_names.h"
#include "client/core/bytes_text.h"
#include "client/core/field_value.h"
#include "client/core/field_words.h"
#include "client/core/grpc_call.h"
#include "client/core/json.h"
#include "client/core/record_width.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "nyx/interface.pb.h"
#include "nyx/lif.pb.h"
#include "nyx/port.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_port_number_digits = 3;

const pb::MethodDescriptor *method_of(const std::string &full_name) {
    return pb::DescriptorPool::generated_pool()->FindMethodByName(full_name);
}

outcome_s call(const global_options_s &global, const std::string &name, const pb::Message &request,
               pb::Message *response) {
    return checked_call(global, method_of(name), request, response);
}

// For changes: says that they were made, to scripts alone.
outcome_s change(const global_options_s &global, const std::string &name, const pb::Message &request) {
    const auto response = new_message(method_of(name)->output_type());
    outcome_s outcome = call(global, name, request, response.get());
    return outcome.ok() && global.json ? write_stdout("{\"status\": \"ok\"}\n") : outcome;
}

// What to do when the agent said no.
outcome_s with_hint(outcome_s outcome, const std::string &hint) {
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS) {
        outcome.text += "; " + hint;
    }
    return outcome;
}

outcome_s with_subject(const std::string &subject, outcome_s outcome) {
    outcome.text = subject + ": " + outcome.text;
    return outcome;
}

outcome_s set_fields(std::span<pb::Message *const> messages, words_t words) {
    for (const std::string &word : words) {
        if (outcome_s outcome = set_field(messages, word); !outcome.ok()) {
            return outcome;
        }
    }
    for (const pb::Message *message : messages) {
        if (outcome_s outcome = check_widths(*message); !outcome.ok()) {
            outcome.text.resize(
                std::min(outcome.text.size(), outcome.text.find("; --cut")));  // of call alone
            return outcome;
        }
    }
    return {};
}

outcome_s set_fields(pb::Message *message, words_t words) { return set_fields({&message, 1}, words); }

outcome_s refuse(const std::string &value, std::span<const std::string> allowed) {
    std::string names;
    for (const std::string &name : allowed) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return usage_failure('"' + value + "\" is not accepted; give one of " + names +
                         base::nearest_names_text(value, allowed));
}

outcome_s unknown_port(const std::string &port, const nyx::PortGetResponse &ports) {
    std::string numbers;
    for (const nyx::Port &known : ports.response()) {
        numbers += (numbers.empty() ? "" : ", ") + std::to_string(known.spec().port_number());
    }
    return {NYXCTL_EXIT_API_STATUS, "port " + port + ": no such port; the agent has " + numbers};
}

// An unset variable of a script must not mean the object with the all-zero id.
outcome_s refuse_empty(words_t ids) {
    return std::ranges::count(ids, "") ? usage_failure("\"\" is no id") : outcome_s();
}

outcome_s read_port(const global_options_s &global, const std::string &port, nyx::PortSpec *spec) {
    if (outcome_s outcome = refuse_empty({&port, 1}); !outcome.ok()) {
        return outcome;
    }
    uint32_t number = 0;
    const char *end = port.data() + port.size();
    const bool is_number = port.size() <= k_port_number_digits && !port.empty() &&
                           std::from_chars(port.data(), end, number).ptr == end;
    nyx::PortGetRequest request;
    if (!is_number) {
        const std::string word = "id=" + port;
        if (outcome_s outcome = set_fields(&request, {&word, 1}); !outcome.ok()) {
            return outcome;
        }
    }
    nyx::PortGetResponse response;
    if (outcome_s outcome = call(global, "nyx.PortSvc.PortGet", request, &response); !outcome.ok()) {
        outcome.text = "port " + port + ": " + outcome.text;
        return outcome;
    }
    const auto found = std::ranges::find_if(response.response(), [&](const nyx::Port &known) {
        return !is_number || known.spec().port_number() == number;
    });
    if (found == response.response().end()) {
        return unknown_port(port, response);
    }
    *spec = found->spec();
    return {};
}

const pb::FieldDescriptor *interface_kind(const std::string &kind) {
    const pb::OneofDescriptor *kinds = nyx::InterfaceSpec::descriptor()->FindOneofByName("ifinfo");
    for (int i = 0; i < kinds->field_count(); i++) {
        if (kinds->field(i)->name().starts_with(kind + "_")) {
            return kinds->field(i);
        }
    }
    return nullptr;
}

}  // namespace

outcome_s call_with_words(const global_options_s &global, const std::string &method, words_t words) {
    const auto request = new_message(method_of(method)->input_type());
    outcome_s outcome = set_fields(request.get(), words);
    return outcome.ok() ? change(global, method, *request) : outcome;
}

outcome_s set_switch(const global_options_s &global, const std::string &what, const std::string &state) {
    struct switch_s {
        std::string what;
        const char *on;
        const char *off;
    };
    static const std::array<switch_s, 4> k_switches = {{
        {"recovery", "nyx.SystemSvc.ProcessRecoveryEnable", "nyx.SystemSvc.ProcessRecoveryDisable"},
        {"quiesce", "nyx.PipelineSvc.QuiesceStart", "nyx.PipelineSvc.QuiesceStop"},
        {"sessions", "nyx.PipelineSvc.SessionStatisticsEnable", "nyx.PipelineSvc.SessionStatisticsDisable"},
        {"lifs", "nyx.PipelineSvc.LifStatisticsEnable", "nyx.PipelineSvc.LifStatisticsDisable"},
    }};
    const auto found = std::ranges::find(k_switches, what, &switch_s::what);
    if (found == k_switches.end()) {
        return refuse(what, std::vector<std::string>{"sessions", "lifs"});
    }
    if (state != "on" && state != "off") {
        return refuse(state, std::vector<std::string>{"on", "off"});
    }
    return call_with_words(global, state == "on" ? found->on : found->off, {});
}

outcome_s set_clocks(const global_options_s &global, words_t words) {
    const std::vector<std::string> names = {"core", "arm", "p4"};
    const std::array<std::string, 3> fields = {"clock_frequency", "arm_clock_frequency",
                                               "p4_stage_frequency"};
    std::vector<std::string> field_words;
    for (const std::string &word : words) {
        const size_t equals = std::min(word.find('='), word.size());
        const auto found = std::ranges::find(names, word.substr(0, equals));
        if (found == names.end() || equals == word.size()) {
            return usage_failure('"' + word + "\" is no clock; give core=MHZ, arm=MHZ or p4=MHZ");
        }
        field_words.push_back(fields[static_cast<size_t>(found - names.begin())] + word.substr(equals));
    }
    return with_hint(
        call_with_words(global, "nyx.SystemSvc.ClockFrequencyUpdate", field_words),
        "core takes 833, 900, 957, 1033 and 1100, arm 1667, 2000, 2200 and 3000, p4 1137 and 1500");
}

outcome_s set_port(const global_options_s &global, const std::string &port, words_t words) {
    if (std::ranges::any_of(words, [](const std::string &word) {
            return word.starts_with("id=") || word.starts_with("port_number=");
        })) {
        return usage_failure("id and port_number of a port can't be changed; leave them out");
    }
    nyx::PortSpec spec;  // words that can't be right are refused before anything is sent
    if (outcome_s outcome = set_fields(&spec, words); !outcome.ok()) {
        return outcome;
    }
    if (outcome_s outcome = read_port(global, port, &spec); !outcome.ok()) {
        return outcome;
    }
    nyx::PortUpdateRequest request;
    *request.mutable_spec() = spec;
    outcome_s outcome = set_fields(request.mutable_spec(), words);
    return outcome.ok() ? change(global, "nyx.PortSvc.PortUpdate", request) : outcome;
}

outcome_s clear_port_stats(const global_options_s &global, words_t port) {
    types::Id id;
    if (!port.empty()) {
        nyx::PortSpec spec;
        if (outcome_s outcome = read_port(global, port.front(), &spec); !outcome.ok()) {
            return outcome;
        }
        id.set_id(spec.id());
    }
    return change(global, "nyx.PortSvc.PortStatsReset", id);
}

outcome_s clear_lif_stats(const global_options_s &global, words_t ids) {
    if (outcome_s outcome = refuse_empty(ids); !outcome.ok()) {
        return outcome;
    }
    types::Id id;
    if (!ids.empty()) {
        const std::string word = "id=" + ids.front();
        if (outcome_s outcome = set_fields(&id, {&word, 1}); !outcome.ok()) {
            return outcome;
        }
        nyx::LifGetRequest request;
        nyx::LifGetResponse response;
        request.add_id(id.id());
        if (outcome_s outcome = call(global, "nyx.IfSvc.LifGet", request, &response); !outcome.ok()) {
            outcome.text = "LIF " + ids.front() + ": " + outcome.text;
            return outcome;
        }
    }
    return change(global, "nyx.IfSvc.LifStatsReset", id);
}

std::vector<std::string> interface_kinds() {
    const pb::OneofDescriptor *kinds = nyx::InterfaceSpec::descriptor()->FindOneofByName("ifinfo");
    std::vector<std::string> names;
    for (int i = 0; i < kinds->field_count(); i++) {
        names.push_back(kinds->field(i)->name().substr(0, kinds->field(i)->name().find('_')));
    }
    return names;
}

outcome_s write_interface(const global_options_s &global, const std::string &method, const std::string &kind,
                          words_t words) {
    const pb::FieldDescriptor *field = interface_kind(kind);
    if (!field) {
        return refuse(kind, interface_kinds());
    }
    nyx::InterfaceRequest request;
    nyx::InterfaceSpec *spec = request.add_request();
    pb::Message *const messages[] = {spec, spec->GetReflection()->MutableMessage(spec, field)};
    outcome_s outcome = set_fields(messages, words);
    if (outcome.ok() && spec->id().empty() && !spec->has_host_if_spec()) {
        outcome = usage_failure("interface " + kind + ": it needs an id; give id=UUID or id=HEX");
    }
    if (outcome.ok()) {
        outcome = change(global, method, request);
    }
    return outcome.exit_code == NYXCTL_EXIT_API_STATUS
               ? with_subject("interface " +
                                  cell_text(field_value(*spec, spec->GetDescriptor()->FindFieldByName("id"))),
                              std::move(outcome))
               : outcome;
}

outcome_s delete_interfaces(const global_options_s &global, words_t ids) {
    if (outcome_s outcome = refuse_empty(ids); !outcome.ok()) {
        return outcome;
    }
    nyx::InterfaceDeleteRequest request;
    for (const std::string &text : ids) {
        types::Id id;  // checked one by one: the service takes a longer id as the all-zero one
        const std::string word = "id=" + text;
        if (outcome_s outcome = set_fields(&id, {&word, 1}); !outcome.ok()) {
            return outcome;
        }
        request.add_id(id.id());
    }
    return with_hint(change(global, "nyx.IfSvc.InterfaceDelete", request),
                     "none was deleted; see nyxctl show interfaces");
}

}  // namespace nyxctl
