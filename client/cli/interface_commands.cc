#include <fmt/format.h>

#include <algorithm>

#include "client/cli/change.h"
#include "client/cli/commands.h"
#include "client/core/field_value.h"
#include "client/view/find_object.h"
#include "nyx/interface.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr char k_footer[] =
    R"({0}Fields are those of nyx.InterfaceSpec (id, admin_status, tx_mirror_session,
rx_mirror_session) and of the kind: nyxctl describe UplinkSpec, L3IfSpec,
LoopbackIfSpec, ControlIfSpec, HostIfSpec.

Examples:
{1})";

constexpr char k_set_examples[] = R"(  nyxctl set interface uplink id=uplink1 admin_status=down
  nyxctl set interface host name=host0 mac_address=00:1a:2b:3c:4d:5e)";

constexpr char k_add_examples[] = R"(  nyxctl add interface uplink id=0a admin_status=up port_id=01
  nyxctl add interface l3 id=0b admin_status=up prefix=10.0.0.1/24 \
      mac_address=00:1a:2b:3c:4d:5e encap.type=dot1q encap.value.val_vlan=100
  nyxctl add interface loopback id=0c prefix=2001:db8::1/128
  nyxctl add interface host id=0d name=h1 mac_address=00:1a:2b:3c:4d:5e)";

constexpr char k_set[] =
    R"(The service replaces the whole specification. So nyxctl reads the interface,
changes the fields that are given, sends all of them back, and prints what
changed; a change made by somebody else in between is lost. A list that is given
replaces the one before. id takes any name of the interface. The MAC address of
a host interface that is given by its name changes at the agent's next start.

)";

constexpr char k_add[] =
    R"(A host interface is not created in the agent: its name and MAC address are
stored for the agent's next start.

)";

// The messages of the kinds: uplink_spec, l3_if_spec, ...
const pb::OneofDescriptor *kinds() { return nyx::InterfaceSpec::descriptor()->FindOneofByName("ifinfo"); }

std::vector<std::string> kind_names() {
    std::vector<std::string> names;
    for (int i = 0; i < kinds()->field_count(); i++) {
        names.push_back(kinds()->field(i)->name().substr(0, kinds()->field(i)->name().find('_')));
    }
    return names;
}

const pb::FieldDescriptor *message_of(const std::string &kind) {
    const std::vector<std::string> names = kind_names();
    return kinds()->field(static_cast<int>(std::ranges::find(names, kind) - names.begin()));
}

// The fields of all kinds are in the spec; `kind` has those of its own.
parts_t interface_parts(pb::Message *spec, const pb::FieldDescriptor *kind) {
    return {spec, spec->GetReflection()->MutableMessage(spec, kind)};
}

outcome_s with_id(outcome_s outcome, const nyx::InterfaceSpec &spec) {
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS) {
        const value_s id = field_value(spec, spec.GetDescriptor()->FindFieldByName("id"));
        outcome.text = fmt::format("interface {}: {}", cell_text(id), outcome.text);
    }
    return outcome;
}

// Sends what is given, and nothing else.
outcome_s send_interface(const given_s &given, const char *method, const nyx::InterfaceSpec &spec) {
    nyx::InterfaceRequest request;
    *request.add_request() = spec;
    return with_id(change(given.global, method, request), spec);
}

// Reads words, without sending anything.
outcome_s read_words(const given_s &given, words_t words, nyx::InterfaceSpec *spec) {
    return set_fields(interface_parts(spec, message_of(given.one("KIND"))), words);
}

// Only host interfaces may do without.
outcome_s check_id(const given_s &given, const nyx::InterfaceSpec &spec, bool has_id) {
    return has_id || spec.has_host_if_spec()
               ? outcome_s()
               : usage_failure(fmt::format("interface {}: an id is missing; give id=UUID or id=HEX",
                                           given.one("KIND")));
}

outcome_s add_interface(const given_s &given) {
    nyx::InterfaceSpec spec;
    outcome_s outcome = read_words(given, given.all("FIELD"), &spec);
    outcome = outcome.ok() ? check_id(given, spec, !spec.id().empty()) : outcome;
    return outcome.ok() ? send_interface(given, "nyx.IfSvc.InterfaceCreate", spec) : outcome;
}

