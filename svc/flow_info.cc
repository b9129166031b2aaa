#include "svc/nyx_tbl_flow.h"

void nyx_flow_info_proto_to_api_spec(nyx_tbl_flow_info_spec_s *spec, const nyx::flow_infoSpec *proto) {
    nyx_tbl::flow_info_binding::flow_info_a_to_record(spec->data.flow_info_a_data, proto->flow_info_a_data());
}
