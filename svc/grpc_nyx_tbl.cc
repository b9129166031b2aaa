#include "svc/grpc_nyx_tbl.h"

#include "svc/common/call.h"
#include "svc/nyx_tbl_calls.inc"
#include "svc/nyx_tbl_flow.h"

NyxTblSvcImpl::NyxTblSvcImpl() : served(k_methods) {}

NyxTblSvcImpl::~NyxTblSvcImpl() = default;

std::unique_ptr<grpc::Service> make_table_service() {
    return std::unique_ptr<grpc::Service>(new NyxTblSvcImpl);
}

void nyx_flow_info_proto_to_api_spec(nyx_tbl_flow_info_spec_s *spec, const nyx::flow_infoSpec *proto) {
    nyx_tbl::flow_info_binding::flow_info_a_to_record(spec->data.flow_info_a_data, proto->flow_info_a_data());
}