// The value of the word that says which interface is meant, and the words for its settings.
std::string take_word(const std::string &name, std::vector<std::string> *words) {
    const auto found =
        std::ranges::find_if(*words, [&](const std::string &word) { return word.starts_with(name + "="); });
    if (found == words->end()) {
        return "";
    }
    std::string value = found->substr(name.size() + 1);
    words->erase(found);
    return value;
}

outcome_s unlike(const given_s &given, const std::string &name, const nyx::InterfaceSpec &spec) {
    const auto *kind = spec.GetReflection()->GetOneofFieldDescriptor(spec, kinds());
    const std::string found = kind ? kind->name().substr(0, kind->name().find('_')) : "of no known kind";
    return usage_failure(fmt::format("interface \"{}\" is {}, not {}", name, found, given.one("KIND")));
}

// A MAC address goes with a name: the agent stores both for its next start. All other settings are changed by id.
outcome_s set_interface(const given_s &given) {
    std::vector<std::string> words = given.all("FIELD");
    const std::string id = given.has("--new") ? "" : take_word("id", &words);
    nyx::InterfaceSpec words_spec;
    outcome_s outcome = read_words(given, words, &words_spec);
    outcome = outcome.ok() ? check_id(given, words_spec, !id.empty()) : outcome;
    if (!outcome.ok()) {
        return outcome;
    }
    const std::string name = id.empty() ? take_word("name", &words) : id;
    const bool stores_mac = id.empty() && words_spec.host_if_spec().mac_address() != 0;
    if (name.empty()) {
        return usage_failure("interface host: a name is missing; give name=NAME or id=ID");
    }
    if (given.has("--new")) {
        return send_interface(given, "nyx.IfSvc.InterfaceUpdate", words_spec);
    }
    nyx::InterfaceRequest request;
    nyx::InterfaceSpec *spec = request.add_request();
    if (outcome = read_spec(given.global, "interface", name, spec); !outcome.ok()) {
        return id.empty() ? with_hint(outcome, "--new stores the name and its MAC address all the same")
                          : outcome;
    }
    if (spec->GetReflection()->GetOneofFieldDescriptor(*spec, kinds()) != message_of(given.one("KIND"))) {
        return unlike(given, name, *spec);
    }
    if (stores_mac && words.size() > 1) {
        return usage_failure(
            "mac_address is stored for the agent's next start; set other fields by a command "
            "of their own");
    }
    if (stores_mac) {
        spec->clear_id();  // so that the agent goes by the name
        words.push_back("name=" + name);
    }
    const auto *kind = message_of(given.one("KIND"));
    const auto parts = [kind](pb::Message *message) { return interface_parts(message, kind); };
    return with_id(change_settings(given.global, "nyx.IfSvc.InterfaceUpdate", request, spec, parts, words),
                   *spec);
}

outcome_s del_interface(const given_s &given) {
    nyx::InterfaceDeleteRequest request;
    for (const std::string &text : given.all("ID")) {
        if (outcome_s outcome = find_id(given.global, "interface", text, request.add_id()); !outcome.ok()) {
            return outcome;
        }
    }
    return with_hint(change(given.global, "nyx.IfSvc.InterfaceDelete", request),
                     "none was deleted; see nyxctl show interfaces");
}

}  // namespace

commands_t interface_commands() {
    const arguments_t arguments = {
        {"KIND", "Kind of the interface", KIND_CHOICE, COUNT_ONE, "", kind_names()},
        {"FIELD", "A field and its value", KIND_INTERFACE_FIELD, COUNT_SOME, "FIELD=VALUE"}};
    arguments_t set_arguments = arguments;
    set_arguments.push_back(
        {"--new", "Store the MAC address of a host interface that is not known", KIND_FLAG});
    return {
        {"set interface", "Change settings of an interface and keep the others",
         fmt::format(k_footer, k_set, k_set_examples), set_arguments, set_interface},
        {"add", "Create interfaces", "Example:\n  nyxctl add interface loopback id=0c prefix=10.0.0.1/32"},
        {"add interface", "Create an interface", fmt::format(k_footer, k_add, k_add_examples), arguments,
         add_interface},
        {"del", "Delete interfaces", "Example:\n  nyxctl del interface 0a 0b"},
        {"del interface",
         "Delete interfaces: all of them or none",
         "Example:\n  nyxctl del interface 0a 0b",
         {{"ID", "Id, name, MAC address or if_index", KIND_ID, COUNT_SOME, "", {"interface"}}},
         del_interface},
    };
}

}  // namespace nyxctl
