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
  nyxctl {1} interface uplink id=0a admin_status=up port_id=01
  nyxctl {1} interface l3 id=0b admin_status=up prefix=10.0.0.1/24 \
      mac_address=00:1a:2b:3c:4d:5e encap.type=dot1q encap.value.val_vlan=100
  nyxctl {1} interface loopback id=0c prefix=2001:db8::1/128
  nyxctl {1} interface host {2}name=h1 mac_address=00:1a:2b:3c:4d:5e)";

constexpr char k_set[] =
    R"(The service replaces the whole specification: give all fields; those that are
left out become 0. A host interface without an id is found by its name, and
changes at the agent's next start.

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

outcome_s write_interface(const given_s &given, const char *method) {
    nyx::InterfaceRequest request;
    nyx::InterfaceSpec *spec = request.add_request();
    pb::Message *const messages[] = {
        spec, spec->GetReflection()->MutableMessage(spec, message_of(given.one("KIND")))};
    outcome_s outcome = set_fields(messages, given.all("FIELD"));
    if (outcome.ok() && spec->id().empty() && !spec->has_host_if_spec()) {
        return usage_failure(
            fmt::format("interface {}: an id is missing; give id=UUID or id=HEX", given.one("KIND")));
    }
    if (outcome.ok()) {
        outcome = change(given.global, method, request);
    }
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS) {
        const value_s id = field_value(*spec, spec->GetDescriptor()->FindFieldByName("id"));
        outcome.text = fmt::format("interface {}: {}", cell_text(id), outcome.text);
    }
    return outcome;
}

outcome_s set_interface(const given_s &given) { return write_interface(given, "nyx.IfSvc.InterfaceUpdate"); }
outcome_s add_interface(const given_s &given) { return write_interface(given, "nyx.IfSvc.InterfaceCreate"); }

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
    return {
        {"set interface", "Replace all settings of an interface", fmt::format(k_footer, k_set, "set", ""),
         arguments, set_interface},
        {"add", "Create interfaces", "Example:\n  nyxctl add interface loopback id=0c prefix=10.0.0.1/32"},
        {"add interface", "Create an interface", fmt::format(k_footer, k_add, "add", "id=0d "), arguments,
         add_interface},
        {"del", "Delete interfaces", "Example:\n  nyxctl del interface 0a 0b"},
        {"del interface",
         "Delete interfaces: all of them or none",
         "Example:\n  nyxctl del interface 0a 0b",
         {{"ID", "Id, name, MAC address or if_index", KIND_ID, COUNT_SOME}},
         del_interface},
    };
}

}  // namespace nyxctl
