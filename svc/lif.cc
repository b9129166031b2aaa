#include "svc/lif.h"

#include <iterator>

#include "agent_api/lif.h"
#include "svc/common/converters.h"
#include "svc/common/object_read.h"
#include "svc/common/text.h"

namespace {

// Indexed by the object API's type.
constexpr nyx::LifType k_types[] = {
    nyx::LIF_TYPE_NONE, nyx::LIF_TYPE_1,    nyx::LIF_TYPE_3, nyx::LIF_TYPE_4,
    nyx::LIF_TYPE_6,    nyx::LIF_TYPE_5,    nyx::LIF_TYPE_7, nyx::LIF_TYPE_NONE,
    nyx::LIF_TYPE_8,    nyx::LIF_TYPE_NONE, nyx::LIF_TYPE_9,
};

nyx::LifType type_to_proto(uint32_t type, uint8_t qualifier) {
    if (type == 1 && qualifier != 0) {
        return nyx::LIF_TYPE_2;
    }
    return type < std::size(k_types) ? k_types[type] : nyx::LIF_TYPE_NONE;
}

}  // namespace

void nyx_lif_api_info_to_proto(void *info, void *ctxt) {
    const auto &lif = *static_cast<const nyx_lif_info_s *>(info);
    auto *proto = static_cast<nyx::LifGetResponse *>(ctxt)->add_response();
    auto *spec = proto->mutable_spec();
    spec->set_id(svc::key_to_proto(lif.key));
    spec->set_type(type_to_proto(lif.type, lif.type_qualifier));
    spec->set_mac_address(svc::mac_addr_to_proto(lif.mac));
    auto *status = proto->mutable_status();
    status->set_name(svc::text_of(lif.name));
    status->set_lif_word_1(lif.lif_word_1);
    status->set_admin_status(static_cast<types::State>(svc::swapped_state(lif.admin_state)));
    status->set_oper_status(static_cast<types::State>(svc::swapped_state(lif.oper_state)));
    status->set_lif_word_2(lif.lif_word_2);
    status->set_lif_word_3(lif.lif_word_3);
}

sdk::sdk_ret_t nyx_svc_lif_get(const nyx::LifGetRequest *req, nyx::LifGetResponse *rsp) {
    return svc::read_objects<nyx_lif_info_s>(req, rsp, nyx_lif_read, nyx_lif_read_all,
                                             nyx_lif_api_info_to_proto);
}
